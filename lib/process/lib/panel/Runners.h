// For the panel's other programs: runs the panel's tools by name, a program without capturing its output, and
// shell commands as popen does. Unlike popen's, a command starts like all other children here, with SIGPIPE
// and SIGCHLD at their defaults, an empty signal mask and nothing open but 0, 1 and 2.
#pragma once

#include <string>
#include <vector>

namespace quelm {

enum class ToolFailure { reported, quiet };

// Both of these run a tool through exec_and_report, with its path as argument 0 and `arguments` behind it,
// and return that function's result.

// /opt/ovt/admin/sbin/NAME. A name with a slash is refused: -1, and "Utility name 'NAME' is invalid. Use only
// utility name without path." on standard error.
int exec_admin_tool(const std::string& name, const std::vector<std::string>& arguments, ToolFailure failure);

// /usr/lib/quelm-9.0/NAME.
int exec_library_tool(const std::string& name, const std::vector<std::string>& arguments,
                      ToolFailure failure);

// Runs `path` (no search along PATH) with `argv`, whose last element is null, on the utility's own standard
// input, output and error, and waits for it. Returns the exit status; -1 when it was killed or could not be
// waited for; 255 when it could not be run, with the reason on standard error. A failed fork ends the process
// with status 1 and "Unable to fork" of fatal_message.
int fork_and_wait(const char* path, char* const argv[]);

// Runs `command` with `text` as its standard input and waits for it. Returns its exit status, or -1 when it
// was killed, or when it could not be started or did not take the whole text; standard error then gets
// "Failed to execute command with input: either pipe, fork or memory allocation failed." or "Failed to
// execute command with input: only N of M bytes were written.". Bytes in the pipe count as written. A command
// that stops reading does not kill the utility.
int exec_with_input(const char* command, const std::string& text);

enum class PopenFailure {
    none,
    notStarted, // pipe, fork or the final wait failed; errno has the reason, or 0 when there is none
    noMemory,   // no memory for the output buffer: the command was not started
    cutOutput   // the buffer could not grow: the command ran to its end, the rest of its output is lost
};

// Runs `command` and waits for it. Returns its exit status (the shell's 127 when it knows no such command),
// or -1 when it was killed or on notStarted and noMemory. `*output` becomes its NUL-terminated standard
// output, for the caller to release with free, or null on notStarted and noMemory. `failure` may be null.
int popen_exec(const char* command, char** output, PopenFailure* failure = nullptr);

// popen_exec that also prints what went wrong on standard error: the failure, and for a result other than 0
// "popen_exec: command failed code: RESULT , OUTPUT", where "error: none" stands for an empty output.
int popen_exec_report(const char* command, char** output);

} // namespace quelm

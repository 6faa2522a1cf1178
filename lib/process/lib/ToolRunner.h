// Runs the panel's own tools by name, and a program without looking at its output.
#pragma once

#include <string>
#include <vector>

namespace quelm {

enum class ToolFailure { reported, quiet };

// Both run a tool through exec_and_report, with its path as argument 0 and `arguments` behind it, and return
// that function's result.

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

} // namespace quelm

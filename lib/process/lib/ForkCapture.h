// Runs a program on the utility's own standard input and collects what it prints.
#pragma once

namespace quelm {

// Runs `path` (no search along PATH) with `argv`, whose last element is null, and waits for it. Returns the
// exit status; -1 when the program was killed, stopped or could not be waited for; 255 when it could not be
// run, with the reason in `*error`.
// `*output` and `*error` become the NUL-terminated standard output and standard error, for the caller to
// release with free, or null. An empty text is the normal form of "printed nothing".
// A child that has ended is noticed within about a second even when a process that it left behind still
// holds its pipes; what that process prints later is lost.
// A pipe that cannot be made ends the process with status 1 and "fork_execv_getouterr: pipe() failed" or
// "fork_execv_getouterr: fcntl(O_NONBLOCK) failed" of fatal_message.
int fork_execv_getouterr(char** output, char** error, const char* path, char* const argv[]);

// The same for standard output alone; standard error stays the utility's own.
int fork_execv_getout(char** output, const char* path, char* const argv[]);

} // namespace quelm

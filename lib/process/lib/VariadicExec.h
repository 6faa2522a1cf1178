// The runners for callers that know their arguments when they are written. In each, `path` becomes argument 0
// and the list behind it, closed by a null pointer, holds the others. When memory for the vector runs out,
// fatal_message says "malloc() failed: REASON" and the process ends with status 1.
#pragma once

#include <sys/types.h>

namespace quelm {

// Starts a program on the given descriptors (-1 means /dev/null) and returns its pid at once: fork_exec_wait
// waits for it. A failed fork ends the process with status 1 and "fork_execv: fork() failed" of
// fatal_message.
[[gnu::sentinel]] pid_t fork_execv(int input, int output, int error, const char* path, ...);

// As fork_execv_pipes.
[[gnu::sentinel]] pid_t fork_execl_pipes(int input, int output, int error, const char* path, ...);

// As fork_execv_getouterr and fork_execv_getout.
[[gnu::sentinel]] int fork_execl_getouterr(char** output, char** error, const char* path, ...);
[[gnu::sentinel]] int fork_execl_getout(char** output, const char* path, ...);

// As exec_and_report.
[[gnu::sentinel]] int execl_and_report(bool quiet, const char* path, ...);

} // namespace quelm

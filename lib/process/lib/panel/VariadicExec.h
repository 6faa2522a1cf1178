// For the panel's other programs: runners that take the arguments as a list. In each, `path` becomes argument
// 0; the list that follows holds the others and ends with a null pointer. When memory for the vector runs
// out, fatal_message says "malloc() failed: REASON" and the process ends with status 1.
#pragma once

#include <cstdarg>
#include <memory>

#include <sys/types.h>

#include "base/ByteBuffer.h"

namespace quelm {

// Starts a program on the given descriptors (-1 means /dev/null) and returns its pid at once: fork_exec_wait
// waits for it. A failed fork ends the process with status 1 and "fork_execv: fork() failed" of
// fatal_message.
[[gnu::sentinel]] pid_t fork_execv(int input, int output, int error, const char* path, ...);

// As fork_execv_pipes.
[[gnu::sentinel]] pid_t fork_execl_pipes(int input, int output, int error, const char* path, ...);

// As fork_execv_getouterr.
[[gnu::sentinel]] int fork_execl_getouterr(char** output, char** error, const char* path, ...);

// As fork_execv_getouterr for standard output alone; standard error stays the utility's own.
int fork_execv_getout(char** output, const char* path, char* const argv[]);
[[gnu::sentinel]] int fork_execl_getout(char** output, const char* path, ...);

// As exec_and_report.
[[gnu::sentinel]] int execl_and_report(bool quiet, const char* path, ...);

// The vector of such a list. The strings are not copied and must live as long as the vector is used.
class ArgumentList {
public:
    ArgumentList(const char* path, va_list arguments);

    char* const* data() const { return pointers_.get(); }

private:
    std::unique_ptr<char*[], FreeBlock> pointers_;
};

// Runs `path` (no search along PATH) with `fd_in` as standard input and `fd_out` as standard output, standard
// error being the utility's own, and waits for it. -1 as a descriptor means /dev/null; 0, 1 and 2 are
// refused. Both descriptors still belong to the caller. Returns the exit status, or -1 after one report on
// standard error: refused descriptors, no pipe, no child, a program that could not be run, a failed wait, a
// program killed, or one stopped (which is then left stopped). When memory for the arguments runs out,
// fatal_message says "malloc() failed: REASON" and the process ends with status 1.
[[gnu::sentinel]] int fork_exec_fd(int fd_in, int fd_out, const char* path, ...);

} // namespace quelm

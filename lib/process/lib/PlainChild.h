// Starts a child for the C-style functions, with failures as messages, and waits for one. StartAsUser.h has
// the start that throws, switches the user and sets variables.
#pragma once

#include <sys/types.h>

#include "lib/process/lib/ChildSetup.h"

namespace quelm {

// Forks and runs `path` (no search along PATH) with `argv`, whose last element is null, and nothing open but
// 0, 1 and 2. Returns the child's pid at once, or -1 when fork failed, with its reason in errno. The caller's
// descriptors stay open. A child that cannot place its descriptors or run the program prints "fork_execv:
// dup() failed: REASON" or "fork_execv: execv("PATH") failed: REASON" on its standard error and ends with
// status 255.
pid_t forkProgram(const ChildDescriptors& descriptors, const char* path, char* const argv[]);

// forkProgram; a failed fork prints `forkFailure` through fatal_message and ends the process with status 1.
pid_t startProgram(const ChildDescriptors& descriptors, const char* path, char* const argv[],
                   const char* forkFailure);

// startProgram with the message "fork_execv_pipes: fork() failed".
pid_t fork_execv_pipes(int input, int output, int error, const char* path, char* const argv[]);

enum class Ending { exited, killed, stopped, continued };

struct WaitStatus {
    Ending ending;
    // The exit status 0..255 of `exited`, the signal's number of `killed` and `stopped`, 0 of `continued`.
    int value;

    // The exit status, or -1 for every other ending.
    int exitCode() const { return ending == Ending::exited ? value : -1; }
};

// Decodes `status` as waitpid stored it, with or without WUNTRACED and WCONTINUED.
WaitStatus decodeWaitStatus(int status);

// waitpid, repeated when a signal interrupts it.
pid_t waitUninterrupted(pid_t pid, int* status, int options);

// Waits until `pid` has ended or stopped. Returns the exit status; -1 when it was killed, stopped or
// continued, or when it could not be waited for (an interrupted wait is not repeated), each with a line in
// the log: level 3 for a failure, 4 for a signal. A negative `pid` stands for a fork that failed and is
// logged so. `name` is what the log calls the child; null reads as "<unknown>". `status`, if given, gets the
// word that waitpid stored, if any. errno is 0 afterwards unless the wait failed; with a negative pid it is
// unchanged.
int fork_exec_wait(pid_t pid, const char* name, int* status = nullptr);

} // namespace quelm

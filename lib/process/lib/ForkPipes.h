// Starts a program on three given descriptors: the ground that the C-style runners stand on.
#pragma once

#include <sys/types.h>

namespace quelm {

// What the child gets as standard input, output and error; -1 means /dev/null. The same descriptor may be
// given more than once. The caller's copies stay open and stay the caller's.
struct ChildDescriptors {
    int input;
    int output;
    int error;
};

// Puts the descriptors on 0, 1 and 2. For a child only: whatever stood there is lost, and so are the
// originals beyond 2. False with the reason in errno.
bool placeDescriptors(const ChildDescriptors& descriptors);

// Forks and runs `path` (no search along PATH) with `argv`, whose last element is null, and nothing open
// but 0, 1 and 2. Returns the child's pid at once, or -1 when fork failed, with its reason in errno. A child
// that cannot set up its descriptors or cannot run the program says so on its standard error, as "fork_execv:
// dup() failed: REASON" or "fork_execv: execv("PATH") failed: REASON", and ends with status 255.
pid_t forkProgram(const ChildDescriptors& descriptors, const char* path, char* const argv[]);

// forkProgram; a failed fork prints `forkFailure` through fatal_message and ends the process with status 1.
pid_t startProgram(const ChildDescriptors& descriptors, const char* path, char* const argv[],
                   const char* forkFailure);

// startProgram with the message "fork_execv_pipes: fork() failed".
pid_t fork_execv_pipes(int input, int output, int error, const char* path, char* const argv[]);

} // namespace quelm

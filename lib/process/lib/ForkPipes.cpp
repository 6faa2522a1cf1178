#include "lib/process/lib/ForkPipes.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "cli/FatalMessage.h"
#include "lib/process/lib/ChildSetup.h"
#include "lib/process/lib/CloseFrom.h"

namespace quelm {

namespace {

constexpr int childFailed = -1; // seen by the parent as 255

using Slots = std::array<int, 3>;

bool standsInTheWay(const Slots& slots, int slot) {
    const int descriptor = slots[static_cast<std::size_t>(slot)];
    return descriptor >= 0 && descriptor != slot &&
           (descriptor <= STDERR_FILENO || std::count(slots.begin(), slots.end(), descriptor) > 1);
}

[[noreturn]] void becomeProgram(const ChildDescriptors& descriptors, const char* path, char* const argv[]) {
    enterChild();
    if (!placeDescriptors(descriptors)) {
        std::fprintf(stderr, "fork_execv: dup() failed: %s\n", std::strerror(errno));
        leaveChild(childFailed);
    }
    quelm::closefrom(STDERR_FILENO + 1);
    ::execv(path, argv);
    std::fprintf(stderr, "fork_execv: execv(\"%s\") failed: %s\n", path, std::strerror(errno));
    leaveChild(childFailed);
}

} // namespace

// Placing closes what it has copied. A descriptor that is wanted twice, or that occupies another one's slot,
// is therefore copied out of the way first.
bool placeDescriptors(const ChildDescriptors& descriptors) {
    Slots slots{descriptors.input, descriptors.output, descriptors.error};
    for (int slot = STDIN_FILENO; slot <= STDERR_FILENO; ++slot) {
        if (standsInTheWay(slots, slot)) {
            int& descriptor = slots[static_cast<std::size_t>(slot)];
            descriptor = ::fcntl(descriptor, F_DUPFD, STDERR_FILENO + 1);
            if (descriptor == -1) {
                return false;
            }
        }
    }
    for (int slot = STDIN_FILENO; slot <= STDERR_FILENO; ++slot) {
        if (!placeDescriptor(slots[static_cast<std::size_t>(slot)], slot)) {
            return false;
        }
    }
    return true;
}

pid_t forkProgram(const ChildDescriptors& descriptors, const char* path, char* const argv[]) {
    prepareFork();
    const pid_t child = ::fork();
    if (child == 0) {
        becomeProgram(descriptors, path, argv);
    }
    return child;
}

pid_t startProgram(const ChildDescriptors& descriptors, const char* path, char* const argv[],
                   const char* forkFailure) {
    const pid_t child = forkProgram(descriptors, path, argv);
    if (child == -1) {
        fatal_message(1, 0, "%s", forkFailure);
    }
    return child;
}

pid_t fork_execv_pipes(int input, int output, int error, const char* path, char* const argv[]) {
    return startProgram({input, output, error}, path, argv, "fork_execv_pipes: fork() failed");
}

} // namespace quelm

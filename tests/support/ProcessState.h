// The descriptors and children that a process has.
#pragma once

#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quelm::test {

inline bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD, 0) != -1;
}

inline bool isNullDevice(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3) &&
           (::fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDWR;
}

// The open descriptors from `lowest` to below `end`, found without opening another one.
inline std::vector<int> openDescriptors(int lowest = 0, int end = 1024) {
    std::vector<int> found;
    for (int descriptor = lowest; descriptor < end; ++descriptor) {
        if (isOpen(descriptor)) {
            found.push_back(descriptor);
        }
    }
    return found;
}

// Opens copies of descriptor 0 until `count` more are open.
inline void openMore(int count) {
    for (int opened = 0; opened < count; ++opened) {
        (void)::dup(STDIN_FILENO);
    }
}

// Closes some of the standard descriptors; the set is a sum of 1, 2 and 4.
inline void closeStandard(int set) {
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
        if ((set >> descriptor & 1) != 0) {
            ::close(descriptor);
        }
    }
}

inline bool setDescriptorLimit(rlim_t limit) {
    rlimit wanted{};
    ::getrlimit(RLIMIT_NOFILE, &wanted);
    wanted.rlim_cur = limit;
    if (wanted.rlim_max < limit) {
        wanted.rlim_max = limit; // only root may
    }
    return ::setrlimit(RLIMIT_NOFILE, &wanted) == 0;
}

// Whether there is a child that nobody has waited for, running or not.
inline bool hasChildren() {
    return ::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

} // namespace quelm::test

// The descriptors that this process has open.
#pragma once

#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace quelm::test {

inline bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD, 0) != -1;
}

// Those from `lowest` to below `end`, found without opening another one.
inline std::vector<int> openDescriptors(int lowest, int end) {
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

inline bool setDescriptorLimit(rlim_t limit) {
    rlimit wanted{};
    ::getrlimit(RLIMIT_NOFILE, &wanted);
    wanted.rlim_cur = limit;
    if (wanted.rlim_max < limit) {
        wanted.rlim_max = limit; // only root may
    }
    return ::setrlimit(RLIMIT_NOFILE, &wanted) == 0;
}

} // namespace quelm::test

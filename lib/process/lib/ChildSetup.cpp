#include "lib/process/lib/ChildSetup.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "base/FatalMessage.h"
#include "base/ProcessState.h"
#include "base/UtilityErrorStream.h"

namespace quelm {

namespace {

using Slots = std::array<int, 3>;

bool standsInTheWay(const Slots& slots, int slot) {
    const int descriptor = slots[static_cast<std::size_t>(slot)];
    return descriptor >= 0 && descriptor != slot &&
           (descriptor <= STDERR_FILENO || std::count(slots.begin(), slots.end(), descriptor) > 1);
}

enum class Walk { done, abandoned };

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

std::optional<int> parseDescriptor(std::string_view name) {
    int number = 0;
    const auto [end, failure] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (failure != std::errc() || end != name.data() + name.size() || number < 0) {
        return std::nullopt;
    }
    return number;
}

const dirent* nextEntry(DIR* directory) {
    const dirent* entry = nullptr;
    do {
        errno = 0;
        entry = ::readdir(directory);
    } while (entry != nullptr &&
             (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0));
    return entry;
}

Walk walkOpenDescriptors(int lowest) {
    const Directory directory(::opendir("/proc/self/fd"));
    if (!directory) {
        return Walk::abandoned;
    }
    const int own = ::dirfd(directory.get());
    const int tableSize = ::getdtablesize();
    const int mostEntries = std::max(100, tableSize / 10);
    bool metOwn = false;
    int looked = 0;
    while (const dirent* entry = nextEntry(directory.get())) {
        const std::optional<int> number = parseDescriptor(entry->d_name);
        if (++looked > mostEntries || !number || *number >= tableSize) {
            return Walk::abandoned;
        }
        if (*number == own) {
            metOwn = true;
        } else if (*number >= lowest) {
            ::close(*number);
        }
    }
    return errno == 0 && metOwn ? Walk::done : Walk::abandoned;
}

// Counting down is only for kernels and system call filters without close_range: a table can have a thousand
// million slots.
void closeWholeRange(int lowest) {
    if (::close_range(static_cast<unsigned>(lowest), UINT_MAX, 0) == 0) {
        return;
    }
    for (int number = ::getdtablesize(); number >= lowest; --number) {
        ::close(number);
    }
}

} // namespace

void prepareFork() {
    const KeepErrno keep;
    errorStream.flush();
    std::cout.flush();
    std::cerr.flush();
    std::fflush(stdout);
    std::fflush(stderr);
    std::signal(SIGCHLD, SIG_DFL);
}

void enterChild() {
    markForkedChild();
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGCHLD, SIG_DFL);
    restoreCallersSignals();
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

// /dev/null is opened before the comparison: when the slot was closed, open may return the slot itself, and
// closing "the copy" would then close it again.
bool placeDescriptor(int descriptor, int slot) {
    const int source = descriptor == -1 ? ::open("/dev/null", O_RDWR) : descriptor;
    if (source == -1) {
        return false;
    }
    if (source == slot) {
        return true;
    }
    if (::dup2(source, slot) == -1) {
        return false;
    }
    ::close(source);
    return true;
}

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

// The few descriptors that a process normally has are found in /proc and closed one by one. Where that cannot
// be trusted (no /proc, too many entries, numbers beyond a lowered limit) the whole range is closed at once.
void closefrom(int lowest) {
    const KeepErrno keep;
    const int first = std::max(lowest, 0);
    if (walkOpenDescriptors(first) == Walk::abandoned) {
        closeWholeRange(first);
    }
}

void leaveChild(int status) {
    std::fflush(stdout);
    std::fflush(stderr);
    ::_exit(status);
}

} // namespace quelm

// The few descriptors that a process normally has are found in /proc and closed one by one. Where that cannot
// be trusted (no /proc, too many entries, numbers beyond a lowered limit) the whole range is closed at once.
#include "lib/process/lib/CloseFrom.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include <dirent.h>
#include <unistd.h>

namespace quelm {

namespace {

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

// A table can have a thousand million slots, so counting down through it is left to kernels and system call
// filters that do not let us close a range.
void closeWholeRange(int lowest) {
    if (::close_range(static_cast<unsigned>(lowest), UINT_MAX, 0) == 0) {
        return;
    }
    for (int number = ::getdtablesize(); number >= lowest; --number) {
        ::close(number);
    }
}

} // namespace

void closefrom(int lowest) {
    const int kept = errno;
    const int first = std::max(lowest, 0);
    if (walkOpenDescriptors(first) == Walk::abandoned) {
        closeWholeRange(first);
    }
    errno = kept;
}

} // namespace quelm

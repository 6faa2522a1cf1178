// A file that exists in memory only.
#pragma once

#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/Require.h"

namespace quelm::fuzz {

class MemoryFile {
public:
    MemoryFile() : descriptor_(::memfd_create("input", MFD_CLOEXEC)) {
        require(descriptor_ >= 0, "a file in memory can be made");
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile() { ::close(descriptor_); }

    // Replaces the content.
    void fill(std::string_view text) {
        require(::ftruncate(descriptor_, 0) == 0, "a file in memory can be emptied");
        const ssize_t written = ::pwrite(descriptor_, text.data(), text.size(), 0);
        require(written == static_cast<ssize_t>(text.size()), "a file in memory can be written");
    }

    // Good for this process, while the object lives.
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

} // namespace quelm::fuzz

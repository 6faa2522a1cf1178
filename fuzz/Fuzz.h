// What every fuzz target needs: its one function, claims about the code under test, and inputs in other
// forms.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace quelm::fuzz {

// Ends the process by a signal when the claim does not hold.
inline void require(bool holds, const std::string& claim) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n", claim.c_str());
        std::abort();
    }
}

// `data` may be null when there are no bytes.
inline std::string textOf(const std::uint8_t* data, std::size_t size) {
    return size == 0 ? std::string() : std::string(reinterpret_cast<const char*>(data), size);
}

// Each newline ends a line, also at the end of the text.
inline std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, length));
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return lines;
}

// A file that exists in memory only.
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

    // For this process, while the object lives.
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

} // namespace quelm::fuzz

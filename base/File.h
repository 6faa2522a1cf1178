// Descriptors and files: the owner of a descriptor, and files that are read and written as a whole.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include <sys/types.h>

#include "base/ByteBuffer.h"

namespace quelm {

// The move-only owner of one descriptor; -1 stands for "none". Closing preserves errno.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : descriptor_(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept : descriptor_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    ~UniqueFd() { close(); }

    int get() const { return descriptor_; }
    bool isOpen() const { return descriptor_ != -1; }

    // Gives up the ownership without closing.
    int release() { return std::exchange(descriptor_, -1); }

    // Closes now; does nothing when there is none.
    void close();

private:
    int descriptor_ = -1;
};

// Opens the file with `flags` of open(2); a missing one that is to be created gets the process's default
// mode. Does not wait for the other end of a FIFO and never makes a terminal the controlling one; children do
// not inherit the descriptor. Waits while another process holds a lease on the file. On failure the result is
// not open and errno has the reason.
UniqueFd openWithoutHanging(const std::string& path, int flags);

// read(2), repeated when a signal interrupts it.
ssize_t readSome(int descriptor, char* bytes, std::size_t count);

enum class ReadEnd { endOfFile, failed, noMemory };

// Appends everything up to the end of file and leaves room for one more byte. After a failed read errno has
// the reason, and the buffer has what was read before.
ReadEnd readToEnd(int descriptor, ByteBuffer& buffer);

// Writes all bytes, going on after interrupts and partial writes. Returns how many were written: fewer than
// all of them after a failure, with the reason in errno.
std::size_t writeAll(int descriptor, std::string_view bytes);

// The NUL-terminated text of a file. Empty when the file is missing, no regular file, or cannot be opened or
// read to its end; unless it is missing, the reason is logged at error level. Preserves errno when logging.
// Throws std::bad_alloc.
ByteBuffer readTextFile(const std::string& path);

// Overwrites the file in place with the text. A failure to open, write or close it is logged at error level.
void writeTextFile(const std::string& path, std::string_view text);

} // namespace quelm

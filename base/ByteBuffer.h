// A growing block of bytes on the C heap: for code that must not throw when memory runs out, and for texts
// that C callers release with free.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace quelm {

struct FreeBlock {
    void operator()(void* block) const { std::free(block); }
};
// A NUL-terminated text that malloc made.
using CText = std::unique_ptr<char, FreeBlock>;

class ByteBuffer {
public:
    ByteBuffer() = default;
    ByteBuffer(ByteBuffer&& other) noexcept;

    // Grows the capacity to at least `capacity` bytes. False when memory runs out; the buffer is then
    // unchanged. Invalidates pointers into the buffer.
    bool reserve(std::size_t capacity);

    // Null until the first reserve.
    char* data() { return block_.get(); }
    const char* data() const { return block_.get(); }
    std::size_t size() const { return size_; }
    std::size_t capacity() const { return capacity_; }

    // The free space behind the content: its start and its size. extend() adds bytes that were written there.
    char* end() { return block_.get() + size_; }
    std::size_t room() const { return capacity_ - size_; }
    void extend(std::size_t count) { size_ += count; }

    // Writes a NUL byte behind the content, which needs one byte of room.
    void terminate() { *end() = '\0'; }

    // Releases the block to the caller; null when nothing was ever reserved. The buffer is empty afterwards.
    CText release();

private:
    CText block_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

} // namespace quelm

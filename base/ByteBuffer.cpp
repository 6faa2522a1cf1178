#include "base/ByteBuffer.h"

#include <utility>

namespace quelm {

ByteBuffer::ByteBuffer(ByteBuffer&& other) noexcept
    : block_(std::move(other.block_)), size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

bool ByteBuffer::reserve(std::size_t capacity) {
    if (capacity <= capacity_) {
        return true;
    }
    void* const grown = std::realloc(block_.get(), capacity);
    if (grown == nullptr) {
        return false;
    }
    (void)block_.release();
    block_.reset(static_cast<char*>(grown));
    capacity_ = capacity;
    return true;
}

CText ByteBuffer::release() {
    size_ = 0;
    capacity_ = 0;
    return std::move(block_);
}

} // namespace quelm

// The handlers of a registry file's text.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "registry/PhpHandler.h"

namespace quelm {

// One element of "php". The strings end with their first NUL byte and lie in the text that was read. The size
// of the decoded display name and the type are left to whoever checks the handlers.
struct HandlerObject {
    const char* id = "";
    const char* displayname = "";
    const char* path = "";
    const char* clipath = "";
    const char* version = "";
    const char* phpini = "";
    const char* service = "";
    const char* poold = "";
    const char* typeName = "";
    std::size_t nameSize = 0; // a decoded name may hold NUL bytes
    PhpHandlerType type = PhpHandlerType::module;
    bool system = false;
};

// Grows with realloc: the system then moves the pages of a large array where a vector would fill new ones.
class HandlerArray {
public:
    HandlerArray() = default;

    // Room for so many, at least one. Throws std::bad_alloc.
    explicit HandlerArray(std::size_t capacity) { grow(capacity); }

    HandlerArray(HandlerArray&& other) noexcept
        : block_(std::move(other.block_)), size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    HandlerArray& operator=(HandlerArray&& other) noexcept {
        block_ = std::move(other.block_);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
        return *this;
    }

    std::size_t size() const { return size_; }
    std::size_t capacity() const { return capacity_; }
    HandlerObject* begin() { return block_.get(); }
    HandlerObject* end() { return block_.get() + size_; }
    const HandlerObject* begin() const { return block_.get(); }
    const HandlerObject* end() const { return block_.get() + size_; }
    const HandlerObject& operator[](std::size_t position) const { return block_.get()[position]; }
    HandlerObject& back() { return block_.get()[size_ - 1]; }

    // Doubles the room when it is used up. Throws std::bad_alloc, the array then being as it was.
    void append() {
        if (size_ == capacity_) {
            grow(std::max<std::size_t>(2 * capacity_, 1));
        }
        new (end()) HandlerObject;
        ++size_;
    }

    // Drops what is behind the first `count`.
    void shrink(std::size_t count) { size_ = count; }

private:
    static_assert(std::is_trivially_copyable_v<HandlerObject>);

    struct Free {
        void operator()(HandlerObject* block) const { std::free(block); }
    };

    void grow(std::size_t capacity) {
        void* const larger = std::realloc(block_.get(), capacity * sizeof(HandlerObject));
        if (larger == nullptr) {
            throw std::bad_alloc();
        }
        (void)block_.release();
        block_.reset(static_cast<HandlerObject*>(larger));
        capacity_ = capacity;
    }

    std::unique_ptr<HandlerObject, Free> block_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

} // namespace quelm

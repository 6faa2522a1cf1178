#include "lib/process/lib/ArgVector.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace quelm {

// Both constructors delegate first: the object then counts as built, and a failing add runs the destructor.
ArgVector::ArgVector(std::initializer_list<std::string> arguments) : ArgVector() {
    for (const auto& argument : arguments) {
        add(argument);
    }
}

ArgVector::ArgVector(const ArgVector& other) : ArgVector() {
    for (std::size_t i = 0; i + 1 < other.pointers_.size(); ++i) {
        append(other.pointers_[i]);
    }
}

ArgVector& ArgVector::operator=(const ArgVector& other) {
    ArgVector copy(other);
    pointers_.swap(copy.pointers_);
    return *this;
}

ArgVector::~ArgVector() {
    for (char* pointer : pointers_) {
        std::free(pointer);
    }
}

void ArgVector::append(const char* argument) {
    std::unique_ptr<char, decltype(&std::free)> copy(::strdup(argument), &std::free);
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    // cppcheck-suppress danglingLifetime ; the release below is not seen
    pointers_.insert(pointers_.end() - 1, copy.get());
    (void)copy.release();
}

} // namespace quelm

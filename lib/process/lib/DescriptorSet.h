// A set for select(2) that is as wide as the descriptors at hand. An fd_set ends at 1024 descriptors, and a
// caller may have more of them open than that.
#pragma once

#include <climits>
#include <cstddef>
#include <vector>

#include <sys/select.h>

namespace quelm {

class DescriptorSet {
public:
    // Room for the descriptors 0 to width - 1. Throws std::bad_alloc.
    explicit DescriptorSet(int width) : words_((static_cast<std::size_t>(width) + bits - 1) / bits) {}

    void clear() { words_.assign(words_.size(), 0); }
    void add(int descriptor) { word(descriptor) |= mask(descriptor); }
    bool has(int descriptor) const {
        return (words_[static_cast<std::size_t>(descriptor) / bits] & mask(descriptor)) != 0;
    }

    // For select, with this set's width as its first argument.
    fd_set* data() { return reinterpret_cast<fd_set*>(words_.data()); }

private:
    using Word = unsigned long;
    static constexpr std::size_t bits = sizeof(Word) * CHAR_BIT;

    static Word mask(int descriptor) { return Word{1} << (static_cast<std::size_t>(descriptor) % bits); }
    Word& word(int descriptor) { return words_[static_cast<std::size_t>(descriptor) / bits]; }

    std::vector<Word> words_;
};

} // namespace quelm

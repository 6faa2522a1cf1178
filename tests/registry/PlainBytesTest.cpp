#include "registry/PlainBytes.h"

#include <cstddef>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace quelm {

namespace {

// Where the search stops in a block of exactly this size, so that a look behind it is seen.
std::size_t stopIn(const std::string& text) {
    const auto block = std::make_unique<char[]>(text.size());
    text.copy(block.get(), text.size());
    return static_cast<std::size_t>(findNotPlain(block.get(), block.get() + text.size()) - block.get());
}

} // namespace

TEST(PlainBytes, AreAllFromTheBlankUpButTheQuoteAndTheBackslash) {
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(isPlain(static_cast<char>(byte)), byte >= 0x20 && byte != 0x22 && byte != 0x5c) << byte;
    }
}

TEST(FindNotPlain, EveryByteAtEveryPlace) {
    for (std::size_t length = 1; length <= 50; ++length) {
        for (std::size_t place = 0; place < length; ++place) {
            for (int byte = 0; byte < 256; ++byte) {
                std::string text(length, 'x');
                text[place] = static_cast<char>(byte);
                ASSERT_EQ(stopIn(text), isPlain(static_cast<char>(byte)) ? length : place)
                    << "byte " << byte << " at " << place << " of " << length;
            }
        }
    }
}

TEST(FindNotPlain, TheFirstOfSeveral) {
    for (std::size_t first = 0; first < 40; ++first) {
        for (std::size_t second = first + 1; second < 41; ++second) {
            std::string text(41, 'x');
            text[first] = '\\';
            text[second] = '"';
            ASSERT_EQ(stopIn(text), first) << second;
        }
    }
}

TEST(FindNotPlain, NothingToLookAt) {
    EXPECT_EQ(stopIn(""), 0u);
}

} // namespace quelm

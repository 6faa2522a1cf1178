#include "registry/RegistryWriter.h"

#include <memory>

#include <gtest/gtest.h>

#include "registry/PlainBytes.h"

namespace quelm {

namespace {

std::string jsonString(std::string_view value) {
    std::string output = "before";
    appendJsonString(output, value);
    EXPECT_EQ(output.substr(0, 6), "before");
    return output.substr(6);
}

std::string inQuotes(const std::string& text) {
    return '"' + text + '"';
}

// A block of exactly the text's size, so that a look behind it is seen.
std::unique_ptr<char[]> blockOf(const std::string& text) {
    auto block = std::make_unique<char[]>(text.size());
    text.copy(block.get(), text.size());
    return block;
}

} // namespace

TEST(JsonString, EveryByteEscapedOrCopied) {
    for (int byte = 1; byte < 256; ++byte) {
        char form[7];
        std::snprintf(form, sizeof form, "\\u%04X", static_cast<unsigned>(byte));
        const char c = static_cast<char>(byte);
        const std::string expected = c == '\b'               ? "\\b"
                                     : c == '\t'             ? "\\t"
                                     : c == '\n'             ? "\\n"
                                     : c == '\f'             ? "\\f"
                                     : c == '\r'             ? "\\r"
                                     : c == '"' || c == '\\' ? std::string{'\\', c}
                                     : byte < 0x20           ? form
                                                             : std::string(1, c);
        for (std::size_t length = 1; length <= 40; ++length) {
            for (const std::size_t place : {std::size_t{0}, length / 2, length - 1}) {
                const std::string front(place, 'x');
                const std::string back(length - place - 1, 'y');
                ASSERT_EQ(jsonString(front + c + back), inQuotes(front + expected + back)) << byte;
            }
        }
    }
    EXPECT_EQ(jsonString("\x01\x1f"), "\"\\u0001\\u001F\"");
}

TEST(JsonString, EmptyAndMissingValues) {
    EXPECT_EQ(jsonString(""), "\"\"");
    EXPECT_EQ(jsonString(std::string_view()), "null");
}

TEST(JsonString, TheValueEndsAtItsFirstNulByte) {
    using namespace std::string_view_literals;
    EXPECT_EQ(jsonString("a\0b"sv), "\"a\"");
    EXPECT_EQ(jsonString("\0"sv), "\"\"");
    EXPECT_EQ(jsonString("sixteen bytes or\0more"sv), "\"sixteen bytes or\"");
    EXPECT_EQ(jsonString("a" + std::string(1, '\0') + std::string(5000, 'x')), "\"a\"");
}

// The limit counts escaped bytes, the quotes not among them.
TEST(JsonString, UpTo4087BytesAreWritten) {
    std::string tabs(2043, '\t');
    std::string escapedTabs;
    for (int i = 0; i < 2043; ++i) {
        escapedTabs += "\\t";
    }
    const std::string x(4081, 'x');
    for (const auto& [value, form] : {std::pair{std::string(4087, 'x'), std::string(4087, 'x')},
                                      {tabs + "x", escapedTabs + "x"},
                                      {"x" + tabs, "x" + escapedTabs},
                                      {x + "\x01", x + "\\u0001"},
                                      {x + "xxxx\"", x + "xxxx\\\""}}) {
        EXPECT_EQ(jsonString(value), inQuotes(form));
        EXPECT_EQ(jsonString(value + "x"), "null");
        EXPECT_EQ(jsonString("x" + value), "null");
    }
    for (const std::string& value : {tabs + "\t", x + "x\x01", x + "xxxxx\x01", x + "xxxxxx\x01",
                                     x + "xxxxx\"", std::string(100000, 'x')}) {
        EXPECT_EQ(jsonString(value), "null");
    }
}

TEST(PlainBytes, AreAllFromTheBlankUpButTheQuoteAndTheBackslash) {
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(isPlain(static_cast<char>(byte)), byte >= 0x20 && byte != 0x22 && byte != 0x5c) << byte;
    }
}

TEST(PlainBytes, AreCountedUpToEveryByteAtEveryPlace) {
    for (std::size_t length = 0; length <= 50; ++length) {
        for (std::size_t place = 0; place < length; ++place) {
            for (const int byte : {0, 0x1f, 0x20, 0x21, 0x22, 0x23, 0x5b, 0x5c, 0x5d, 0x7f, 0x80, 0xff}) {
                std::string text(length, 'x');
                text[place] = static_cast<char>(byte);
                const auto block = blockOf(text);
                const bool plain = isPlain(static_cast<char>(byte));
                ASSERT_EQ(countPlain({block.get(), length}), plain ? length : place)
                    << byte << " of " << length;
                ASSERT_EQ(isAllPlain({block.get(), length}), plain) << byte << " at " << place;
            }
        }
    }
    EXPECT_TRUE(isAllPlain(""));
}

TEST(PlainBytes, TheFirstOfSeveralEndsTheCount) {
    for (std::size_t first = 0; first < 40; ++first) {
        std::string text(41, 'x');
        text.back() = '"';
        text[first] = '\\';
        EXPECT_EQ(countPlain(text), first);
    }
}

} // namespace quelm

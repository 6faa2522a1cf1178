#include "registry/JsonString.h"

#include <memory>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace quelm {

namespace {

// Of the size that is asked for, so that a byte more is seen.
std::string jsonString(std::string_view value) {
    const auto room = std::make_unique<char[]>(jsonStringRoom);
    const char* const end = writeJsonString(room.get(), value);
    return std::string(static_cast<const char*>(room.get()), end);
}

std::string inQuotes(const std::string& text) {
    return '"' + text + '"';
}

} // namespace

TEST(JsonString, ControlBytesAreEscaped) {
    const char* const forms[] = {"\\u0001", "\\u0002", "\\u0003", "\\u0004", "\\u0005", "\\u0006", "\\u0007",
                                 "\\b",     "\\t",     "\\n",     "\\u000B", "\\f",     "\\r",     "\\u000E",
                                 "\\u000F", "\\u0010", "\\u0011", "\\u0012", "\\u0013", "\\u0014", "\\u0015",
                                 "\\u0016", "\\u0017", "\\u0018", "\\u0019", "\\u001A", "\\u001B", "\\u001C",
                                 "\\u001D", "\\u001E", "\\u001F"};
    for (int byte = 1; byte < 0x20; ++byte) {
        EXPECT_EQ(jsonString(std::string(1, static_cast<char>(byte))), inQuotes(forms[byte - 1]));
    }
}

TEST(JsonString, QuoteAndBackslashGetABackslash) {
    EXPECT_EQ(jsonString("\""), "\"\\\"\"");
    EXPECT_EQ(jsonString("\\"), "\"\\\\\"");
    EXPECT_EQ(jsonString("a\\\"b"), "\"a\\\\\\\"b\"");
}

TEST(JsonString, OtherBytesAreCopied) {
    for (int byte = 0x20; byte < 256; ++byte) {
        if (byte != '"' && byte != '\\') {
            const std::string text(2, static_cast<char>(byte));
            EXPECT_EQ(jsonString(text), inQuotes(text));
        }
    }
    EXPECT_EQ(jsonString("/\x7f\xc3\xa9\xff"), "\"/\x7f\xc3\xa9\xff\"");
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

TEST(JsonString, UpTo4087BytesAreWritten) {
    for (const std::size_t length : {4086U, 4087U}) {
        const std::string text(length, 'x');
        EXPECT_EQ(jsonString(text), inQuotes(text));
    }
    EXPECT_EQ(jsonString(std::string(4088, 'x')), "null");
    EXPECT_EQ(jsonString(std::string(100000, 'x')), "null");
}

TEST(JsonString, TheLimitCountsEscapedBytes) {
    const std::string tabs(2043, '\t');
    std::string escapedTabs;
    for (int i = 0; i < 2043; ++i) {
        escapedTabs += "\\t";
    }
    EXPECT_EQ(jsonString(tabs), inQuotes(escapedTabs));
    EXPECT_EQ(jsonString(tabs + "x"), inQuotes(escapedTabs + "x"));
    EXPECT_EQ(jsonString("x" + tabs), inQuotes("x" + escapedTabs));
    EXPECT_EQ(jsonString(tabs + "\t"), "null");
    EXPECT_EQ(jsonString(tabs + "xy"), "null");
    EXPECT_EQ(jsonString("xy" + tabs), "null");
}

TEST(JsonString, AControlByteAtTheLimit) {
    const std::string front(4081, 'x');
    EXPECT_EQ(jsonString(front + "\x01"), inQuotes(front + "\\u0001"));
    EXPECT_EQ(jsonString(front + "x\x01"), "null");
    EXPECT_EQ(jsonString(front + "xxxxx\x01"), "null");
    EXPECT_EQ(jsonString(front + "xxxxxx\x01"), "null");
    EXPECT_EQ(jsonString(front + "xxxx\""), inQuotes(front + "xxxx\\\""));
    EXPECT_EQ(jsonString(front + "xxxxx\""), "null");
}

TEST(JsonString, EveryByteAnywhereInAValue) {
    for (std::size_t length = 1; length <= 40; ++length) {
        for (std::size_t place = 0; place < length; ++place) {
            const std::string front(place, 'x');
            const std::string back(length - place - 1, 'y');
            EXPECT_EQ(jsonString(front + "\"" + back), inQuotes(front + "\\\"" + back));
            EXPECT_EQ(jsonString(front + "\x1f" + back), inQuotes(front + "\\u001F" + back));
            EXPECT_EQ(jsonString(front + "\xff" + back), inQuotes(front + "\xff" + back));
        }
    }
}

} // namespace quelm

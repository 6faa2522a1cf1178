#include "registry/JsonString.h"

#include <gtest/gtest.h>

namespace quelm {

namespace {

std::string jsonString(const std::string& value) {
    std::string output = "before";
    appendJsonString(output, value.c_str());
    EXPECT_EQ(output.substr(0, 6), "before");
    return output.substr(6);
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
        EXPECT_EQ(jsonString({static_cast<char>(byte)}), inQuotes(forms[byte - 1]));
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
    std::string output = "x";
    appendJsonString(output, nullptr);
    EXPECT_EQ(output, "xnull");
}

TEST(JsonString, TheValueEndsAtItsFirstNulByte) {
    EXPECT_EQ(jsonString(std::string("a\0b", 3)), "\"a\"");
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

TEST(JsonString, AnAbandonedValueLeavesNothingBehind) {
    std::string output = "[";
    appendJsonString(output, std::string(5000, '\n').c_str());
    output += ',';
    appendJsonString(output, "next");
    EXPECT_EQ(output, "[null,\"next\"");
}

} // namespace quelm

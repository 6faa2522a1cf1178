#include "registry/JsonReader.h"

#include <string>

#include <gtest/gtest.h>

namespace quelm {

namespace {

using Next = JsonReader::Next;

std::string readOneString(std::string text) {
    JsonReader reader(text.data(), text.size());
    std::string_view value;
    EXPECT_TRUE(reader.readString(value)) << text;
    EXPECT_EQ(*(value.data() + value.size()), '\0');
    return std::string(value);
}

// Drops the value and tells how much of "VALUE|" is left.
std::string leftAfterDropping(std::string text) {
    JsonReader reader(text.data(), text.size());
    EXPECT_TRUE(reader.skipValue()) << text;
    reader.fail(JsonErrorCode::valueExpected);
    return text.substr(reader.error().offset);
}

} // namespace

TEST(JsonReaderString, EveryPlainByteStandsForItself) {
    for (int byte = 0x20; byte < 256; ++byte) {
        if (byte != '"' && byte != '\\') {
            const std::string plain(3, static_cast<char>(byte));
            EXPECT_EQ(readOneString('"' + plain + '"'), plain);
        }
    }
}

TEST(JsonReaderString, EveryControlByteIsRefused) {
    for (int byte = 1; byte < 0x20; ++byte) {
        for (const std::string front : {"\"ab", "\"\\\\b"}) {
            std::string text = front + static_cast<char>(byte) + '"';
            JsonReader reader(text.data(), text.size());
            std::string_view value;
            EXPECT_FALSE(reader.readString(value));
            EXPECT_EQ(reader.error().code, JsonErrorCode::controlCharacter);
            EXPECT_EQ(reader.error().offset, front.size());
            EXPECT_EQ(reader.error().character, byte);
        }
    }
}

TEST(JsonReaderString, EveryByteBehindABackslash) {
    const std::string accepted = "\"\\/bfnrt";
    for (int byte = 1; byte < 256; ++byte) {
        std::string text = std::string("\"a\\") + static_cast<char>(byte) + "z\"";
        JsonReader reader(text.data(), text.size());
        std::string_view value;
        if (accepted.find(static_cast<char>(byte)) != std::string::npos) {
            EXPECT_TRUE(reader.readString(value)) << byte;
            continue;
        }
        EXPECT_FALSE(reader.readString(value)) << byte;
        EXPECT_EQ(reader.error().code,
                  byte == 'u' ? JsonErrorCode::unicodeEscape : JsonErrorCode::escapeSequence);
        EXPECT_EQ(reader.error().offset, 3U);
        EXPECT_EQ(reader.error().character, byte);
    }
}

TEST(JsonReaderString, EscapesAreDecoded) {
    EXPECT_EQ(readOneString(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(readOneString(R"("a\nbc\td")"), "a\nbc\td");
    EXPECT_EQ(readOneString(R"("\\\\")"), "\\\\");
    EXPECT_EQ(readOneString(R"("")"), "");
}

TEST(JsonReaderString, UnicodeNulEndsTheValueButNotTheString) {
    EXPECT_EQ(readOneString(R"("a\u0000b\n")"), "a");
    EXPECT_EQ(readOneString(R"("\u0000")"), "");
    EXPECT_EQ(readOneString(R"("\n\u00000")"), "\n");
}

TEST(JsonReaderString, OffsetsStayThoseOfTheOriginalText) {
    std::string text = R"({"a\n\n\n\n":"\t\t\t\t","b":"\"\"x)";
    JsonReader reader(text.data(), text.size());
    std::string_view value;
    ASSERT_EQ(reader.openObject(value), Next::item);
    EXPECT_EQ(value, "a\n\n\n\n");
    ASSERT_TRUE(reader.readString(value));
    EXPECT_EQ(value, "\t\t\t\t");
    ASSERT_EQ(reader.nextMember(value), Next::item);
    EXPECT_FALSE(reader.readString(value));
    EXPECT_EQ(reader.error().code, JsonErrorCode::documentEnded);
    EXPECT_EQ(reader.error().offset, text.size());
}

TEST(JsonReaderBoolean, ExactlyTwoWords) {
    std::string text = " true false";
    JsonReader reader(text.data(), text.size());
    bool value = false;
    EXPECT_TRUE(reader.readBoolean(value));
    EXPECT_TRUE(value);
    EXPECT_TRUE(reader.readBoolean(value));
    EXPECT_FALSE(value);
    EXPECT_FALSE(reader.readBoolean(value));
    EXPECT_EQ(reader.error().code, JsonErrorCode::booleanExpected);
}

TEST(JsonReaderSpace, ExactlySixBytesAreSpace) {
    for (int byte = 1; byte < 256; ++byte) {
        std::string text = std::string(1, static_cast<char>(byte)) + "{}";
        JsonReader reader(text.data(), text.size());
        std::string_view name;
        const bool space = std::string(" \t\n\v\f\r").find(static_cast<char>(byte)) != std::string::npos;
        if (byte != '{') {
            EXPECT_EQ(reader.openObject(name), space ? Next::end : Next::failed) << byte;
        }
    }
}

TEST(JsonReaderDropped, EveryKindOfValueEndsWhereItEnds) {
    for (const std::string value : {"1",
                                    "-1",
                                    "0",
                                    "007",
                                    "1.5",
                                    "1.50",
                                    "-0.0e0",
                                    "1e5",
                                    "1E+5",
                                    "2e-05",
                                    "true",
                                    "false",
                                    "null",
                                    R"("")",
                                    R"("a\"]}")",
                                    "[]",
                                    "[ ]",
                                    "{}",
                                    "{ }",
                                    "[1,2]",
                                    R"({"a":1})",
                                    R"({"a":[{}],"b":{"c":[]}})",
                                    R"([[],[[]],{"a":{}}])",
                                    R"([ "a" , { "b" : null } ])"}) {
        EXPECT_EQ(leftAfterDropping(value + "|"), "|") << value;
        EXPECT_EQ(leftAfterDropping(" \n" + value + " |"), " |") << value;
    }
}

TEST(JsonReaderDropped, AMillionOpenBracketsAreNoRecursion) {
    constexpr std::size_t depth = 1000000;
    EXPECT_EQ(leftAfterDropping(std::string(depth, '[') + std::string(depth, ']') + "|"), "|");

    std::string open(depth, '[');
    JsonReader reader(open.data(), open.size());
    EXPECT_FALSE(reader.skipValue());
    EXPECT_EQ(reader.error().code, JsonErrorCode::documentEnded);
    EXPECT_EQ(reader.error().offset, depth);
}

TEST(JsonReaderDropped, AMillionObjectsAreNoRecursion) {
    constexpr std::size_t depth = 1000000;
    std::string text;
    for (std::size_t level = 0; level < depth; ++level) {
        text += R"({"":)";
    }
    EXPECT_EQ(leftAfterDropping(text + "[]" + std::string(depth, '}') + "|"), "|");
    text += ']';
    JsonReader reader(text.data(), text.size());
    EXPECT_FALSE(reader.skipValue());
    EXPECT_EQ(reader.error().code, JsonErrorCode::valueExpected);
    EXPECT_EQ(reader.error().offset, 4 * depth);
}

TEST(JsonReaderDropped, BracketsMustMatchAtEveryDepth) {
    std::string text = R"([{"a":[{"b":[1}]})";
    JsonReader reader(text.data(), text.size());
    EXPECT_FALSE(reader.skipValue());
    EXPECT_EQ(reader.error().code, JsonErrorCode::arraySeparator);
    EXPECT_EQ(reader.error().offset, 14U);
    EXPECT_EQ(reader.error().character, '}');
}

} // namespace quelm

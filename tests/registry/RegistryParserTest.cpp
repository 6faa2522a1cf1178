// The parser on documents that are made rather than written; those that are written are in documents/.
#include "registry/RegistryParser.h"

#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Faults.h"

namespace quelm {

namespace {

const std::string record =
    R"({"id":"a","path":"p","version":"v","displayname":"d","phpini":"i","type":"cgi"})";

std::string documentOf(std::size_t count) {
    std::string text = R"({"php":[)";
    for (std::size_t i = 0; i < count; ++i) {
        text += (i == 0 ? "" : ",\n") + record;
    }
    return text + "]}";
}

// What a document is refused for; code `none` when it is accepted. The text is written to while it is read.
JsonError errorOf(std::string text) {
    RegistryParser parser(text.data(), text.size());
    const bool accepted = parser.parse();
    EXPECT_EQ(accepted, parser.error().code == JsonErrorCode::none);
    return parser.error();
}

// The document with this string as a handler's id.
std::string withId(const std::string& inQuotes) {
    return R"({"php":[{"id":")" + inQuotes + "\"," + record.substr(10) + "]}";
}

std::string idOf(std::string text) {
    RegistryParser parser(text.data(), text.size());
    EXPECT_TRUE(parser.parse()) << text;
    return std::string(parser.handlers().at(0).id);
}

constexpr std::size_t idOffset = 15; // of withId

} // namespace

TEST(RegistryParser, AnyMemberMayFollowAnyOther) {
    const std::vector<std::string> names{"id",          "path", "clipath", "phpini",  "version",
                                         "displayname", "type", "system",  "service", "poold"};
    for (std::size_t first = 0; first < names.size(); ++first) {
        for (std::size_t second = 0; second < names.size(); ++second) {
            std::vector<std::string> order = names;
            std::swap(order[0], order[first]);
            std::swap(order[1], order[second]);
            std::string text;
            for (const std::string& name : order) {
                text += (text.empty() ? "" : ",") + ('"' + name + "\":") +
                        (name == "system" ? "true" : '"' + name + '"');
            }
            text = R"({"php":[{)" + text + "}]}";
            RegistryParser parser(text.data(), text.size());
            ASSERT_TRUE(parser.parse()) << text;
            const HandlerView& handler = parser.handlers().at(0);
            EXPECT_EQ((std::vector<std::string_view>{handler.id, handler.path, handler.clipath,
                                                     handler.phpini, handler.version, handler.displayname,
                                                     handler.type, handler.system ? "system" : "",
                                                     handler.service, handler.poold}),
                      std::vector<std::string_view>(names.begin(), names.end()));
        }
    }
}

TEST(RegistryParser, EveryByteInAString) {
    for (int byte = 1; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        for (const std::string& front : {std::string("ab"), std::string("\\\\b"), std::string(40, 'x')}) {
            const JsonError error = errorOf(withId(front + c + "z"));
            if (byte < 0x20) {
                EXPECT_EQ(error.code, JsonErrorCode::controlCharacter) << byte;
                EXPECT_EQ(error.offset, idOffset + front.size());
                EXPECT_EQ(error.character, byte);
            } else if (c != '"' && c != '\\') {
                EXPECT_EQ(error.code, JsonErrorCode::none) << byte;
                EXPECT_EQ(idOf(withId(std::string(3, c))), std::string(3, c));
            }
        }
    }
}

TEST(RegistryParser, EveryByteBehindABackslash) {
    const std::string letters = "\"\\/bfnrt";
    const std::string meanings = "\"\\/\b\f\n\r\t";
    for (int byte = 1; byte < 256; ++byte) {
        const std::size_t letter = letters.find(static_cast<char>(byte));
        const std::string text = withId(std::string("a\\") + static_cast<char>(byte) + "z");
        if (letter != std::string::npos) {
            EXPECT_EQ(idOf(text), std::string("a") + meanings[letter] + "z");
            continue;
        }
        const JsonError error = errorOf(text);
        EXPECT_EQ(error.code, byte == 'u' ? JsonErrorCode::unicodeEscape : JsonErrorCode::escapeSequence)
            << byte;
        EXPECT_EQ(error.offset, idOffset + 2);
        EXPECT_EQ(error.character, byte);
    }
}

TEST(RegistryParser, ExactlySixBytesAreSpace) {
    for (int byte = 1; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const bool space = std::string(" \t\n\v\f\r").find(c) != std::string::npos;
        if (c != '{') {
            EXPECT_EQ(errorOf(c + documentOf(1)).code,
                      space ? JsonErrorCode::none : JsonErrorCode::objectExpected);
        }
    }
}

TEST(RegistryParser, CutAnywhereADocumentIsRefusedThere) {
    const std::string text = R"({"other":{"a":[1.5e+3,-2,null,true,false,"x\u0000\n"]},"php":[)" + record +
                             R"(, {"system":true,"service":"s","poold":"\t\"",)" + record.substr(1) + "]\n}";
    for (std::size_t length = 0; length < text.size(); ++length) {
        const JsonError error = errorOf(text.substr(0, length));
        EXPECT_NE(error.code, JsonErrorCode::none) << length;
        EXPECT_LE(error.offset, length);
    }
    EXPECT_EQ(errorOf(text).code, JsonErrorCode::none);
}

TEST(RegistryParser, AnyByteAnywhereIsAcceptedOrRefused) {
    const std::string text = R"({"x":[{"y":-1.0E5},"\n"],"php":[)" + record + "]}";
    for (std::size_t position = 0; position < text.size(); ++position) {
        for (int byte = 0; byte < 256; ++byte) {
            std::string changed = text;
            changed[position] = static_cast<char>(byte);
            EXPECT_LE(errorOf(changed).offset, text.size());
        }
    }
}

TEST(RegistryParser, OffsetsStayThoseOfTheOriginalText) {
    const JsonError error = errorOf(R"({"a\n\n\n\n":"\t\t\t\t","b":"\"\"x)");
    EXPECT_EQ(error.code, JsonErrorCode::documentEnded);
    EXPECT_EQ(error.offset, 34U);
}

TEST(RegistryParser, AMillionLevelsAreNoRecursion) {
    constexpr std::size_t depth = 1000000;
    const std::string open(depth, '[');
    const std::string deep = open + std::string(depth, ']');
    EXPECT_EQ(errorOf("{\"x\":" + deep + ",\"php\":[{\"y\":" + deep + "," + record.substr(1) + "]}").code,
              JsonErrorCode::none);
    EXPECT_EQ(errorOf("{\"x\":" + open).offset, 5 + depth);
    std::string objects;
    for (std::size_t level = 0; level < depth; ++level) {
        objects += R"({"":)";
    }
    EXPECT_EQ(errorOf("{\"x\":" + objects + "[]" + std::string(depth, '}') + ",\"php\":[]}").code,
              JsonErrorCode::none);
}

// The first allocations make the parser; from some later one on, each is a handler's that finds no room.
TEST(RegistryParser, MissingMemoryForAHandlerIsCode20) {
    const std::string text = documentOf(100);
    int refused = 0;
    for (int granted = 0; granted < 100; ++granted) {
        std::string copy = text;
        const test::LimitedNew memory(granted);
        try {
            RegistryParser parser(copy.data(), copy.size());
            if (!parser.parse()) {
                ++refused;
                EXPECT_EQ(parser.error().code, JsonErrorCode::outOfMemory);
                EXPECT_EQ(parser.error().character, '{');
                EXPECT_EQ((parser.error().offset - 8) % (record.size() + 2), 0U);
            }
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(refused, 0);
        }
    }
    EXPECT_GT(refused, 20);
}

} // namespace quelm

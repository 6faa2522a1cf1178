#include "registry/RegistryWriter.h"

#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "registry/PhpHandler.h"
#include "registry/PlainBytes.h"
#include "tests/registry/TestRegistry.h"

namespace quelm {

namespace {

using test::fpmHandler;
using test::handlerWithId;
using test::registryOf;

constexpr bool listing = false;
constexpr bool storage = true;

std::string written(const HandlerRegistry& registry, bool forStorage) {
    std::ostringstream stream;
    writeRegistryJson(registry, stream, forStorage);
    return stream.str();
}

const std::string minimalMembers = "\t\"path\":\"p\",\n\t\"clipath\":\"c\",\n\t\"phpini\":\"i\",\n"
                                   "\t\"version\":\"v\",\n\t\"displayname\":\"d\",\n\t\"type\":\"cgi\",\n"
                                   "\t\"system\":false\n}";

// Counts what the document is written in.
class Pieces : public std::stringbuf {
public:
    int count = 0;

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize size) override {
        ++count;
        return std::stringbuf::xsputn(bytes, size);
    }
};

TEST(RegistryWriter, AnEmptyRegistry) {
    EXPECT_EQ(written({}, listing), "{\"php\":[\n]}\n");
    EXPECT_EQ(written({}, storage), "{\"php\":[\n]}\n");
}

TEST(RegistryWriter, AnFpmHandlerInBothForms) {
    const auto expected = [](const std::string& name) {
        return "{\"php\":[\n{\n\t\"id\":\"php81\",\n\t\"path\":\"/usr/bin/php-cgi8.1\",\n"
               "\t\"clipath\":\"/usr/bin/php8.1\",\n\t\"phpini\":\"/etc/php/8.1/fpm/php.ini\",\n"
               "\t\"version\":\"8.1.2\",\n\t\"displayname\":\"" +
               name +
               "\",\n\t\"type\":\"fpm\",\n\t\"system\":true,\n\t\"service\":\"php8.1-fpm\",\n"
               "\t\"poold\":\"/etc/php/8.1/fpm/pool.d\"\n}\n]}\n";
    };
    EXPECT_EQ(written(registryOf({fpmHandler()}), listing), expected("PHP 8.1.2 (8.1.2)"));
    EXPECT_EQ(written(registryOf({fpmHandler()}), storage), expected("PHP%20%24version%20%28%24version%29"));
}

TEST(RegistryWriter, RecordsAreSeparatedByABareComma) {
    EXPECT_EQ(written(registryOf({handlerWithId("a"), handlerWithId("b")}), listing),
              "{\"php\":[\n{\n\t\"id\":\"a\",\n" + minimalMembers + ",\n{\n\t\"id\":\"b\",\n" +
                  minimalMembers + "\n]}\n");
}

TEST(RegistryWriter, OnlyFpmHasServiceAndPoolAndKeepsEmptyOnes) {
    for (const char* type : {"module", "cgi", "fastcgi"}) {
        PhpHandler handler = fpmHandler();
        handler.type = parseHandlerType(type);
        EXPECT_NE(written(registryOf({handler}), listing)
                      .find(std::string("\t\"type\":\"") + type + "\",\n\t\"system\":true\n}\n]}\n"),
                  std::string::npos);
    }
    PhpHandler handler = handlerWithId("a");
    handler.type = PhpHandlerType::fpm;
    EXPECT_NE(written(registryOf({handler}), storage)
                  .find("\t\"system\":false,\n\t\"service\":\"\",\n\t\"poold\":\"\"\n}\n]}\n"),
              std::string::npos);
}

TEST(RegistryWriter, ValuesAreEscapedAndOverlongOnesNull) {
    PhpHandler handler = handlerWithId("a\"\t");
    handler.path = std::string(4088, 'p');
    handler.version = std::string("8\0.1", 4);
    EXPECT_EQ(
        written(registryOf({handler}), listing),
        "{\"php\":[\n{\n\t\"id\":\"a\\\"\\t\",\n\t\"path\":null,\n\t\"clipath\":\"c\",\n\t\"phpini\":\"i\",\n"
        "\t\"version\":\"8\",\n\t\"displayname\":\"d\",\n\t\"type\":\"cgi\",\n\t\"system\":false\n}\n]}\n");
}

// The limit counts percent-encoded bytes when the display name goes into the file.
TEST(RegistryWriter, ADisplayNameOf1363NonAsciiBytesIsNullInStorage) {
    PhpHandler handler = handlerWithId("a");
    handler.displayname = std::string(1362, '\xe9');
    EXPECT_EQ(written(registryOf({handler}), storage).find("null"), std::string::npos);
    handler.displayname += '\xe9';
    EXPECT_NE(written(registryOf({handler}), storage).find("\"displayname\":null,"), std::string::npos);
    EXPECT_EQ(written(registryOf({handler}), listing).find("null"), std::string::npos);
}

TEST(RegistryWriter, AnUnknownTypeThrowsBeforeAnythingIsWritten) {
    PhpHandler handler = handlerWithId("b");
    handler.type = static_cast<PhpHandlerType>(5);
    std::ostringstream stream;
    EXPECT_THROW(writeRegistryJson(registryOf({handlerWithId("a"), handler}), stream, storage),
                 std::runtime_error);
    EXPECT_EQ(stream.str(), "");
}

TEST(RegistryWriter, AUsualDocumentIsOnePieceAndALongOneAFew) {
    HandlerRegistry registry;
    std::string expected = "{\"php\":[";
    const auto write = [&] {
        Pieces pieces;
        std::ostream stream(&pieces);
        writeRegistryJson(registry, stream, storage);
        EXPECT_TRUE(pieces.str() == expected + "\n]}\n");
        return pieces.count;
    };
    for (int number = 0; number < 2000; ++number) {
        const std::string id = std::to_string(number);
        registry.append(handlerWithId(id));
        expected += (number == 0 ? "\n{\n\t\"id\":\"" : ",\n{\n\t\"id\":\"") + id + "\",\n" + minimalMembers;
        if (number == 400) {
            EXPECT_EQ(write(), 1);
        }
    }
    EXPECT_EQ(write(), 4);
}

TEST(RegistryWriter, AFailedStreamIsNoExceptionAndItsSettingsDoNotMatter) {
    std::ostringstream stream;
    stream.width(100);
    stream.fill('*');
    writeRegistryJson(HandlerRegistry(), stream, listing);
    EXPECT_EQ(stream.str(), "{\"php\":[\n]}\n");
    stream.setstate(std::ios::badbit);
    EXPECT_NO_THROW(writeRegistryJson(registryOf({handlerWithId("a")}), stream, listing));
    EXPECT_EQ(stream.str(), "{\"php\":[\n]}\n");
}

std::string table(const HandlerRegistry& registry) {
    std::ostringstream stream;
    writeHandlerTable(registry, stream);
    return stream.str();
}

const std::string titleRow =
    "id:  display name:  version:  type:  cgi-bin:  cli-bin:  php.ini:  system:  service:  pool.d:\n";

// Nothing is stripped: the empty cells at the end of a row are blanks.
TEST(HandlerTable, ShortValuesAreRightAlignedBelowTheTitles) {
    EXPECT_EQ(table({}), titleRow);
    EXPECT_EQ(table(registryOf({handlerWithId("a")})),
              titleRow + "  a              d         v    cgi         p         c         i" +
                  std::string(28, ' ') + "\n");
}

TEST(HandlerTable, WidthsCountTheExpandedName) {
    PhpHandler handler = handlerWithId("a");
    handler.displayname = "$version$version";
    handler.version = "7";
    EXPECT_EQ(table(registryOf({handler})).find(titleRow), 0U);
    handler.version = "8.1.2-long";
    handler.service = "a-long-service"; // shown for every type
    EXPECT_NE(table(registryOf({handler})).find("  a-long-service         \n"), std::string::npos);
    EXPECT_NE(table(registryOf({handler})).find("  8.1.2-long8.1.2-long  8.1.2-long  "), std::string::npos);
}

// Bytes count, not letters, and none has a meaning.
TEST(HandlerTable, AnyBytesArePrintedRaw) {
    PhpHandler odd = handlerWithId("%1%");
    odd.displayname = std::string("a\0b\t%", 5);
    odd.version = "\"x\"\xff";
    odd.path = "caf\xc3\xa9 \xe2\x82\xac";
    odd.clipath = "%1$5s%|2$n|";
    odd.phpini = "line\nbreak";
    odd.poold = std::string(70000, 'w');
    EXPECT_TRUE(
        table(registryOf({odd, handlerWithId("%%")})) ==
        "id:  display name:  version:  type:   cgi-bin:     cli-bin:    php.ini:  system:  service:  " +
            std::string(69993, ' ') + "pool.d:\n%1%          " + odd.displayname +
            "      \"x\"\xff    cgi  caf\xc3\xa9 \xe2\x82\xac  %1$5s%|2$n|  line\nbreak" +
            std::string(21, ' ') + odd.poold +
            "\n %%              d         v    cgi          p            c           i" +
            std::string(70021, ' ') + "\n");
}

TEST(HandlerTable, AnUnknownTypeThrowsBeforeAnythingIsWrittenAndAFailedStreamDoesNot) {
    PhpHandler handler = handlerWithId("b");
    handler.type = static_cast<PhpHandlerType>(5);
    std::ostringstream stream;
    EXPECT_THROW(writeHandlerTable(registryOf({handlerWithId("a"), handler}), stream), std::runtime_error);
    EXPECT_EQ(stream.str(), "");
    stream.setstate(std::ios::badbit);
    EXPECT_NO_THROW(writeHandlerTable(registryOf({handlerWithId("a")}), stream));
}

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

TEST(JsonString, AMissingValueIsNullAndAnyOtherEndsAtItsFirstNulByte) {
    using namespace std::string_view_literals;
    EXPECT_EQ(jsonString(std::string_view()), "null");
    for (const auto& [value, form] : {std::pair{""sv, "\"\""},
                                      {"a\0b"sv, "\"a\""},
                                      {"\0"sv, "\"\""},
                                      {"sixteen bytes or\0more"sv, "\"sixteen bytes or\""}}) {
        EXPECT_EQ(jsonString(value), form);
    }
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
    EXPECT_EQ(countPlain(std::string(20, 'x') + "\\xx\""), 20U); // the first of several ends it
}

} // namespace

} // namespace quelm

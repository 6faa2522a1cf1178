#include "registry/RegistryWriter.h"

#include <sstream>

#include <gtest/gtest.h>

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

} // namespace

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

} // namespace quelm

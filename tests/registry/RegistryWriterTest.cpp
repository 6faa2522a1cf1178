#include "registry/RegistryWriter.h"

#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "registry/RegistryFile.h"
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

} // namespace

TEST(RegistryWriter, AnEmptyRegistry) {
    EXPECT_EQ(written({}, listing), "{\"php\":[\n]}\n");
    EXPECT_EQ(written({}, storage), "{\"php\":[\n]}\n");
}

TEST(RegistryWriter, AnFpmHandlerForListing) {
    EXPECT_EQ(written(registryOf({fpmHandler()}), listing),
              "{\"php\":[\n{\n\t\"id\":\"php81\",\n\t\"path\":\"/usr/bin/php-cgi8.1\",\n"
              "\t\"clipath\":\"/usr/bin/php8.1\",\n\t\"phpini\":\"/etc/php/8.1/fpm/php.ini\",\n"
              "\t\"version\":\"8.1.2\",\n\t\"displayname\":\"PHP 8.1.2 (8.1.2)\",\n\t\"type\":\"fpm\",\n"
              "\t\"system\":true,\n\t\"service\":\"php8.1-fpm\",\n"
              "\t\"poold\":\"/etc/php/8.1/fpm/pool.d\"\n}\n]}\n");
}

TEST(RegistryWriter, RecordsAreSeparatedByABareComma) {
    EXPECT_EQ(written(registryOf({handlerWithId("a"), handlerWithId("b")}), listing),
              "{\"php\":[\n{\n\t\"id\":\"a\",\n" + minimalMembers + ",\n{\n\t\"id\":\"b\",\n" +
                  minimalMembers + "\n]}\n");
}

TEST(RegistryWriter, FpmKeepsEmptyServiceAndPool) {
    PhpHandler handler = handlerWithId("a");
    handler.type = PhpHandlerType::fpm;
    EXPECT_EQ(written(registryOf({handler}), storage),
              "{\"php\":[\n{\n\t\"id\":\"a\",\n\t\"path\":\"p\",\n\t\"clipath\":\"c\",\n\t\"phpini\":\"i\",\n"
              "\t\"version\":\"v\",\n\t\"displayname\":\"d\",\n\t\"type\":\"fpm\",\n\t\"system\":false,\n"
              "\t\"service\":\"\",\n\t\"poold\":\"\"\n}\n]}\n");
}

TEST(RegistryWriter, OtherTypesHaveNoServiceAndPool) {
    for (const PhpHandlerType type : {PhpHandlerType::module, PhpHandlerType::cgi, PhpHandlerType::fastcgi}) {
        PhpHandler handler = fpmHandler();
        handler.type = type;
        const std::string text = written(registryOf({handler}), listing);
        EXPECT_EQ(text.find("service"), std::string::npos);
        EXPECT_EQ(text.find("poold"), std::string::npos);
        EXPECT_NE(text.find("\"system\":true\n}"), std::string::npos);
    }
}

TEST(RegistryWriter, OnlyTheDisplayNameDiffersForStorage) {
    const HandlerRegistry registry = registryOf({fpmHandler()});
    std::string text = written(registry, listing);
    const std::string expanded = "\"PHP 8.1.2 (8.1.2)\"";
    text.replace(text.find(expanded), expanded.size(), "\"PHP%20%24version%20%28%24version%29\"");
    EXPECT_EQ(written(registry, storage), text);
}

TEST(RegistryWriter, ValuesAreEscapedAndOverlongOnesNull) {
    PhpHandler handler = handlerWithId("a\"\t");
    handler.path = std::string(4088, 'p');
    handler.version = std::string("8\0.1", 4);
    const std::string text = written(registryOf({handler}), listing);
    const std::string front =
        "{\"php\":[\n{\n\t\"id\":\"a\\\"\\t\",\n\t\"path\":null,\n\t\"clipath\":\"c\",\n";
    EXPECT_EQ(text.substr(0, front.size()), front);
    EXPECT_NE(text.find("\t\"version\":\"8\",\n"), std::string::npos);
}

// The limit counts percent-encoded bytes when the display name goes into the file.
TEST(RegistryWriter, DisplayNameOf1363NonAsciiBytesIsNullInStorage) {
    PhpHandler handler = handlerWithId("a");
    handler.displayname = std::string(1362, '\xe9');
    EXPECT_EQ(written(registryOf({handler}), storage).find("null"), std::string::npos);
    handler.displayname += '\xe9';
    EXPECT_NE(written(registryOf({handler}), storage).find("\"displayname\":null,"), std::string::npos);
    EXPECT_EQ(written(registryOf({handler}), listing).find("null"), std::string::npos);
}

TEST(RegistryWriter, AnUnknownTypeThrows) {
    PhpHandler handler = handlerWithId("b");
    handler.type = static_cast<PhpHandlerType>(5);
    const HandlerRegistry registry = registryOf({handlerWithId("a"), handler});
    std::ostringstream stream;
    EXPECT_THROW(registryJson(registry), std::runtime_error);
    EXPECT_THROW(writeRegistryJson(registry, stream, storage), std::runtime_error);
    EXPECT_THROW(writeRegistryJson(registry, stream, listing), std::runtime_error);
}

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

TEST(RegistryWriter, ALongDocumentIsWrittenInPiecesAndComplete) {
    HandlerRegistry registry;
    for (int number = 0; number < 2000; ++number) {
        registry.append(handlerWithId(std::to_string(number)));
    }
    Pieces pieces;
    std::ostream stream(&pieces);
    writeRegistryJson(registry, stream, storage);
    EXPECT_GT(pieces.count, 2);
    EXPECT_LT(pieces.count, 20);
    EXPECT_TRUE(pieces.str() == registryJson(registry));
}

// The longest handler there can be, begun with every fill of a piece that small ones before it can make.
TEST(RegistryWriter, EightValuesOfTheLongestFormHaveRoomWhereverAPieceEnds) {
    const std::string_view forms[] = {"x", "\n", "\x01", "xxxxx\x01"};
    for (const std::string_view form : forms) {
        std::string longest;
        while (longest.size() < 5000) {
            longest += form;
        }
        for (const std::size_t size : {4080UL, 4087UL, 4088UL, 2043UL, 2044UL, 681UL, 682UL, 5000UL}) {
            const std::string value = longest.substr(0, size);
            PhpHandler handler = fpmHandler();
            for (std::string* text : {&handler.id, &handler.displayname, &handler.path, &handler.clipath,
                                      &handler.version, &handler.phpini, &handler.service, &handler.poold}) {
                *text = value;
            }
            HandlerRegistry registry;
            for (std::size_t fill = 0; fill < 64; ++fill) {
                PhpHandler small = handlerWithId(std::string(900 + 17 * fill, 'y'));
                registry.append(small);
            }
            registry.append(handler);
            registry.append(handler);
            registry.append(handlerWithId("last"));
            ASSERT_TRUE(written(registry, storage) == registryJson(registry));
            const std::string json = written(registry, listing);
            ASSERT_TRUE(json.ends_with("\n\t\"system\":false\n}\n]}\n"));
        }
    }
}

TEST(RegistryWriter, AFewLongHandlersAreOnePiece) {
    PhpHandler handler = handlerWithId("a");
    handler.path = handler.phpini = std::string(4000, 'x');
    HandlerRegistry registry = registryOf({handler, handler});
    registry[1].id = "b";
    const test::ScratchDirectory directory;
    save(registry, directory / "f");
    Pieces pieces;
    std::ostream stream(&pieces);
    writeRegistryJson(RegistrySnapshot(directory / "f"), stream);
    EXPECT_EQ(pieces.count, 1);
}

TEST(RegistryWriter, AFailedStreamIsNoException) {
    std::ostringstream stream;
    stream.setstate(std::ios::badbit);
    EXPECT_NO_THROW(writeRegistryJson(registryOf({handlerWithId("a")}), stream, listing));
    EXPECT_EQ(stream.str(), "");
}

TEST(RegistryWriter, StreamSettingsDoNotMatter) {
    std::ostringstream stream;
    stream.width(100);
    stream.fill('*');
    writeRegistryJson({}, stream, listing);
    EXPECT_EQ(stream.str(), "{\"php\":[\n]}\n");
}

} // namespace quelm

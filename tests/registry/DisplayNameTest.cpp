#include "registry/DisplayName.h"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <stdexcept>

#include <curl/curl.h>
#include <sys/mman.h>

#include <gtest/gtest.h>

#include "cli/QuelmUtilException.h"
#include "registry/RegistryFile.h"
#include "tests/registry/TestRegistry.h"
#include "tests/support/InChild.h"

namespace quelm {

namespace {

PhpHandler named(const std::string& displayname, const std::string& version = "") {
    PhpHandler handler;
    handler.displayname = displayname;
    handler.version = version;
    return handler;
}

std::string unescaped(std::string text) {
    return std::string(unescapeDisplayName(text));
}

bool memoryIsOut = false;

void* givenMemory(std::size_t size) {
    return memoryIsOut ? nullptr : std::malloc(size);
}
void* movedMemory(void* block, std::size_t size) {
    return memoryIsOut ? nullptr : std::realloc(block, size);
}
char* copiedText(const char* text) {
    return memoryIsOut ? nullptr : ::strdup(text);
}
void* clearedMemory(std::size_t count, std::size_t size) {
    return memoryIsOut ? nullptr : std::calloc(count, size);
}

// Prints what `convert` throws when libcurl, which is told its allocator once per process, gets no memory.
std::string failureWithoutMemory(const std::function<void()>& convert) {
    return test::inChild([&] {
               ::curl_global_init_mem(CURL_GLOBAL_NOTHING, givenMemory, std::free, movedMemory, copiedText,
                                      clearedMemory);
               memoryIsOut = true;
               try {
                   convert();
               } catch (const std::runtime_error& failure) {
                   std::cout << failure.what();
               }
           })
        .output;
}

} // namespace

TEST(ExpandedDisplayName, EveryPlaceholderIsReplaced) {
    EXPECT_EQ(expandedDisplayName(named("PHP $version ($version)", "8.2.1")), "PHP 8.2.1 (8.2.1)");
    EXPECT_EQ(expandedDisplayName(named("$version$version", "7.4")), "7.47.4");
    EXPECT_EQ(expandedDisplayName(named("$version", "7.4")), "7.4");
}

TEST(ExpandedDisplayName, InsertedTextIsNotSearchedAgain) {
    EXPECT_EQ(expandedDisplayName(named("$version", "$version")), "$version");
    EXPECT_EQ(expandedDisplayName(named("$ver$versionsion", "")), "$version");
    EXPECT_EQ(expandedDisplayName(named("$$versionversion", "$")), "$$version");
}

TEST(ExpandedDisplayName, TheRestIsLeftAsItIs) {
    EXPECT_EQ(expandedDisplayName(named("", "8")), "");
    EXPECT_EQ(expandedDisplayName(named("PHP", "8")), "PHP");
    EXPECT_EQ(expandedDisplayName(named("$Version $versio version $", "8")), "$Version $versio version $");
    EXPECT_EQ(expandedDisplayName(named("$versions", "8")), "8s");
}

TEST(ExpandedDisplayName, AnEmptyVersionLeavesNothing) {
    EXPECT_EQ(expandedDisplayName(named("$version")), "");
    EXPECT_EQ(expandedDisplayName(named("PHP $version!")), "PHP !");
}

TEST(ExpandedDisplayName, TheRecordIsUnchanged) {
    const PhpHandler handler = named("$version", "8");
    EXPECT_EQ(expandedDisplayName(handler), "8");
    EXPECT_EQ(handler.displayname, "$version");
}

TEST(EscapedDisplayName, OnlyUnreservedBytesStay) {
    EXPECT_EQ(escapedDisplayName(named("PHP 8.1 (custom)")), "PHP%208.1%20%28custom%29");
    EXPECT_EQ(escapedDisplayName(named("PHP $version ($version)", "8")),
              "PHP%20%24version%20%28%24version%29");
    EXPECT_EQ(escapedDisplayName(named("azAZ09-._~")), "azAZ09-._~");
    EXPECT_EQ(escapedDisplayName(named("caf\xc3\xa9\xff\x7f\x01+%/")), "caf%C3%A9%FF%7F%01%2B%25%2F");
    EXPECT_EQ(escapedDisplayName(named("")), "");
}

TEST(EscapedDisplayName, ANulByteIsEncodedLikeAnyOther) {
    EXPECT_EQ(escapedDisplayName(named(std::string("a\0b", 3))), "a%00b");
    EXPECT_EQ(escapedDisplayName(named(std::string("\0", 1))), "%00");
}

TEST(UnescapedDisplayName, EncodedBytesAreDecoded) {
    EXPECT_EQ(unescaped("PHP%208.1%20%28custom%29"), "PHP 8.1 (custom)");
    EXPECT_EQ(unescaped("%c3%A9"), "\xc3\xa9");
    EXPECT_EQ(unescaped("a%00b"), std::string("a\0b", 3));
    EXPECT_EQ(unescaped(""), "");
}

TEST(UnescapedDisplayName, WhatIsNoEncodingStays) {
    EXPECT_EQ(unescaped("%zz"), "%zz");
    EXPECT_EQ(unescaped("100%"), "100%");
    EXPECT_EQ(unescaped("%2"), "%2");
    EXPECT_EQ(unescaped("a+b c"), "a+b c");
}

TEST(EscapedDisplayName, EveryByteSurvivesTheRoundTrip) {
    std::string name;
    for (int byte = 0; byte < 256; ++byte) {
        name += static_cast<char>(byte);
    }
    EXPECT_EQ(unescaped(escapedDisplayName(named(name))), name);
}

TEST(EscapedDisplayName, WithoutMemoryThereIsNoConversion) {
    EXPECT_EQ(failureWithoutMemory([] { escapedDisplayName(named("PHP 8")); }),
              "Unable to convert display name");
    EXPECT_EQ(failureWithoutMemory([] { unescaped("PHP%208"); }), "Unable to convert display name");
}

TEST(UnescapedDisplayName, TheDecodedNameTakesThePlaceOfTheEncodedOne) {
    std::string text = "a%20b, and more";
    const std::string_view name = unescapeDisplayName({text.data(), 5});
    EXPECT_EQ(name, "a b");
    EXPECT_EQ(name.data(), text.data());
    EXPECT_EQ(text.substr(5), ", and more");
}

TEST(UnescapedDisplayName, ANameThatCannotBeDecodedStays) {
    const std::string told = test::inChild([] {
                                 ::curl_global_init_mem(CURL_GLOBAL_NOTHING, givenMemory, std::free,
                                                        movedMemory, copiedText, clearedMemory);
                                 memoryIsOut = true;
                                 std::string text = "a%20b";
                                 try {
                                     unescapeDisplayName(text);
                                 } catch (const std::runtime_error&) {
                                     std::cout << text;
                                 }
                             }).output;
    EXPECT_EQ(told, "a%20b");
}

TEST(UnescapedDisplayName, ThatCannotBeDecodedIsToldBeforeAConflict) {
    const auto ended = test::inChild([] {
        const test::ScratchDirectory directory;
        const std::string path = directory / "registry.json";
        const std::string front =
            R"({"id":"a","path":"p","version":"v","phpini":"i","type":"cgi","displayname":)";
        test::writeFile(path, R"({"php":[)" + front + R"("d"},)" + front + R"("PHP%208"}]})");
        ::curl_global_init_mem(CURL_GLOBAL_NOTHING, givenMemory, std::free, movedMemory, copiedText,
                               clearedMemory);
        memoryIsOut = true;
        const test::CaughtErrors warnings;
        HandlerRegistry registry;
        try {
            load(registry, path);
        } catch (const QuelmUtilException& failure) {
            std::cout << warnings.text()
                      << std::string_view(failure.what()).substr(("Error reading " + path).size());
        }
    });
    EXPECT_EQ(ended.output, ": Unable to convert display name");
}

// The pages behind the first are never touched, so this costs no memory.
TEST(UnescapedDisplayName, MoreBytesThanLibcurlCanCountAreRefused) {
    constexpr std::size_t size = std::size_t{1} << 31;
    void* const block =
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(block, MAP_FAILED);
    *static_cast<char*>(block) = '%';
    std::string message;
    try {
        unescapeDisplayName({static_cast<char*>(block), size});
    } catch (const std::runtime_error& failure) {
        message = failure.what();
    }
    EXPECT_EQ(message, "Display name is too long");
    ::munmap(block, size);
}

} // namespace quelm

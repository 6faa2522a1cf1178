#include "registry/PhpHandler.h"

#include <stdexcept>

#include <sys/mman.h>

#include <gtest/gtest.h>

#include "base/QuelmUtilException.h"
#include "registry/RegistryFile.h"
#include "tests/registry/TestRegistry.h"
#include "tests/support/Faults.h"
#include "tests/support/TempDir.h"

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

TEST(EscapedDisplayName, ThatLibcurlCannotMakeIsAnError) {
    const test::FailedCall failing(test::Call::curl_easy_escape, 0);
    try {
        escapedDisplayName(named("PHP 8"));
        ADD_FAILURE();
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "Unable to convert display name");
    }
}

TEST(UnescapedDisplayName, TheDecodedNameTakesThePlaceOfTheEncodedOne) {
    std::string text = "a%20b, and more";
    const std::string_view name = unescapeDisplayName({text.data(), 5});
    EXPECT_EQ(name, "a b");
    EXPECT_EQ(name.data(), text.data());
    EXPECT_EQ(text.substr(5), ", and more");
}

TEST(UnescapedDisplayName, ANameThatLibcurlCannotDecodeStays) {
    const test::FailedCall failing(test::Call::curl_easy_unescape, 0);
    std::string text = "a%20b";
    try {
        unescapeDisplayName(text);
        ADD_FAILURE();
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "Unable to convert display name");
    }
    EXPECT_EQ(text, "a%20b");
}

TEST(UnescapedDisplayName, ThatCannotBeDecodedIsReportedBeforeAConflict) {
    const test::TempDir directory;
    const std::string front =
        R"({"id":"a","path":"p","version":"v","phpini":"i","type":"cgi","displayname":)";
    const std::string path =
        directory.write("registry.json", R"({"php":[)" + front + R"("d"},)" + front + R"("PHP%208"}]})");
    const test::FailedCall failing(test::Call::curl_easy_unescape, 0);
    const test::CaughtErrors warnings;
    HandlerRegistry registry;
    try {
        load(registry, path);
        ADD_FAILURE();
    } catch (const QuelmUtilException& failure) {
        EXPECT_EQ(failure.what(), "Error reading " + path + ": Unable to convert display name");
    }
    EXPECT_EQ(warnings.text(), "");
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

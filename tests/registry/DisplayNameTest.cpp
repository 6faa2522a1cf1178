#include "registry/DisplayName.h"

#include <gtest/gtest.h>

namespace quelm {

namespace {

PhpHandler named(const std::string& displayname, const std::string& version = "") {
    PhpHandler handler;
    handler.displayname = displayname;
    handler.version = version;
    return handler;
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
    EXPECT_EQ(unescapedDisplayName("PHP%208.1%20%28custom%29"), "PHP 8.1 (custom)");
    EXPECT_EQ(unescapedDisplayName("%c3%A9"), "\xc3\xa9");
    EXPECT_EQ(unescapedDisplayName("a%00b"), std::string("a\0b", 3));
    EXPECT_EQ(unescapedDisplayName(""), "");
}

TEST(UnescapedDisplayName, WhatIsNoEncodingStays) {
    EXPECT_EQ(unescapedDisplayName("%zz"), "%zz");
    EXPECT_EQ(unescapedDisplayName("100%"), "100%");
    EXPECT_EQ(unescapedDisplayName("%2"), "%2");
    EXPECT_EQ(unescapedDisplayName("a+b c"), "a+b c");
}

TEST(EscapedDisplayName, EveryByteSurvivesTheRoundTrip) {
    std::string name;
    for (int byte = 0; byte < 256; ++byte) {
        name += static_cast<char>(byte);
    }
    EXPECT_EQ(unescapedDisplayName(escapedDisplayName(named(name))), name);
}

} // namespace quelm

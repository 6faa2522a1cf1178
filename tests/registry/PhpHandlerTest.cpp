#include "registry/PhpHandler.h"

#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>

#include <sys/mman.h>

#include <gtest/gtest.h>

#include "base/QuelmUtilException.h"
#include "registry/RegistryFile.h"
#include "tests/registry/TestRegistry.h"
#include "tests/support/Faults.h"
#include "tests/support/TempDir.h"

namespace quelm {

namespace {

PhpHandler custom() {
    PhpHandler handler;
    handler.displayname = "PHP $version";
    handler.path = "/usr/bin/php-cgi";
    handler.phpini = "/etc/php.ini";
    handler.type = PhpHandlerType::fastcgi;
    return handler;
}

// printf '%s' 'PHP $version /usr/bin/php-cgi /etc/php.ini fastcgi' | sha1sum
constexpr const char* customId = "133814bc6ef8a5181825187a283560cc4d6106ef";

} // namespace

TEST(PhpHandlerType, WordsParseToTheirValuesAndBack) {
    EXPECT_EQ(sizeof(PhpHandlerType), 4U);
    for (const auto& [word, value] : {std::pair{"module", 0U}, {"cgi", 1U}, {"fastcgi", 2U}, {"fpm", 3U}}) {
        EXPECT_EQ(static_cast<std::uint32_t>(parseHandlerType(word)), value);
        PhpHandler handler;
        handler.type = static_cast<PhpHandlerType>(value);
        EXPECT_EQ(formatHandlerType(handler), word);
        EXPECT_EQ(isClassicTypeName(word), value < 3);
    }
}

TEST(PhpHandlerType, OtherWordsAreRefusedWithTheTextAsGiven) {
    for (const std::string& text :
         {std::string(), std::string("CGI"), std::string("FastCGI"), std::string(" fpm"), std::string("fpm "),
          std::string("cg"), std::string("cgii"), std::string("%s"), std::string("cgi\0", 4)}) {
        EXPECT_FALSE(isClassicTypeName(text));
        try {
            parseHandlerType(text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const QuelmUtilException& failure) {
            EXPECT_STREQ(failure.what(), ("Unknown php handler type : " + text).c_str());
        }
    }
}

TEST(PhpHandlerType, AValueOutOfRangeIsAPlainRuntimeErrorInDecimal) {
    PhpHandler handler;
    for (const auto& [value, text] : {std::pair{4U, "Unknown php handler type : 4"},
                                      {4294967295U, "Unknown php handler type : 4294967295"}}) {
        handler.type = static_cast<PhpHandlerType>(value);
        try {
            formatHandlerType(handler);
            ADD_FAILURE() << "formatted: " << value;
        } catch (const std::runtime_error& failure) {
            EXPECT_STREQ(failure.what(), text);
            EXPECT_EQ(typeid(failure), typeid(std::runtime_error));
        }
    }
}

TEST(PhpHandler, ANewRecordIsEmpty) {
    const PhpHandler handler;
    EXPECT_EQ(handler.id + handler.displayname + handler.path + handler.clipath + handler.version +
                  handler.phpini + handler.service + handler.poold,
              "");
    EXPECT_EQ(handler.type, PhpHandlerType::module);
    EXPECT_FALSE(handler.system);
}

TEST(HandlerId, IsTheDigestOfNamePathIniAndTypeAndStoredInTheHandler) {
    PhpHandler handler = custom();
    handler.id = "before";
    handler.version = "8.2";
    handler.clipath = "/usr/bin/php";
    handler.service = "s";
    handler.poold = "o";
    handler.system = true;
    EXPECT_EQ(computeHandlerId(handler), customId);
    EXPECT_EQ(handler.id, customId);
    PhpHandler empty;
    // printf '   module' | sha1sum
    EXPECT_EQ(computeHandlerId(empty), "e0a6f95b505e88978c3d69d6191e0071affe2465");
}

TEST(HandlerId, EachCountedFieldCounts) {
    PhpHandler name = custom();
    name.displayname += "x";
    PhpHandler path = custom();
    path.path += "x";
    PhpHandler ini = custom();
    ini.phpini += "x";
    PhpHandler type = custom();
    type.type = PhpHandlerType::fpm;
    for (PhpHandler* handler : {&name, &path, &ini, &type}) {
        EXPECT_NE(computeHandlerId(*handler), customId);
        EXPECT_EQ(handler->id.size(), 40U);
    }
}

TEST(HandlerId, AnUnknownTypeThrowsAndLeavesTheIdAlone) {
    PhpHandler handler = custom();
    handler.id = "before";
    handler.type = static_cast<PhpHandlerType>(9);
    EXPECT_THROW(computeHandlerId(handler), std::runtime_error);
    EXPECT_EQ(handler.id, "before");
}

TEST(HandlerId, AFailedDigestIsAnErrorAndLeavesTheIdAlone) {
    for (const test::Call call : {test::Call::SHA1_Init, test::Call::SHA1_Update, test::Call::SHA1_Final}) {
        const test::FailedCall failing(call, 0);
        PhpHandler handler;
        handler.id = "before";
        try {
            computeHandlerId(handler);
            ADD_FAILURE();
        } catch (const std::runtime_error& failure) {
            EXPECT_STREQ(failure.what(), "Unable to compute php handler id");
        }
        EXPECT_EQ(handler.id, "before");
    }
}

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

TEST(ExpandedDisplayName, EveryPlaceholderIsReplacedOnce) {
    for (const auto& [name, version, expanded] :
         {std::tuple{"PHP $version ($version)", "8.2.1", "PHP 8.2.1 (8.2.1)"},
          {"$version$version", "7.4", "7.47.4"},
          {"$version", "$version", "$version"},
          {"$ver$versionsion", "", "$version"},
          {"$$versionversion", "$", "$$version"},
          {"", "8", ""},
          {"$Version $versio version $", "8", "$Version $versio version $"},
          {"$versions", "8", "8s"},
          {"PHP $version!", "", "PHP !"}}) {
        const PhpHandler handler = named(name, version);
        EXPECT_EQ(expandedDisplayName(handler), expanded);
        EXPECT_EQ(handler.displayname, name);
    }
}

TEST(EscapedDisplayName, OnlyUnreservedBytesStay) {
    using namespace std::string_literals;
    for (const auto& [name, escaped] :
         {std::pair{"PHP $version ($version)"s, "PHP%20%24version%20%28%24version%29"},
          {"azAZ09-._~"s, "azAZ09-._~"},
          {"caf\xc3\xa9\xff\x7f\x01+%/"s, "caf%C3%A9%FF%7F%01%2B%25%2F"},
          {""s, ""},
          {"a\0b"s, "a%00b"},
          {"\0"s, "%00"}}) {
        EXPECT_EQ(escapedDisplayName(named(name)), escaped);
        EXPECT_EQ(unescaped(escaped), name);
    }
    EXPECT_EQ(unescaped("%c3%A9"), "\xc3\xa9");
    for (const char* text : {"%zz", "100%", "%2", "a+b c"}) {
        EXPECT_EQ(unescaped(text), text);
    }
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

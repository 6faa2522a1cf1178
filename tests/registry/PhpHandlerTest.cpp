#include "registry/PhpHandler.h"

#include <cstdlib>
#include <stdexcept>
#include <typeinfo>

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "base/QuelmUtilException.h"
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

TEST(PhpHandlerType, WordsParseToTheirValues) {
    EXPECT_EQ(static_cast<std::uint32_t>(parseHandlerType("module")), 0U);
    EXPECT_EQ(static_cast<std::uint32_t>(parseHandlerType("cgi")), 1U);
    EXPECT_EQ(static_cast<std::uint32_t>(parseHandlerType("fastcgi")), 2U);
    EXPECT_EQ(static_cast<std::uint32_t>(parseHandlerType("fpm")), 3U);
    EXPECT_EQ(sizeof(PhpHandlerType), 4U);
}

TEST(PhpHandlerType, OtherWordsAreRefusedWithTheTextAsGiven) {
    for (const std::string text : {"", "CGI", "FastCGI", " fpm", "fpm ", "cg", "cgii", "unknown", "%s"}) {
        try {
            parseHandlerType(text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const QuelmUtilException& failure) {
            EXPECT_EQ(failure.what(), "Unknown php handler type : " + text);
        }
    }
}

TEST(PhpHandlerType, AWordWithANulByteBehindItIsRefused) {
    EXPECT_THROW(parseHandlerType(std::string("cgi\0", 4)), QuelmUtilException);
}

TEST(PhpHandlerType, ValuesFormatToTheirWords) {
    PhpHandler handler;
    handler.type = PhpHandlerType::module;
    EXPECT_EQ(formatHandlerType(handler), "module");
    handler.type = PhpHandlerType::cgi;
    EXPECT_EQ(formatHandlerType(handler), "cgi");
    handler.type = PhpHandlerType::fastcgi;
    EXPECT_EQ(formatHandlerType(handler), "fastcgi");
    handler.type = PhpHandlerType::fpm;
    EXPECT_EQ(formatHandlerType(handler), "fpm");
}

TEST(PhpHandlerType, ValueOutOfRangeIsAPlainRuntimeErrorInDecimal) {
    PhpHandler handler;
    for (const auto& [value, text] :
         {std::pair{4U, "Unknown php handler type : 4"}, std::pair{7U, "Unknown php handler type : 7"},
          std::pair{4294967295U, "Unknown php handler type : 4294967295"}}) {
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

TEST(PhpHandlerType, ClassicNamesAreExactlyThree) {
    EXPECT_TRUE(isClassicTypeName("module"));
    EXPECT_TRUE(isClassicTypeName("cgi"));
    EXPECT_TRUE(isClassicTypeName("fastcgi"));
    EXPECT_FALSE(isClassicTypeName("fpm"));
    EXPECT_FALSE(isClassicTypeName(""));
    EXPECT_FALSE(isClassicTypeName("CGI"));
    EXPECT_FALSE(isClassicTypeName("cgi "));
    EXPECT_FALSE(isClassicTypeName("fastcg"));
}

TEST(PhpHandler, ANewRecordIsEmpty) {
    const PhpHandler handler;
    EXPECT_EQ(handler.id + handler.displayname + handler.path + handler.clipath + handler.version +
                  handler.phpini + handler.service + handler.poold,
              "");
    EXPECT_EQ(handler.type, PhpHandlerType::module);
    EXPECT_FALSE(handler.system);
}

TEST(HandlerId, IsTheDigestOfNamePathIniAndType) {
    PhpHandler handler = custom();
    EXPECT_EQ(computeHandlerId(handler), customId);
}

TEST(HandlerId, IsStoredInTheHandler) {
    PhpHandler handler = custom();
    handler.id = "before";
    computeHandlerId(handler);
    EXPECT_EQ(handler.id, customId);
}

// printf '   module' | sha1sum
TEST(HandlerId, EmptyFieldsKeepTheirBlanks) {
    PhpHandler handler;
    EXPECT_EQ(computeHandlerId(handler), "e0a6f95b505e88978c3d69d6191e0071affe2465");
}

TEST(HandlerId, OtherFieldsDoNotCount) {
    PhpHandler handler = custom();
    handler.version = "8.2";
    handler.clipath = "/usr/bin/php";
    handler.service = "s";
    handler.poold = "o";
    handler.system = true;
    EXPECT_EQ(computeHandlerId(handler), customId);
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

TEST(HandlerId, IsTheSameUnderAConfigurationThatAdmitsNoSha1) {
    const test::TempDir directory;
    const std::string configuration = directory.write("openssl.cnf", "openssl_conf = init\n"
                                                                     "[init]\n"
                                                                     "alg_section = algorithms\n"
                                                                     "[algorithms]\n"
                                                                     "default_properties = fips=yes\n");
    ASSERT_EQ(::setenv("OPENSSL_CONF", configuration.c_str(), 1), 0);
    PhpHandler handler = custom();
    EXPECT_EQ(computeHandlerId(handler), customId);

    // The configuration is in force: the ordinary digest fails in this process.
    unsigned char digest[EVP_MAX_MD_SIZE];
    EXPECT_NE(EVP_Digest("", 0, digest, nullptr, EVP_sha1(), nullptr), 1);
    EXPECT_EQ(computeHandlerId(handler), customId);
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

} // namespace quelm

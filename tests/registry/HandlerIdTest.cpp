#include "registry/HandlerId.h"

#include <cstdlib>
#include <stdexcept>

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "tests/registry/TestRegistry.h"

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
    const test::ScratchDirectory directory;
    test::writeFile(directory / "openssl.cnf", "openssl_conf = init\n"
                                               "[init]\n"
                                               "alg_section = algorithms\n"
                                               "[algorithms]\n"
                                               "default_properties = fips=yes\n");
    ASSERT_EQ(::setenv("OPENSSL_CONF", (directory / "openssl.cnf").c_str(), 1), 0);
    PhpHandler handler = custom();
    EXPECT_EQ(computeHandlerId(handler), customId);

    // The configuration is in force: the ordinary digest fails in this process.
    unsigned char digest[EVP_MAX_MD_SIZE];
    EXPECT_NE(EVP_Digest("", 0, digest, nullptr, EVP_sha1(), nullptr), 1);
    EXPECT_EQ(computeHandlerId(handler), customId);
}

} // namespace quelm

#include "registry/PhpHandler.h"

#include <typeinfo>

#include <gtest/gtest.h>

#include "cli/QuelmUtilException.h"

namespace quelm {

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

} // namespace quelm

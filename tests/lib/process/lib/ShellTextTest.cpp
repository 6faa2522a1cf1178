#include "lib/process/lib/ShellText.h"

#include <gtest/gtest.h>

#include "lib/process/lib/ArgVector.h"

namespace {

using quelm::ArgVector;
using quelm::shellText;

TEST(ShellText, JoinsWithSingleSpaces) {
    EXPECT_EQ(shellText(ArgVector{"/a/hook", "add", "x"}.get()), "/a/hook add x");
}

TEST(ShellText, NoArgumentsGiveNothing) {
    EXPECT_EQ(shellText(ArgVector().get()), "");
}

TEST(ShellText, AnEmptyArgumentIsTwoApostrophesAtEveryPlace) {
    EXPECT_EQ(shellText(ArgVector{"", "a", "", ""}.get()), "'' a '' ''");
}

TEST(ShellText, StopsAtTheNullPointer) {
    char first[] = "a";
    char behind[] = "b";
    EXPECT_EQ(shellText({first, nullptr, behind}), "a");
}

TEST(ShellText, ASpaceGetsABackslash) {
    EXPECT_EQ(shellText(ArgVector{"/etc/my hook", "add"}.get()), "/etc/my\\ hook add");
}

TEST(ShellText, EveryByteAsItsClassSays) {
    const std::string escaped =
        "\x09\x20\x22\x23\x24\x26\x27\x28\x29\x2a\x3b\x3c\x3e\x3f\x5b\x5c\x60\x7c\x7e";
    for (int value = 1; value < 256; ++value) {
        const std::string byte(1, static_cast<char>(value));
        std::string expected = byte;
        if (value == 0x0a) {
            expected = "'\n'";
        } else if (escaped.find(byte) != std::string::npos) {
            expected = "\\" + byte;
        }
        EXPECT_EQ(shellText(ArgVector{"x" + byte + "y"}.get()), "x" + expected + "y") << "byte " << value;
    }
}

TEST(ShellText, TheseStayBare) {
    EXPECT_EQ(shellText(ArgVector{"!{}]=%^,:\x80\xff\r\x01"}.get()), "!{}]=%^,:\x80\xff\r\x01");
}

} // namespace

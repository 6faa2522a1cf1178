#include "lib/process/lib/CmdLine.h"

#include <cerrno>
#include <new>

#include <gmock/gmock.h>

#include "tests/support/Faults.h"

namespace {

using quelm::ArgVector;
using testing::ElementsAre;
using testing::IsNull;
using testing::StrEq;

TEST(ArgVector, KeepsTheOrderAndEndsWithNull) {
    EXPECT_THAT(ArgVector().get(), ElementsAre(IsNull()));
    ArgVector arguments{"tool", ""};
    arguments.add("a b");
    EXPECT_THAT(arguments.get(), ElementsAre(StrEq("tool"), StrEq(""), StrEq("a b"), IsNull()));
    EXPECT_EQ(arguments.data(), arguments.get().data());
}

TEST(ArgVector, ACopyHasStringsOfItsOwn) {
    std::string text = "tool";
    const ArgVector original{text, "x"};
    text = "other";
    ArgVector copy(original);
    copy.add("y");
    EXPECT_NE(copy.get()[0], original.get()[0]);
    EXPECT_THAT(copy.get(), ElementsAre(StrEq("tool"), StrEq("x"), StrEq("y"), IsNull()));
    EXPECT_THAT(original.get(), ElementsAre(StrEq("tool"), StrEq("x"), IsNull()));
}

TEST(ArgVector, AssignmentReplacesAndSurvivesItself) {
    ArgVector arguments{"old"};
    arguments = ArgVector{"new", "x"};
    const ArgVector& same = arguments;
    arguments = same;
    EXPECT_THAT(arguments.get(), ElementsAre(StrEq("new"), StrEq("x"), IsNull()));
}

TEST(ArgVector, AnArgumentThatFindsNoMemoryChangesNothing) {
    ArgVector arguments{"tool"};
    const quelm::test::FailedCall failing(quelm::test::Call::strdup, ENOMEM);
    EXPECT_THROW(arguments.add("x"), std::bad_alloc);
    EXPECT_THAT(arguments.get(), ElementsAre(StrEq("tool"), IsNull()));
}

TEST(ArgVector, IsStillEndedByNullAfterBeingMovedFrom) {
    ArgVector source{"tool"};
    const ArgVector target(std::move(source));
    EXPECT_THAT(target.get(), ElementsAre(StrEq("tool"), IsNull()));
    EXPECT_THAT(source.get().back(), IsNull());
}

using quelm::shellText;

TEST(ShellText, JoinsWithSingleSpacesAndWritesEmptyOnesAsApostrophes) {
    EXPECT_EQ(shellText(ArgVector{"/etc/my hook", "add", "x"}.get()), "/etc/my\\ hook add x");
    EXPECT_EQ(shellText(ArgVector().get()), "");
    EXPECT_EQ(shellText(ArgVector{"", "a", "", ""}.get()), "'' a '' ''");
}

TEST(ShellText, StopsAtTheNullPointer) {
    char first[] = "a";
    char behind[] = "b";
    EXPECT_EQ(shellText({first, nullptr, behind}), "a");
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

} // namespace

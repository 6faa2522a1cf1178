#include "lib/process/lib/ArgVector.h"

#include <new>

#include <gmock/gmock.h>

namespace {
bool memoryIsOut = false;
} // namespace

extern "C" {
char* __real_strdup(const char* text);
char* __wrap_strdup(const char* text);
char* __wrap_strdup(const char* text) {
    return memoryIsOut ? nullptr : __real_strdup(text);
}
}

namespace {

using quelm::ArgVector;
using testing::ElementsAre;
using testing::IsNull;
using testing::StrEq;

TEST(ArgVector, EmptyHoldsOnlyTheNullPointer) {
    EXPECT_THAT(ArgVector().get(), ElementsAre(IsNull()));
}

TEST(ArgVector, KeepsTheOrderAndEndsWithNull) {
    ArgVector arguments{"tool", ""};
    arguments.add("a b");
    EXPECT_THAT(arguments.get(), ElementsAre(StrEq("tool"), StrEq(""), StrEq("a b"), IsNull()));
    EXPECT_EQ(arguments.data(), arguments.get().data());
}

TEST(ArgVector, OwnsCopiesOfWhatItIsGiven) {
    std::string text = "first";
    ArgVector arguments{text};
    text = "other";
    EXPECT_STREQ(arguments.get()[0], "first");
}

TEST(ArgVector, ACopyHasStringsOfItsOwn) {
    const ArgVector original{"tool", "x"};
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
    memoryIsOut = true;
    EXPECT_THROW(arguments.add("x"), std::bad_alloc);
    memoryIsOut = false;
    EXPECT_THAT(arguments.get(), ElementsAre(StrEq("tool"), IsNull()));
}

TEST(ArgVector, IsStillEndedByNullAfterBeingMovedFrom) {
    ArgVector source{"tool"};
    const ArgVector target(std::move(source));
    EXPECT_THAT(target.get(), ElementsAre(StrEq("tool"), IsNull()));
    EXPECT_THAT(source.get().back(), IsNull());
}

} // namespace

#include "cli/Demangle.h"

#include <gtest/gtest.h>

using quelm::demangle;
using quelm::readableTypeName;

TEST(Demangle, GivesTheReadableName) {
    EXPECT_EQ(demangle("_ZN5quelm8dispatchEiPPc"), "quelm::dispatch(int, char**)");
}

TEST(Demangle, RefusesWhatIsNotAMangledName) {
    EXPECT_EQ(demangle("main()"), std::nullopt);
    EXPECT_EQ(demangle(""), std::nullopt);
}

TEST(ReadableTypeName, KeepsARawNameThatCannotBeDemangled) {
    EXPECT_EQ(readableTypeName("not-a-name"), "not-a-name");
}

TEST(ReadableTypeName, SkipsALeadingAsterisk) {
    EXPECT_EQ(readableTypeName("*St13runtime_error"), "std::runtime_error");
    EXPECT_EQ(readableTypeName("*not-a-name"), "not-a-name");
}

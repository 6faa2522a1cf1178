#include "cli/Demangle.h"

#include <gtest/gtest.h>

using quelm::demangle;
using quelm::readableFrame;
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

TEST(ReadableFrame, ReplacesTheNameBetweenBracketAndOffset) {
    EXPECT_EQ(readableFrame("prog(_ZN5quelm10printUsageEv+0x12) [0x55d0]"),
              "prog(quelm::printUsage()+0x12) [0x55d0]");
}

TEST(ReadableFrame, TakesTheFirstBracketAndTheFirstPlusAfterIt) {
    EXPECT_EQ(readableFrame("/opt/c++/prog(_ZN5quelm10printUsageEv+0x12) [0x55d0]"),
              "/opt/c++/prog(quelm::printUsage()+0x12) [0x55d0]");
    EXPECT_EQ(readableFrame("prog(_ZN5quelm10printUsageEv+0x12+3) (x+1)"),
              "prog(quelm::printUsage()+0x12+3) (x+1)");
}

TEST(ReadableFrame, KeepsALineWithoutAMangledName) {
    for (const char* line : {"prog(main+0x1c) [0x55d0]", "prog(+0x1c) [0x55d0]", "prog() [0x55d0]",
                             "prog [0x55d0]", "c++ [0x55d0]", ""}) {
        EXPECT_EQ(readableFrame(line), line);
    }
}

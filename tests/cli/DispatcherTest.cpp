#include "cli/Dispatcher.h"

#include <gtest/gtest.h>

#include "tests/support/Captured.h"

namespace {

// The text of the usage is compared in tests/system/test_commands.py.
TEST(Usage, StandsAloneOnStandardErrorWhenThereIsNoMessage) {
    const quelm::test::CapturedStreams captured;
    quelm::printUsage();
    const std::string usage = captured.error();
    EXPECT_TRUE(usage.starts_with("Usage: tamrix ")) << usage;
    quelm::printErrorAndUsage("");
    EXPECT_EQ(captured.error(), usage + usage);
    EXPECT_EQ(captured.output(), "");
}

} // namespace

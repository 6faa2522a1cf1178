#include "cli/Log.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/InChild.h"

namespace {

using quelm::log_init;
using quelm::log_message;
using quelm::test::ChildOutcome;
using quelm::test::inChild;

ChildOutcome sayOnConsole(const char* target, unsigned level, int priority) {
    return inChild([=] {
        log_init(target, level, LOG_USER, LOG_PID, "tamrix");
        log_message(priority, "%s number %d", "message", 7);
    });
}

TEST(ConsoleLog, TargetConsoleGetsTheLineOnBothStreams) {
    const ChildOutcome outcome = sayOnConsole("console", LOG_INFO, LOG_INFO);
    EXPECT_EQ(outcome.error, "message number 7\n");
    EXPECT_EQ(outcome.output, "message number 7\n");
}

TEST(ConsoleLog, TargetStderrGetsTheLineOnStandardErrorOnly) {
    const ChildOutcome outcome = sayOnConsole("stderr", LOG_INFO, LOG_INFO);
    EXPECT_EQ(outcome.error, "message number 7\n");
    EXPECT_EQ(outcome.output, "");
}

TEST(ConsoleLog, TheTargetIsComparedWithoutRegardToCase) {
    EXPECT_EQ(sayOnConsole("ConSole", LOG_INFO, LOG_INFO).output, "message number 7\n");
    EXPECT_EQ(sayOnConsole("STDERR", LOG_INFO, LOG_INFO).error, "message number 7\n");
}

TEST(ConsoleLog, AnyOtherTargetIsSilent) {
    for (const char* target : {"", "stdout", "consoles", "console "}) {
        const ChildOutcome outcome = sayOnConsole(target, LOG_DEBUG, LOG_EMERG);
        EXPECT_EQ(outcome.error + outcome.output, "") << target;
    }
}

TEST(ConsoleLog, AMessageThatCannotBeFormattedIsNotWritten) {
    const ChildOutcome outcome = inChild([] {
        log_init("console", LOG_INFO, LOG_USER, LOG_PID, "tamrix");
        log_message(LOG_ERR, "%ls", L"\x20ac");
        log_message(LOG_ERR, "%s", "next");
    });
    EXPECT_EQ(outcome.error, "next\n");
    EXPECT_EQ(outcome.output, "next\n");
}

TEST(ConsoleLog, APriorityAboveTheThresholdIsNotWritten) {
    EXPECT_EQ(sayOnConsole("stderr", LOG_WARNING, LOG_WARNING).error, "message number 7\n");
    EXPECT_EQ(sayOnConsole("stderr", LOG_WARNING, LOG_NOTICE).error, "");
}

TEST(ConsoleLog, TheFacilityInAPriorityDoesNotCount) {
    EXPECT_EQ(sayOnConsole("stderr", LOG_WARNING, LOG_DAEMON | LOG_ERR).error, "message number 7\n");
    EXPECT_EQ(sayOnConsole("stderr", LOG_WARNING, LOG_DAEMON | LOG_INFO).error, "");
}

TEST(ConsoleLog, TheTargetIsCopied) {
    const ChildOutcome outcome = inChild([] {
        std::string target = "stderr";
        log_init(target.c_str(), LOG_INFO, LOG_USER, 0, nullptr);
        target.assign("XXXXXX");
        log_message(LOG_ERR, "kept");
    });
    EXPECT_EQ(outcome.error, "kept\n");
}

TEST(ConsoleLog, EveryLineIsFlushed) {
    const ChildOutcome outcome = inChild([] {
        std::setvbuf(stderr, nullptr, _IOFBF, 4096);
        log_init("console", LOG_INFO, LOG_USER, 0, nullptr);
        log_message(LOG_ERR, "at once");
        ::_exit(0); // drops what is still in the buffers
    });
    EXPECT_EQ(outcome.error, "at once\n");
    EXPECT_EQ(outcome.output, "at once\n");
}

TEST(ConsoleLog, ALongMessageIsWhole) {
    const std::string text(20000, 'x');
    const ChildOutcome outcome = inChild([&] {
        log_init("stderr", LOG_INFO, LOG_USER, 0, nullptr);
        log_message(LOG_ERR, "%s", text.c_str());
    });
    EXPECT_EQ(outcome.error, text + "\n");
}

// The message is at level 5; the threshold asked for is 4; only the environment can let it through.
ChildOutcome sayNoticeWithLevel(unsigned level, const char* fromEnvironment) {
    return inChild([=] {
        ::setenv("QUELM_LOG_LEVEL", fromEnvironment, 1);
        log_init("stderr", level, LOG_USER, 0, nullptr);
        log_message(LOG_NOTICE, "notice");
    });
}

TEST(LogLevel, TheEnvironmentRaisesTheThresholdOnlyWhenAsked) {
    EXPECT_EQ(sayNoticeWithLevel(LOG_WARNING | 8, "7").error, "notice\n");
    EXPECT_EQ(sayNoticeWithLevel(LOG_WARNING | 8, "5").error, "notice\n");
    EXPECT_EQ(sayNoticeWithLevel(LOG_WARNING, "7").error, "");
}

TEST(LogLevel, TheEnvironmentNeverLowersTheThreshold) {
    EXPECT_EQ(sayNoticeWithLevel(LOG_NOTICE | 8, "0").error, "notice\n");
}

TEST(LogLevel, OnlyOneDigitFromZeroToSevenCounts) {
    for (const char* value : {"8", "07", "7\n", "77", " 7", "", "9", "-1", "a", "/", " ", ":"}) {
        EXPECT_EQ(sayNoticeWithLevel(LOG_WARNING | 8, value).error, "") << value;
    }
}

TEST(LogLevel, OnlyTheLowThreeBitsAreTheThreshold) {
    EXPECT_EQ(sayNoticeWithLevel(0x40 | LOG_NOTICE, "0").error, "notice\n");
    EXPECT_EQ(sayNoticeWithLevel(0x40 | LOG_WARNING, "0").error, "");
}

TEST(LogMessage, KeepsErrno) {
    const ChildOutcome outcome = inChild([] {
        log_init("stderr", LOG_INFO, LOG_USER, 0, nullptr);
        errno = EXDEV;
        log_message(LOG_ERR, "x");
        std::exit(errno == EXDEV ? 0 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 0);
}

} // namespace

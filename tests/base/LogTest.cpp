#include "base/Log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"

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

std::string format(const char* text, va_list arguments) {
    std::string message(16384, '\0');
    const int length = std::vsnprintf(message.data(), message.size(), text, arguments);
    message.resize(static_cast<std::size_t>(length));
    return message;
}

const char* openIdent = nullptr;
bool recording = false;

[[gnu::format(printf, 1, 2)]] void record(const char* line, ...) {
    if (recording) {
        va_list arguments;
        va_start(arguments, line);
        std::vprintf(line, arguments);
        va_end(arguments);
    }
}
} // namespace

// While `recording`, every call of the system log becomes a line on standard output; else it is dropped.
extern "C" {
void __wrap_openlog(const char* ident, int options, int facility);
void __wrap_closelog();
int __wrap_setlogmask(int mask);
void __wrap_syslog(int priority, const char* text, ...);
void __wrap_vsyslog(int priority, const char* text, va_list arguments);
// The forms that a fortified build calls.
void __wrap___syslog_chk(int priority, int flag, const char* text, ...);
void __wrap___vsyslog_chk(int priority, int flag, const char* text, va_list arguments);

void __wrap_openlog(const char* ident, int options, int facility) {
    openIdent = ident; // as the C library does
    record("openlog %s %d %d\n", ident, options, facility);
}
void __wrap_closelog() {
    record("closelog\n");
}
int __wrap_setlogmask(int mask) {
    record("setlogmask %#x\n", static_cast<unsigned>(mask));
    return 0xff;
}
void __wrap_syslog(int priority, const char* text, ...) {
    va_list arguments;
    va_start(arguments, text);
    record("syslog %d \"%s\" %s\n", priority, text, format(text, arguments).c_str());
    va_end(arguments);
}
void __wrap_vsyslog(int priority, const char* text, va_list arguments) {
    record("vsyslog %d %s\n", priority, format(text, arguments).c_str());
}
void __wrap___syslog_chk(int priority, int /*flag*/, const char* text, ...) {
    va_list arguments;
    va_start(arguments, text);
    record("syslog %d \"%s\" %s\n", priority, text, format(text, arguments).c_str());
    va_end(arguments);
}
void __wrap___vsyslog_chk(int priority, int /*flag*/, const char* text, va_list arguments) {
    __wrap_vsyslog(priority, text, arguments);
}
}

namespace {

ChildOutcome recorded(const std::function<void()>& body) {
    return inChild([&] {
        recording = true;
        body();
    });
}

TEST(SystemLog, TheUtilitysOwnCallOpensItWithProcessIdAndInformationalThreshold) {
    const auto outcome = recorded([] {
        ::setenv("QUELM_LOG_LEVEL", "7", 1);
        ::setenv("QUELM_LOG_TRACE_ID", "trace", 1);
        log_init(nullptr, 6, 8, 1, "tamrix");
        log_message(LOG_ERR, "number %d", 7);
    });
    EXPECT_EQ(outcome.output, "closelog\nopenlog tamrix 1 8\nsetlogmask 0x7f\nvsyslog 3 number 7\n");
}

TEST(SystemLog, TheProcessIdOptionIsAlwaysAddedAndOnlyThreeBitsReachTheSystem) {
    const auto outcome = recorded([] { log_init(nullptr, 3, 8, 2 | 4 | 8 | 16 | 32, "x"); });
    EXPECT_EQ(outcome.output, "closelog\nopenlog x 35 8\nsetlogmask 0xf\n");
}

TEST(SystemLog, ANullIdentityIsTheShortProgramName) {
    const auto outcome = recorded([] { log_init(nullptr, 0, 8, 1, nullptr); });
    EXPECT_EQ(outcome.output, "closelog\nopenlog unit_tests 1 8\nsetlogmask 0x1\n");
}

TEST(SystemLog, TheIdentityIsCutTo63Characters) {
    const auto outcome = recorded([] { log_init(nullptr, 0, 8, 1, std::string(80, 'i').c_str()); });
    EXPECT_EQ(outcome.output, "closelog\nopenlog " + std::string(63, 'i') + " 1 8\nsetlogmask 0x1\n");
}

TEST(SystemLog, TheIdentityIsCopied) {
    const auto outcome = recorded([] {
        std::string ident = "tamrix";
        log_init(nullptr, 0, 8, 1, ident.c_str());
        ident.assign("XXXXXX");
        std::printf("%s\n", openIdent);
    });
    EXPECT_EQ(outcome.output, "closelog\nopenlog tamrix 1 8\nsetlogmask 0x1\ntamrix\n");
}

TEST(SystemLog, IsWhereMessagesGoBeforeAnythingIsOpened) {
    EXPECT_EQ(recorded([] { log_message(LOG_WARNING, "early %s", "word"); }).output,
              "vsyslog 4 early word\n");
}

TEST(SystemLog, TheEnvironmentRaisesTheMaskToo) {
    const auto outcome = recorded([] {
        ::setenv("QUELM_LOG_LEVEL", "5", 1);
        log_init(nullptr, 3 | 8, 8, 1, "x");
    });
    EXPECT_EQ(outcome.output, "closelog\nopenlog x 1 8\nsetlogmask 0x3f\n");
}

TEST(SystemLog, AConsoleTargetLeavesItAlone) {
    EXPECT_EQ(recorded([] { log_init("other", 6, 8, 1, "x"); }).output, "");
}

TEST(TraceId, IsTakenFromTheEnvironmentAndStandsBeforeEachMessage) {
    const auto outcome = recorded([] {
        ::setenv("QUELM_LOG_TRACE_ID", "request-9", 1);
        log_init(nullptr, 6, 8, 64, "x");
        log_message(LOG_ERR, "number %d", 7);
        log_message(LOG_ERR, "%s", "100%s");
    });
    EXPECT_EQ(outcome.output, "closelog\nopenlog x 1 8\nsetlogmask 0x7f\n"
                              "syslog 3 \"%s\" request-9: number 7\n"
                              "syslog 3 \"%s\" request-9: 100%s\n");
}

TEST(TraceId, IsCutTo63Characters) {
    const auto outcome = recorded([] {
        ::setenv("QUELM_LOG_TRACE_ID", std::string(80, 't').c_str(), 1);
        log_init(nullptr, 6, 8, 64, "x");
        log_message(LOG_ERR, "m");
    });
    EXPECT_NE(outcome.output.find("\" " + std::string(63, 't') + ": m\n"), std::string::npos)
        << outcome.output;
}

TEST(TraceId, IsMadeFromProgramNameAndProcessIdAndExportedWhenUnsetOrEmpty) {
    for (const char* inherited : {"", static_cast<const char*>(nullptr)}) {
        const auto outcome = recorded([=] {
            ::unsetenv("QUELM_LOG_TRACE_ID");
            if (inherited != nullptr) {
                ::setenv("QUELM_LOG_TRACE_ID", inherited, 1);
            }
            log_init(nullptr, 6, 8, 64, "x");
            const std::string expected = "U" + std::to_string(::getpid());
            const char* exported = std::getenv("QUELM_LOG_TRACE_ID");
            std::exit(exported != nullptr && exported == expected ? 0 : 1);
        });
        EXPECT_EQ(outcome.exitStatus(), 0);
    }
}

TEST(TraceId, BeginsWithTheUpperCasedFirstLetterOfTheProgramName) {
    const auto outcome = recorded([] {
        ::unsetenv("QUELM_LOG_TRACE_ID");
        static char name[] = "zeta";
        program_invocation_short_name = name;
        log_init(nullptr, 6, 8, 64, "x");
        const std::string exported = std::getenv("QUELM_LOG_TRACE_ID");
        std::exit(exported == "Z" + std::to_string(::getpid()) ? 0 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 0);
}

TEST(TraceId, AnInheritedOneIsLeftInTheEnvironmentAsItIs) {
    const auto outcome = recorded([] {
        const std::string inherited(80, 't');
        ::setenv("QUELM_LOG_TRACE_ID", inherited.c_str(), 1);
        log_init(nullptr, 6, 8, 64, "x");
        std::exit(std::getenv("QUELM_LOG_TRACE_ID") == inherited ? 0 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 0);
}

TEST(TraceId, CutsTheMessageToTheBuffer) {
    const auto outcome = recorded([] {
        ::setenv("QUELM_LOG_TRACE_ID", "t", 1);
        log_init(nullptr, 6, 8, 64, "x");
        log_message(LOG_ERR, "%s", std::string(10000, 'm').c_str());
    });
    EXPECT_NE(outcome.output.find("\" t: " + std::string(8191 - 3, 'm') + "\n"), std::string::npos);
}

TEST(TraceId, IsNotMadeUnlessAsked) {
    const auto outcome = recorded([] {
        ::unsetenv("QUELM_LOG_TRACE_ID");
        log_init(nullptr, 6, 8, 1, "x");
        std::exit(std::getenv("QUELM_LOG_TRACE_ID") == nullptr ? 0 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 0);
}

} // namespace

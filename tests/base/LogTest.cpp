#include "base/Log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <tuple>

#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"

namespace {

using quelm::log_init;
using quelm::log_message;
using quelm::test::ChildOutcome;
using quelm::test::inChild;

ChildOutcome sayOnConsole(const std::string& target, unsigned level, int priority) {
    return inChild([&] {
        std::string copied = target;
        log_init(copied.c_str(), level, LOG_USER, LOG_PID, "tamrix");
        copied.assign(target.size(), 'X');
        log_message(priority, "%s number %d", "message", 7);
    });
}

TEST(ConsoleLog, TheTargetComparedWithoutRegardToCaseSaysWhere) {
    const std::string line = "message number 7\n";
    for (const auto& [target, output, error] :
         {std::tuple<const char*, std::string, std::string>{"console", line, line},
          {"ConSole", line, line},
          {"stderr", "", line},
          {"STDERR", "", line},
          {"", "", ""},
          {"stdout", "", ""},
          {"consoles", "", ""},
          {"console ", "", ""}}) {
        const ChildOutcome outcome = sayOnConsole(target, LOG_INFO, LOG_INFO);
        EXPECT_EQ(outcome.output, output) << target;
        EXPECT_EQ(outcome.error, error) << target;
    }
}

TEST(ConsoleLog, APriorityAboveTheThresholdIsNotWrittenAndTheFacilityDoesNotCount) {
    EXPECT_NE(sayOnConsole("stderr", LOG_WARNING, LOG_WARNING).error, "");
    EXPECT_EQ(sayOnConsole("stderr", LOG_WARNING, LOG_NOTICE).error, "");
    EXPECT_NE(sayOnConsole("stderr", LOG_WARNING, LOG_DAEMON | LOG_ERR).error, "");
    EXPECT_EQ(sayOnConsole("stderr", LOG_WARNING, LOG_DAEMON | LOG_INFO).error, "");
}

TEST(ConsoleLog, EveryMessageThatCanBeFormattedIsAWholeLineFlushedAtOnceAndErrnoIsKept) {
    const std::string text(20000, 'x');
    const ChildOutcome outcome = inChild([&] {
        std::setvbuf(stderr, nullptr, _IOFBF, 65536);
        log_init("console", LOG_INFO, LOG_USER, 0, nullptr);
        log_message(LOG_ERR, "%ls", L"\x20ac");
        errno = EXDEV;
        log_message(LOG_ERR, "%s", text.c_str());
        ::_exit(errno == EXDEV ? 0 : 1); // drops what is still in the buffers
    });
    EXPECT_EQ(outcome.error, text + "\n");
    EXPECT_EQ(outcome.output, text + "\n");
    EXPECT_EQ(outcome.exitStatus(), 0);
}

// The message is at level 5; whether it passes is in the level asked for and in the environment.
TEST(LogLevel, TheEnvironmentRaisesTheThresholdWhenAskedByOneDigit) {
    const auto passes = [](unsigned level, const char* fromEnvironment) {
        return !inChild([=] {
                    ::setenv("QUELM_LOG_LEVEL", fromEnvironment, 1);
                    log_init("stderr", level, LOG_USER, 0, nullptr);
                    log_message(LOG_NOTICE, "notice");
                }).error.empty();
    };
    EXPECT_TRUE(passes(LOG_WARNING | 8, "7"));
    EXPECT_TRUE(passes(LOG_WARNING | 8, "5"));
    EXPECT_FALSE(passes(LOG_WARNING, "7"));
    EXPECT_TRUE(passes(LOG_NOTICE | 8, "0"));
    EXPECT_TRUE(passes(0x40 | LOG_NOTICE, "0")); // only the low three bits are the threshold
    EXPECT_FALSE(passes(0x40 | LOG_WARNING, "0"));
    for (const char* value : {"8", "07", "7\n", "77", " 7", "", "9", "-1", "a", "/", " ", ":"}) {
        EXPECT_FALSE(passes(LOG_WARNING | 8, value)) << value;
    }
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

template <class Body>
ChildOutcome recorded(const Body& body) {
    return inChild([&] {
        recording = true;
        return body();
    });
}

TEST(SystemLog, IsOpenedWithTheProcessIdAndItsThreshold) {
    const auto opened = [](unsigned level, int options, const char* ident) {
        return recorded([=] {
                   ::setenv("QUELM_LOG_LEVEL", "5", 1);
                   log_init(nullptr, level, 8, options, ident);
               })
            .output;
    };
    EXPECT_EQ(opened(6, 1, "tamrix"), "closelog\nopenlog tamrix 1 8\nsetlogmask 0x7f\n");
    EXPECT_EQ(opened(3 | 8, 1, "x"), "closelog\nopenlog x 1 8\nsetlogmask 0x3f\n");
    EXPECT_EQ(opened(0, 1, nullptr), "closelog\nopenlog unit_tests 1 8\nsetlogmask 0x1\n");
    // The process id is always asked for, and only three bits reach the system.
    EXPECT_EQ(opened(3, 2 | 4 | 8 | 16 | 32, "x"), "closelog\nopenlog x 35 8\nsetlogmask 0xf\n");
    EXPECT_EQ(opened(0, 1, std::string(80, 'i').c_str()),
              "closelog\nopenlog " + std::string(63, 'i') + " 1 8\nsetlogmask 0x1\n");
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

TEST(SystemLog, IsWhereMessagesGoUnlessThereIsATarget) {
    const auto outcome = recorded([] {
        log_message(LOG_WARNING, "early %s", "word");
        log_init("other", 6, 8, 1, "x");
        log_message(LOG_WARNING, "nowhere");
    });
    EXPECT_EQ(outcome.output, "vsyslog 4 early word\n");
}

// What is logged under an inherited trace id.
std::string traced(const std::string& id, const std::string& message) {
    const std::string output = recorded([&] {
                                   ::setenv("QUELM_LOG_TRACE_ID", id.c_str(), 1);
                                   log_init(nullptr, 6, 8, 64, "x");
                                   log_message(LOG_ERR, "%s", message.c_str());
                                   std::printf("%s\n", std::getenv("QUELM_LOG_TRACE_ID"));
                               }).output;
    const std::string head = "closelog\nopenlog x 1 8\nsetlogmask 0x7f\nsyslog 3 \"%s\" ";
    EXPECT_TRUE(output.starts_with(head) && output.ends_with("\n" + id + "\n")) << output;
    return output.substr(head.size(), output.size() - head.size() - id.size() - 2);
}

TEST(TraceId, IsTakenFromTheEnvironmentAndStandsBeforeEachMessage) {
    EXPECT_EQ(traced("request-9", "100%s"), "request-9: 100%s");
    EXPECT_EQ(traced(std::string(80, 't'), "m"), std::string(63, 't') + ": m");
    EXPECT_EQ(traced("t", std::string(10000, 'm')), "t: " + std::string(8191 - 3, 'm')); // cut to the buffer
}

TEST(TraceId, IsMadeFromProgramNameAndProcessIdAndExportedWhenUnsetOrEmptyAndAskedFor) {
    const auto exported = [](int options, const char* inherited) {
        return recorded([=] {
                   ::unsetenv("QUELM_LOG_TRACE_ID");
                   if (inherited != nullptr) {
                       ::setenv("QUELM_LOG_TRACE_ID", inherited, 1);
                   }
                   static char name[] = "zeta";
                   program_invocation_short_name = name;
                   log_init(nullptr, 6, 8, options, "x");
                   const char* id = std::getenv("QUELM_LOG_TRACE_ID");
                   return id == nullptr ? 1 : id == "Z" + std::to_string(::getpid()) ? 0 : 2;
               })
            .exitStatus();
    };
    EXPECT_EQ(exported(64, nullptr), 0);
    EXPECT_EQ(exported(64, ""), 0);
    EXPECT_EQ(exported(1, nullptr), 1);
}

} // namespace

// The system log as the C library sees it; the datagrams themselves are looked at by the system tests.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <cerrno>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/Log.h"
#include "tests/support/InChild.h"

namespace {

std::string format(const char* text, va_list arguments) {
    std::string message(16384, '\0');
    const int length = std::vsnprintf(message.data(), message.size(), text, arguments);
    message.resize(static_cast<std::size_t>(length));
    return message;
}

} // namespace

namespace {
const char* openIdent = nullptr;
} // namespace

// Every call of the system log becomes a line on standard output.
extern "C" {
void __wrap_openlog(const char* ident, int options, int facility);
void __wrap_closelog();
int __wrap_setlogmask(int mask);
void __wrap_syslog(int priority, const char* text, ...);
void __wrap_vsyslog(int priority, const char* text, va_list arguments);

void __wrap_openlog(const char* ident, int options, int facility) {
    openIdent = ident; // as the C library does
    std::printf("openlog %s %d %d\n", ident, options, facility);
}
void __wrap_closelog() {
    std::printf("closelog\n");
}
int __wrap_setlogmask(int mask) {
    std::printf("setlogmask %#x\n", static_cast<unsigned>(mask));
    return 0xff;
}
void __wrap_syslog(int priority, const char* text, ...) {
    va_list arguments;
    va_start(arguments, text);
    std::printf("syslog %d \"%s\" %s\n", priority, text, format(text, arguments).c_str());
    va_end(arguments);
}
void __wrap_vsyslog(int priority, const char* text, va_list arguments) {
    std::printf("vsyslog %d %s\n", priority, format(text, arguments).c_str());
}
}

namespace {

using quelm::log_init;
using quelm::log_message;
using quelm::test::inChild;

TEST(SystemLog, TheUtilitysOwnCallOpensItWithProcessIdAndInformationalThreshold) {
    const auto outcome = inChild([] {
        ::setenv("QUELM_LOG_LEVEL", "7", 1);
        ::setenv("QUELM_LOG_TRACE_ID", "trace", 1);
        log_init(nullptr, 6, 8, 1, "tamrix");
        log_message(LOG_ERR, "number %d", 7);
    });
    EXPECT_EQ(outcome.output, "closelog\nopenlog tamrix 1 8\nsetlogmask 0x7f\nvsyslog 3 number 7\n");
}

TEST(SystemLog, TheProcessIdOptionIsAlwaysAddedAndOnlyThreeBitsReachTheSystem) {
    const auto outcome = inChild([] { log_init(nullptr, 3, 8, 2 | 4 | 8 | 16 | 32, "x"); });
    EXPECT_EQ(outcome.output, "closelog\nopenlog x 35 8\nsetlogmask 0xf\n");
}

TEST(SystemLog, ANullIdentityIsTheShortProgramName) {
    const auto outcome = inChild([] { log_init(nullptr, 0, 8, 1, nullptr); });
    EXPECT_EQ(outcome.output, "closelog\nopenlog cli_test 1 8\nsetlogmask 0x1\n");
}

TEST(SystemLog, TheIdentityIsCutTo63Characters) {
    const auto outcome = inChild([] { log_init(nullptr, 0, 8, 1, std::string(80, 'i').c_str()); });
    EXPECT_EQ(outcome.output, "closelog\nopenlog " + std::string(63, 'i') + " 1 8\nsetlogmask 0x1\n");
}

TEST(SystemLog, TheIdentityIsCopied) {
    const auto outcome = inChild([] {
        std::string ident = "tamrix";
        log_init(nullptr, 0, 8, 1, ident.c_str());
        ident.assign("XXXXXX");
        std::printf("%s\n", openIdent);
    });
    EXPECT_EQ(outcome.output, "closelog\nopenlog tamrix 1 8\nsetlogmask 0x1\ntamrix\n");
}

TEST(SystemLog, IsWhereMessagesGoBeforeAnythingIsOpened) {
    EXPECT_EQ(inChild([] { log_message(LOG_WARNING, "early %s", "word"); }).output, "vsyslog 4 early word\n");
}

TEST(SystemLog, TheEnvironmentRaisesTheMaskToo) {
    const auto outcome = inChild([] {
        ::setenv("QUELM_LOG_LEVEL", "5", 1);
        log_init(nullptr, 3 | 8, 8, 1, "x");
    });
    EXPECT_EQ(outcome.output, "closelog\nopenlog x 1 8\nsetlogmask 0x3f\n");
}

TEST(SystemLog, AConsoleTargetLeavesItAlone) {
    EXPECT_EQ(inChild([] { log_init("other", 6, 8, 1, "x"); }).output, "");
}

TEST(TraceId, IsTakenFromTheEnvironmentAndStandsBeforeEachMessage) {
    const auto outcome = inChild([] {
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
    const auto outcome = inChild([] {
        ::setenv("QUELM_LOG_TRACE_ID", std::string(80, 't').c_str(), 1);
        log_init(nullptr, 6, 8, 64, "x");
        log_message(LOG_ERR, "m");
    });
    EXPECT_NE(outcome.output.find("\" " + std::string(63, 't') + ": m\n"), std::string::npos)
        << outcome.output;
}

TEST(TraceId, IsMadeFromProgramNameAndProcessIdAndExportedWhenUnsetOrEmpty) {
    for (const char* inherited : {"", static_cast<const char*>(nullptr)}) {
        const auto outcome = inChild([=] {
            ::unsetenv("QUELM_LOG_TRACE_ID");
            if (inherited != nullptr) {
                ::setenv("QUELM_LOG_TRACE_ID", inherited, 1);
            }
            log_init(nullptr, 6, 8, 64, "x");
            const std::string expected = "C" + std::to_string(::getpid());
            const char* exported = std::getenv("QUELM_LOG_TRACE_ID");
            std::exit(exported != nullptr && exported == expected ? 0 : 1);
        });
        EXPECT_EQ(outcome.exitStatus(), 0);
    }
}

TEST(TraceId, BeginsWithTheUpperCasedFirstLetterOfTheProgramName) {
    const auto outcome = inChild([] {
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
    const auto outcome = inChild([] {
        const std::string inherited(80, 't');
        ::setenv("QUELM_LOG_TRACE_ID", inherited.c_str(), 1);
        log_init(nullptr, 6, 8, 64, "x");
        std::exit(std::getenv("QUELM_LOG_TRACE_ID") == inherited ? 0 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 0);
}

TEST(TraceId, CutsTheMessageToTheBuffer) {
    const auto outcome = inChild([] {
        ::setenv("QUELM_LOG_TRACE_ID", "t", 1);
        log_init(nullptr, 6, 8, 64, "x");
        log_message(LOG_ERR, "%s", std::string(10000, 'm').c_str());
    });
    EXPECT_NE(outcome.output.find("\" t: " + std::string(8191 - 3, 'm') + "\n"), std::string::npos);
}

TEST(TraceId, IsNotMadeUnlessAsked) {
    const auto outcome = inChild([] {
        ::unsetenv("QUELM_LOG_TRACE_ID");
        log_init(nullptr, 6, 8, 1, "x");
        std::exit(std::getenv("QUELM_LOG_TRACE_ID") == nullptr ? 0 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 0);
}

} // namespace

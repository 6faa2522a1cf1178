// Bad days of forkExecvGetOutErr: throwing callbacks, exhausted resources, odd callers.
#include "lib/process/lib/ForkExecv.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include "cli/FatalMessage.h"
#include "lib/process/lib/ArgVector.h"
#include "tests/support/InChild.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace {

using quelm::ArgVector;
using quelm::forkExecvGetOutErr;
using quelm::SinkCallback;
using quelm::SourceCallback;
using quelm::test::inChild;

class ForkExecvTrouble : public testing::Test {
protected:
    int shell(SourceCallback source, SinkCallback outputSink, SinkCallback errorSink,
              const std::string& script) {
        return forkExecvGetOutErr(source, outputSink, errorSink, "/bin/sh",
                                  ArgVector{"sh", "-c", script}.get(), "", true, {}, nullptr);
    }
    // However it ends, nothing may be left.
    void TearDown() override {
        EXPECT_EQ(quelm::test::openDescriptors(), before);
        EXPECT_FALSE(quelm::test::hasChildren());
        EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
    }

    const std::set<std::string> before = quelm::test::openDescriptors();
};

void throwNumber(const char* /*bytes*/, std::size_t /*count*/, void* /*context*/) {
    throw 7;
}

std::size_t throwText(char* /*buffer*/, std::size_t /*capacity*/, void* /*context*/) {
    throw std::runtime_error("no input");
}

TEST_F(ForkExecvTrouble, AThrowingOutputSinkEndsTheChildAndItsExceptionArrives) {
    EXPECT_THROW(shell(nullptr, throwNumber, nullptr, "echo x; exec sleep 60"), int);
}

TEST_F(ForkExecvTrouble, AThrowingErrorSinkEndsTheChildAndItsExceptionArrives) {
    EXPECT_THROW(shell(nullptr, nullptr, throwNumber, "echo x >&2; exec sleep 60"), int);
}

TEST_F(ForkExecvTrouble, AThrowingSourceEndsTheChildAndItsExceptionArrives) {
    try {
        shell(throwText, nullptr, nullptr, "exec sleep 60");
        FAIL();
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "no input");
    }
}

TEST_F(ForkExecvTrouble, TheChildIsAskedWithSigtermAndWaitedFor) {
    const quelm::test::TempDir directory;
    const std::string mark = directory.path("mark");
    EXPECT_THROW(shell(nullptr, throwNumber, nullptr,
                       "trap 'sleep 0.2; : > " + mark + "; exit 0' TERM; echo x; while :; do :; done"),
                 int);
    EXPECT_TRUE(std::filesystem::exists(mark));
}

std::size_t giveForEver(char* buffer, std::size_t capacity, void* /*context*/) {
    return std::string(capacity, 'x').copy(buffer, capacity);
}

TEST_F(ForkExecvTrouble, ThePipesAreClosedBeforeTheWaitSoThatAChildDeafToSigtermSeesTheEnd) {
    EXPECT_THROW(shell(giveForEver, throwNumber, nullptr, "trap '' TERM; echo x; cat >/dev/null"), int);
}

TEST_F(ForkExecvTrouble, NeitherDescriptorsNorChildrenPileUp) {
    for (int i = 0; i < 50; ++i) {
        std::string output;
        std::string error;
        EXPECT_EQ(forkExecvGetOutErr(output, error, "/nonexistent/tool", ArgVector{"tool"}.get()), 1);
        EXPECT_EQ(forkExecvGetOutErr(output, error, "/bin/true", ArgVector{"true"}.get()), 0);
    }
    EXPECT_EQ(quelm::test::openDescriptors(), before);
}

TEST_F(ForkExecvTrouble, WorksUnderAnIgnoredSigchld) {
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(shell(nullptr, nullptr, nullptr, "exit 3"), 3);
}

void (*dispositionSeen)(int) = SIG_DFL;

void lookAtSigpipe(const char* /*bytes*/, std::size_t /*count*/, void* /*context*/) {
    struct sigaction now {};
    ::sigaction(SIGPIPE, nullptr, &now);
    dispositionSeen = now.sa_handler;
}

TEST_F(ForkExecvTrouble, SigpipeIsIgnoredDuringTheRunAndThenAsItWas) {
    const auto handler = [](int) {};
    struct sigaction mine {};
    mine.sa_handler = handler;
    ::sigaction(SIGPIPE, &mine, nullptr);
    EXPECT_EQ(shell(nullptr, lookAtSigpipe, nullptr, "echo x"), 0);
    EXPECT_EQ(dispositionSeen, SIG_IGN);
    EXPECT_THROW(shell(nullptr, throwNumber, nullptr, "echo x"), int);
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), static_cast<void (*)(int)>(handler));
}

TEST_F(ForkExecvTrouble, WorksWith1500OpenDescriptors) {
    const auto outcome = inChild([] {
        rlimit limit{};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 4096;
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            ::_exit(99);
        }
        int highest = 0;
        for (int i = 0; i < 1500; ++i) {
            highest = ::dup(STDIN_FILENO);
        }
        std::string output;
        std::string error;
        const std::string text(100000, 'x');
        const int status =
            forkExecvGetOutErr(text, &output, &error, "/usr/bin/tee", ArgVector{"tee", "/dev/stderr"}.get());
        ::_exit(highest > 1024 && status == 0 && output == text && error == text ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

TEST_F(ForkExecvTrouble, WorksWithEveryCombinationOfClosedStandardDescriptors) {
    for (int closed = 0; closed < 8; ++closed) {
        const auto outcome = inChild([closed] {
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                if ((closed & (1 << descriptor)) != 0) {
                    ::close(descriptor);
                }
            }
            std::string output;
            std::string error;
            const int status =
                forkExecvGetOutErr("in", &output, &error, "/bin/sh",
                                   ArgVector{"sh", "-c", "cat; echo out; echo err >&2; exit 5"}.get());
            ::_exit(status == 5 && output == "inout\n" && error == "err\n" ? 42 : 1);
        });
        EXPECT_EQ(outcome.exitStatus(), 42) << "closed: " << closed;
    }
}

TEST_F(ForkExecvTrouble, ExhaustedDescriptorsEndTheUtility) {
    for (const rlim_t room : {0u, 2u, 5u}) {
        const auto outcome = inChild([room] {
            // No exit handlers: a sanitizer's leak check needs descriptors of its own.
            quelm::markForkedChild();
            const int lowestFree = ::dup(STDIN_FILENO);
            ::close(lowestFree);
            for (int number = lowestFree; number < 64; ++number) {
                ::close(number);
            }
            const auto limit = static_cast<rlim_t>(lowestFree) + room;
            const rlimit tight{limit, limit};
            ::setrlimit(RLIMIT_NOFILE, &tight);
            std::string output;
            std::string error;
            forkExecvGetOutErr(output, error, "/bin/true", ArgVector{"true"}.get());
        });
        EXPECT_EQ(outcome.exitStatus(), 1);
        EXPECT_EQ(outcome.error, "forkExecvGetOutErr: pipe() failed\nSystem error 24: Too many open files\n");
        EXPECT_EQ(outcome.output, outcome.error);
    }
}

} // namespace

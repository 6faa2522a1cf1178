// How the capture loop looks at its child: what it polls, how long, and what follows from each answer.
#include "lib/process/lib/ForkCapture.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "lib/process/lib/ArgVector.h"
#include "lib/process/lib/OutputBuffer.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

class ForkCapturePoll : public testing::Test {
protected:
    int shell(const std::string& script) {
        const ArgVector arguments{"sh", "-c", script};
        char* outBlock = nullptr;
        char* errBlock = nullptr;
        const int result = fork_execv_getouterr(&outBlock, &errBlock, "/bin/sh", arguments.data());
        output.reset(outBlock);
        error.reset(errBlock);
        return result;
    }
    void TearDown() override {
        watchPoll({});
        EXPECT_FALSE(hasChildren());
    }

    CText output;
    CText error;
};

// Until the child has ended; it is left for the loop to find.
void awaitEnd() {
    siginfo_t ended{};
    ASSERT_EQ(::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
}

TEST_F(ForkCapturePoll, ThePeriodIsOneSecondSetAnewOnEachPass) {
    std::vector<int> timeouts;
    watchPoll([&timeouts](const pollfd*, nfds_t, int timeout) {
        timeouts.push_back(timeout);
        return std::nullopt;
    });
    EXPECT_EQ(shell("echo a; sleep 0.3; echo b; sleep 0.3; echo c"), 0);
    EXPECT_GE(timeouts.size(), 3U);
    EXPECT_EQ(std::count(timeouts.begin(), timeouts.end(), 1000),
              static_cast<std::ptrdiff_t>(timeouts.size()));
}

// The child is gone at once, but what comes within the second is still collected.
TEST_F(ForkCapturePoll, WhatAProcessLeftBehindPrintsWithinTheSecondIsCollected) {
    const TempDir directory;
    const std::string pidFile = directory.path("pid");
    EXPECT_EQ(shell("(sleep 0.5; echo late; exec sleep 5) & echo $! >" + pidFile + "; exit 0"), 0);
    EXPECT_STREQ(output.get(), "late\n");
    EXPECT_EQ(::kill(std::stoi(readFile(pidFile)), SIGKILL), 0);
}

TEST_F(ForkCapturePoll, BothReadEndsAreNonBlocking) {
    int blocking = 0;
    std::size_t looked = 0;
    watchPoll([&](const pollfd* ends, nfds_t count, int) {
        for (nfds_t i = 0; i < count && looked < 2; ++i, ++looked) {
            blocking += (::fcntl(ends[i].fd, F_GETFL) & O_NONBLOCK) == 0 ? 1 : 0;
        }
        return std::nullopt;
    });
    EXPECT_EQ(shell("echo out; echo err >&2"), 0);
    EXPECT_EQ(looked, 2U);
    EXPECT_EQ(blocking, 0);
}

TEST_F(ForkCapturePoll, AnEndThatCannotBeMadeNonBlockingEndsTheProcess) {
    for (int call = 0; call < 4; ++call) { // each of the two has its flags read and then set
        const ChildOutcome result = runForked([this, call] {
            failCall(Call::fcntl, EPERM, call);
            return shell("true");
        });
        EXPECT_EQ(result.exitStatus(), 1) << call;
        EXPECT_EQ(
            result.error,
            "fork_execv_getouterr: fcntl(O_NONBLOCK) failed\nSystem error 1: Operation not permitted\n");
    }
}

// All of it is in the pipes when the first pass begins.
TEST_F(ForkCapturePoll, EachReadableEndIsReadOncePerPass) {
    std::vector<int> readsBefore;
    watchPoll([&readsBefore](const pollfd*, nfds_t, int) {
        awaitEnd();
        readsBefore.push_back(callsOf(Call::read));
        return std::nullopt;
    });
    countCalls(Call::read);
    EXPECT_EQ(shell("head -c 20000 /dev/zero | tr '\\0' o; head -c 3000 /dev/zero | tr '\\0' e >&2"), 0);
    // 4095, 4096, 8192 and 3617 bytes and the end there; 3000 bytes and the end here.
    EXPECT_EQ(readsBefore, (std::vector<int>{0, 2, 4, 5, 6}));
    EXPECT_EQ(callsOf(Call::read), 7);
    EXPECT_EQ(std::string(output.get()), std::string(20000, 'o'));
    EXPECT_EQ(std::string(error.get()), std::string(3000, 'e'));
}

TEST_F(ForkCapturePoll, AFailedPollLooksAtTheChild) {
    countCalls(Call::waitpid);
    failCallOnce(Call::poll, EINTR);
    EXPECT_EQ(shell("sleep 0.3; echo out; exit 7"), 7);
    EXPECT_GE(callsOf(Call::waitpid), 2); // after the failure, and at the end
    EXPECT_STREQ(output.get(), "out\n");
}

TEST_F(ForkCapturePoll, AFailedPollThatFindsTheChildEndedEndsTheRun) {
    countCalls(Call::waitpid);
    watchPoll([](const pollfd*, nfds_t, int) {
        awaitEnd();
        return std::nullopt;
    });
    failCall(Call::poll, EBADF);
    EXPECT_EQ(shell("echo out; exit 7"), 7);
    stopFailing(Call::poll);
    EXPECT_EQ(callsOf(Call::poll), 1);
    EXPECT_EQ(callsOf(Call::waitpid), 1);
}

TEST_F(ForkCapturePoll, AQuietSecondThatFindsTheChildEndedLeavesThePipesUnread) {
    countCalls(Call::read);
    countCalls(Call::waitpid);
    watchPoll([](const pollfd*, nfds_t, int) {
        awaitEnd();
        return 0;
    });
    EXPECT_EQ(shell("echo out; echo err >&2; exit 7"), 7);
    EXPECT_EQ(callsOf(Call::read), 0);
    EXPECT_EQ(callsOf(Call::waitpid), 1);
    EXPECT_EQ(output, nullptr);
    EXPECT_EQ(error, nullptr);
}

} // namespace

} // namespace quelm::test

#include "lib/process/lib/Capture.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/FatalMessage.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/panel/VariadicExec.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/DescriptorTable.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

class OutputBufferTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pipe);
        ASSERT_TRUE(setNonBlocking(pipe->readEnd.get()));
    }

    void put(std::size_t count) {
        const std::string text(count, 'x');
        ASSERT_EQ(::write(pipe->writeEnd.get(), text.data(), count), static_cast<ssize_t>(count));
    }

    void readOnce() { quelm::readOnce(pipe->readEnd, buffer); }

    std::optional<Pipe> pipe = openPipe();
    ByteBuffer buffer;
};

TEST_F(OutputBufferTest, StartsWithoutABlock) {
    EXPECT_EQ(buffer.capacity(), 0U);
    EXPECT_EQ(giveAway(buffer), nullptr);
}

TEST_F(OutputBufferTest, AnEmptyOutputHasATerminatedBlock) {
    pipe->writeEnd.close();
    readOnce();
    EXPECT_FALSE(pipe->readEnd.isOpen());
    const CText text(giveAway(buffer));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text.get(), "");
}

TEST_F(OutputBufferTest, OneReadTakesAllButTheTerminatorsByte) {
    put(10000);
    readOnce();
    EXPECT_EQ(buffer.size(), 4095U);
    EXPECT_EQ(buffer.capacity(), 4096U);
    readOnce();
    EXPECT_EQ(buffer.size(), 8191U);
    EXPECT_EQ(buffer.capacity(), 8192U);
    readOnce();
    EXPECT_EQ(buffer.size(), 10000U);
    EXPECT_EQ(buffer.capacity(), 16384U);
}

TEST_F(OutputBufferTest, GrowsWhenNoMoreThan2048BytesAreFree) {
    put(2047);
    readOnce();
    put(1);
    readOnce();
    EXPECT_EQ(buffer.capacity(), 4096U);
    readOnce();
    EXPECT_EQ(buffer.capacity(), 8192U);
}

TEST_F(OutputBufferTest, KeepsNulBytesAndTerminatesBehindThem) {
    ASSERT_EQ(::write(pipe->writeEnd.get(), "a\0b", 3), 3);
    readOnce();
    EXPECT_EQ(buffer.size(), 3U);
    const CText text(giveAway(buffer));
    EXPECT_EQ(std::string(text.get(), 4), std::string("a\0b\0", 4));
}

TEST_F(OutputBufferTest, WhatComesAfterTheReleaseHasABlockOfItsOwn) {
    put(3);
    readOnce();
    const CText first(giveAway(buffer));
    EXPECT_EQ(buffer.size(), 0U);
    EXPECT_EQ(buffer.capacity(), 0U);
    put(2);
    readOnce();
    EXPECT_EQ(buffer.size(), 2U);
    const CText second(giveAway(buffer));
    EXPECT_STREQ(first.get(), "xxx");
    EXPECT_STREQ(second.get(), "xx");
}

TEST_F(OutputBufferTest, NothingToReadYetIsNoFailure) {
    const CapturedStreams captured;
    readOnce();
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_TRUE(pipe->readEnd.isOpen());
    EXPECT_EQ(captured.error(), "");
}

TEST_F(OutputBufferTest, AFailedReadIsPrintedAndClosesTheEnd) {
    const CapturedStreams captured;
    const FailedCall failing(Call::read, EIO);
    readOnce();
    EXPECT_EQ(errno, 0);
    EXPECT_FALSE(pipe->readEnd.isOpen());
    EXPECT_EQ(captured.error(), "fork_exec*: read(pipe) failed: Input/output error\n");
    EXPECT_EQ(captured.output(), "");
}

TEST_F(OutputBufferTest, AnInterruptedReadCountsAsFailed) {
    put(3);
    const CapturedStreams captured;
    const FailedCall failing(Call::read, EINTR);
    readOnce();
    EXPECT_EQ(callsOf(Call::read), 1);
    EXPECT_EQ(errno, 0);
    EXPECT_FALSE(pipe->readEnd.isOpen());
    EXPECT_EQ(captured.error(), "fork_exec*: read(pipe) failed: Interrupted system call\n");
}

// fatal_message too takes its buffer from realloc; it is let through.
TEST_F(OutputBufferTest, NoMemoryEndsTheProcess) {
    const ChildOutcome result = runForked([this] {
        failCall(Call::realloc, ENOMEM, {.times = 1});
        readOnce();
        return 0;
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Cannot allocate memory\nSystem error 12: Cannot allocate memory\n");
    EXPECT_EQ(result.output, result.error);
}

} // namespace

} // namespace quelm::test

namespace quelm::test {

namespace {

using std::chrono::milliseconds;

struct Finished {
    int result = 0;
    CText output;
    CText error;
    milliseconds took{};
};

Finished run(const std::string& path, const ArgVector& arguments) {
    Finished done;
    char stale = 'x';
    char* output = &stale;
    char* error = &stale;
    const auto begin = std::chrono::steady_clock::now();
    done.result = fork_execv_getouterr(&output, &error, path.c_str(), arguments.data());
    done.took = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
    done.output.reset(output);
    done.error.reset(error);
    return done;
}

Finished shell(const std::string& script) {
    return run("/bin/sh", {"sh", "-c", script});
}

// The scripts that leave a process behind print its number and nothing else.
void endLeftBehind(const Finished& done) {
    EXPECT_EQ(::kill(std::stoi(done.output.get()), SIGKILL), 0);
}

TEST(ForkCapture, CollectsBothStreamsAndTheStatus) {
    const Finished done = shell("echo out; echo err >&2; exit 7");
    EXPECT_EQ(done.result, 7);
    EXPECT_STREQ(done.output.get(), "out\n");
    EXPECT_STREQ(done.error.get(), "err\n");
}

// A caller may release what it finds there when the run ends the process.
TEST(ForkCapture, BothTextsAreNullUntilTheRunEnds) {
    char stale = 'x';
    char* output = &stale;
    char* error = &stale;
    std::vector<bool> nulls;
    watchCall(Call::fork, [&] { nulls = {output == nullptr, error == nullptr}; });
    const ArgVector arguments{"true"};
    fork_execv_getouterr(&output, &error, "/bin/true", arguments.data());
    EXPECT_EQ(nulls, (std::vector<bool>{true, true}));
    std::free(std::exchange(output, &stale));
    std::free(error);
    fork_execv_getout(&output, "/bin/true", arguments.data());
    EXPECT_TRUE(nulls[0]);
    std::free(output);
    watchCall(Call::fork, {});
}

TEST(ForkCapture, NothingPrintedGivesEmptyTexts) {
    const Finished done = shell("exit 0");
    EXPECT_EQ(done.result, 0);
    EXPECT_STREQ(done.output.get(), "");
    EXPECT_STREQ(done.error.get(), "");
}

TEST(ForkCapture, LongOutputOnBothStreamsDoesNotDeadlock) {
    const Finished done =
        shell("head -c 300000 /dev/zero | tr '\\0' e >&2; head -c 200000 /dev/zero | tr '\\0' o");
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(std::string(done.output.get()), std::string(200000, 'o'));
    EXPECT_EQ(std::string(done.error.get()), std::string(300000, 'e'));
}

TEST(ForkCapture, TheChildReadsTheUtilitysOwnInput) {
    const ChildOutcome result = runForked([] {
        int ends[2] = {-1, -1};
        if (::pipe(ends) != 0 || ::write(ends[1], "given\n", 6) != 6) {
            return 1;
        }
        ::close(ends[1]);
        ::dup2(ends[0], STDIN_FILENO);
        return std::string(run("/bin/cat", {"cat"}).output.get()) == "given\n" ? 42 : 2;
    });
    EXPECT_EQ(result.exitStatus(), 42);
}

TEST(ForkCapture, AKilledChildGivesMinus1) {
    EXPECT_EQ(shell("kill -KILL $$").result, -1);
    EXPECT_EQ(shell("kill -PIPE $$").result, -1);
}

TEST(ForkCapture, AMissingProgramGives255AndItsReason) {
    const Finished done = run("/no/such/program", {"/no/such/program"});
    EXPECT_EQ(done.result, 255);
    EXPECT_STREQ(done.error.get(),
                 "fork_execv: execv(\"/no/such/program\") failed: No such file or directory\n");
    EXPECT_STREQ(done.output.get(), "");
}

TEST(ForkCapture, AProgramWithoutASlashIsNotFound) {
    EXPECT_EQ(run("true", {"true"}).result, 255);
}

TEST(ForkCapture, AChildThatClosesItsOutputsIsWaitedFor) {
    const Finished done = shell("exec >&- 2>&-; sleep 2; exit 7");
    EXPECT_EQ(done.result, 7);
    EXPECT_GE(done.took, milliseconds(1900));
}

TEST(ForkCapture, AChildThatIsQuietForLongIsWaitedFor) {
    const Finished done = shell("echo early; sleep 2.2; echo late; exit 3");
    EXPECT_EQ(done.result, 3);
    EXPECT_STREQ(done.output.get(), "early\nlate\n");
}

TEST(ForkCapture, AProcessLeftBehindDoesNotHoldTheUtility) {
    const Finished done = shell("sleep 60 & echo $!; exit 4");
    EXPECT_EQ(done.result, 4);
    EXPECT_LT(done.took, milliseconds(3000));
    EXPECT_FALSE(hasChildren());
    endLeftBehind(done);
}

TEST(ForkCapture, AKilledChildWithAProcessLeftBehindGivesMinus1) {
    const Finished done = shell("sleep 60 & echo $!; kill -KILL $$");
    EXPECT_EQ(done.result, -1);
    endLeftBehind(done);
}

TEST(ForkCapture, AQuietSecondWhoseWaitFailsGivesMinus1) {
    failCall(Call::waitpid, ECHILD);
    const Finished done = shell("sleep 1.5");
    EXPECT_EQ(done.result, -1);
    EXPECT_EQ(callsOf(Call::waitpid), 1);
    stopFailing(Call::waitpid);
    EXPECT_NE(::waitpid(-1, nullptr, 0), -1);
}

TEST(ForkCapture, AnIgnoredSigchldDoesNotLoseTheStatus) {
    const ChildOutcome result = runForked([] {
        std::signal(SIGCHLD, SIG_IGN);
        return shell("exit 7").result;
    });
    EXPECT_EQ(result.exitStatus(), 7);
}

TEST(ForkCapture, DescriptorsBeyondASelectSetAreRead) {
    const ChildOutcome result = runForked([] {
        if (!setDescriptorLimit(4000)) {
            return 1;
        }
        openMore(1500);
        const Finished done = shell("echo out; exit 7");
        return done.result == 7 && std::string(done.output.get()) == "out\n" ? 42 : 2;
    });
    EXPECT_EQ(result.exitStatus(), 42) << result.error;
}

TEST(ForkCapture, LeavesNoDescriptorAndNoChild) {
    const std::set<std::string> before = openDescriptors();
    shell("echo out");
    run("/no/such/program", {"x"});
    endLeftBehind(shell("sleep 60 & echo $!"));
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(hasChildren());
}

TEST(ForkCapture, AFailedPipeEndsTheProcess) {
    for (const int passFirst : {0, 1}) {
        const ChildOutcome result = runForked([passFirst] {
            failCall(Call::pipe, EMFILE, {.skip = passFirst});
            return shell("true").result;
        });
        EXPECT_EQ(result.exitStatus(), 1);
        EXPECT_EQ(result.error,
                  "fork_execv_getouterr: pipe() failed\nSystem error 24: Too many open files\n");
        EXPECT_EQ(result.output, result.error);
    }
}

TEST(ForkCapture, StandardOutputAloneLeavesStandardErrorToTheUtility) {
    const CapturedStreams captured;
    const ArgVector arguments{"sh", "-c", "echo out; echo err >&2; exit 7"};
    char* output = nullptr;
    EXPECT_EQ(fork_execv_getout(&output, "/bin/sh", arguments.data()), 7);
    const CText text(output);
    EXPECT_STREQ(text.get(), "out\n");
    EXPECT_EQ(captured.error(), "err\n");
    EXPECT_EQ(captured.output(), "");
}

} // namespace

} // namespace quelm::test

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
        watchSelect({});
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
    std::vector<long> timeouts; // microseconds
    watchSelect([&timeouts](int, fd_set*, fd_set*, const timeval* timeout) {
        timeouts.push_back(timeout->tv_sec * 1000000 + timeout->tv_usec);
        return std::nullopt;
    });
    EXPECT_EQ(shell("echo a; sleep 0.3; echo b; sleep 0.3; echo c"), 0);
    EXPECT_GE(timeouts.size(), 3U);
    EXPECT_EQ(std::count(timeouts.begin(), timeouts.end(), 1000000),
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
    int looked = 0;
    watchSelect([&](int width, const fd_set* reading, fd_set*, timeval*) {
        for (int end = 0; end < width && looked < 2; ++end) {
            if (FD_ISSET(end, reading)) {
                ++looked;
                blocking += (::fcntl(end, F_GETFL) & O_NONBLOCK) == 0 ? 1 : 0;
            }
        }
        return std::nullopt;
    });
    EXPECT_EQ(shell("echo out; echo err >&2"), 0);
    EXPECT_EQ(looked, 2);
    EXPECT_EQ(blocking, 0);
}

TEST_F(ForkCapturePoll, AnEndThatCannotBeMadeNonBlockingEndsTheProcess) {
    for (int call = 0; call < 4; ++call) { // each of the two has its flags read and then set
        const ChildOutcome result = runForked([this, call] {
            failCall(Call::fcntl, EPERM, {.skip = call});
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
    watchSelect([&readsBefore](int, fd_set*, fd_set*, timeval*) {
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
    failCall(Call::select, EINTR, {.times = 1});
    EXPECT_EQ(shell("sleep 0.3; echo out; exit 7"), 7);
    EXPECT_GE(callsOf(Call::waitpid), 2); // after the failure, and at the end
    EXPECT_STREQ(output.get(), "out\n");
}

TEST_F(ForkCapturePoll, AFailedPollThatFindsTheChildEndedEndsTheRun) {
    countCalls(Call::waitpid);
    watchSelect([](int, fd_set*, fd_set*, timeval*) {
        awaitEnd();
        return std::nullopt;
    });
    failCall(Call::select, EBADF);
    EXPECT_EQ(shell("echo out; exit 7"), 7);
    stopFailing(Call::select);
    EXPECT_EQ(callsOf(Call::select), 1);
    EXPECT_EQ(callsOf(Call::waitpid), 1);
}

TEST_F(ForkCapturePoll, AQuietSecondThatFindsTheChildEndedLeavesThePipesUnread) {
    countCalls(Call::read);
    countCalls(Call::waitpid);
    watchSelect([](int, fd_set*, fd_set*, timeval*) {
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

namespace quelm::test {

namespace {

int shell(const std::string& script, bool quiet) {
    const ArgVector arguments{"sh", "-c", script};
    return exec_and_report("/bin/sh", arguments.data(), quiet);
}

TEST(ExecReport, ASuccessIsSilent) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("echo out; echo err >&2", false), 0);
    EXPECT_EQ(captured.output(), "");
    EXPECT_EQ(captured.error(), "");
}

TEST(ExecReport, AQuietFailureIsSilent) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("echo out; echo err >&2; exit 3", true), 3);
    EXPECT_EQ(captured.output(), "");
    EXPECT_EQ(captured.error(), "");
}

TEST(ExecReport, StandardOutputComesFirstOnStandardError) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("echo out; echo err >&2; exit 3", false), 3);
    EXPECT_EQ(captured.error(), "out\n/bin/sh execution failed:\nerr\n");
    EXPECT_EQ(captured.output(), "/bin/sh execution failed:\nerr\n");
}

TEST(ExecReport, AMissingNewlineIsAdded) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("printf err >&2; exit 3", false), 3);
    EXPECT_EQ(captured.error(), "/bin/sh execution failed:\nerr\n");
}

TEST(ExecReport, AFailureWithoutOutput) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("exit 3", false), 3);
    EXPECT_EQ(captured.error(), "/bin/sh execution failed (no output)\n");
    EXPECT_EQ(captured.output(), "/bin/sh execution failed (no output)\n");
}

TEST(ExecReport, StandardOutputAloneStillReadsNoOutput) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("echo out; exit 3", false), 3);
    EXPECT_EQ(captured.error(), "out\n/bin/sh execution failed (no output)\n");
}

TEST(ExecReport, NoNewlineIsAddedToStandardOutput) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("printf out; exit 3", false), 3);
    EXPECT_EQ(captured.error(), "out/bin/sh execution failed (no output)\n");
    EXPECT_EQ(captured.output(), "/bin/sh execution failed (no output)\n");
}

TEST(ExecReport, ATextThatStartsWithANulByteIsAnOutputAndPrintsNothing) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("printf 'a\\000b'; printf '\\000err' >&2; exit 3", false), 3);
    EXPECT_EQ(captured.error(), "a/bin/sh execution failed:\n");
    EXPECT_EQ(captured.output(), "/bin/sh execution failed:\n");
}

TEST(ExecReport, AKilledProgramIsReported) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("kill -KILL $$", false), -1);
    EXPECT_EQ(captured.error(), "/bin/sh execution failed (no output)\n");
}

TEST(ExecReport, AMissingProgramIsReportedWithItsReason) {
    const CapturedStreams captured;
    const ArgVector arguments{"/no/such/program"};
    EXPECT_EQ(exec_and_report("/no/such/program", arguments.data(), false), 255);
    EXPECT_EQ(captured.error(), "/no/such/program execution failed:\nfork_execv: execv(\"/no/such/program\") "
                                "failed: No such file or directory\n");
}

TEST(ExecReport, TheUtilitysNameStandsBefore) {
    const CapturedStreams captured;
    setProgramPath("/usr/bin/tamrix");
    EXPECT_EQ(shell("echo out; echo err >&2; exit 3", false), 3);
    setProgramPath(nullptr);
    EXPECT_EQ(captured.error(), "out\ntamrix: /bin/sh execution failed:\nerr\n");
    EXPECT_EQ(captured.output(), "tamrix: /bin/sh execution failed:\nerr\n");
}

// A child that is found ended by looking leaves errno as it was.
TEST(ExecReport, NoSystemErrorIsToldForAProgramsFailure) {
    const TempDir directory;
    const std::string pidFile = directory.path("left-behind");
    {
        const CapturedStreams captured;
        errno = EAGAIN;
        EXPECT_EQ(shell("echo err >&2; sleep 60 & echo $! > " + pidFile + "; exit 3", false), 3);
        EXPECT_EQ(captured.error(), "/bin/sh execution failed:\nerr\n");
    }
    EXPECT_EQ(::kill(std::stoi(readFile(pidFile)), SIGKILL), 0);
}

} // namespace

} // namespace quelm::test

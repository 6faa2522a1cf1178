#include "lib/process/lib/Capture.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <tuple>
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
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

class OutputBuffer : public testing::Test {
protected:
    OutputBuffer() { setNonBlocking(pipe->readEnd.get()); }

    void put(const std::string& text) {
        ASSERT_EQ(::write(pipe->writeEnd.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void putBytes(std::size_t count) { put(std::string(count, 'x')); }
    void readOnce() { quelm::readOnce(pipe->readEnd, buffer); }

    std::optional<Pipe> pipe = openPipe();
    ByteBuffer buffer;
};

TEST_F(OutputBuffer, HasNoBlockBeforeTheFirstReadAndATerminatedOneAfterIt) {
    EXPECT_EQ(buffer.capacity(), 0U);
    EXPECT_EQ(giveAway(buffer), nullptr);
    pipe->writeEnd.close();
    readOnce();
    EXPECT_FALSE(pipe->readEnd.isOpen());
    const CText text(giveAway(buffer));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text.get(), "");
}

TEST_F(OutputBuffer, OneReadTakesAllButTheTerminatorsByte) {
    putBytes(10000);
    for (const auto& [size, capacity] : {std::pair{4095U, 4096U}, {8191U, 8192U}, {10000U, 16384U}}) {
        readOnce();
        EXPECT_EQ(buffer.size(), size);
        EXPECT_EQ(buffer.capacity(), capacity);
    }
}

TEST_F(OutputBuffer, GrowsWhenNoMoreThan2048BytesAreFree) {
    putBytes(2047);
    readOnce();
    putBytes(1);
    readOnce();
    EXPECT_EQ(buffer.capacity(), 4096U);
    readOnce();
    EXPECT_EQ(buffer.capacity(), 8192U);
}

TEST_F(OutputBuffer, KeepsNulBytesAndStartsAnewAfterTheRelease) {
    put(std::string("a\0b", 3));
    readOnce();
    EXPECT_EQ(buffer.size(), 3U);
    const CText first(giveAway(buffer));
    EXPECT_EQ(buffer.size() + buffer.capacity(), 0U);
    putBytes(2);
    readOnce();
    const CText second(giveAway(buffer));
    EXPECT_EQ(std::string(first.get(), 4), std::string("a\0b\0", 4));
    EXPECT_STREQ(second.get(), "xx");
}

TEST_F(OutputBuffer, NothingToReadYetIsNoFailure) {
    const CapturedStreams captured;
    readOnce();
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_TRUE(pipe->readEnd.isOpen());
    EXPECT_EQ(captured.error(), "");
}

TEST_F(OutputBuffer, AFailedOrInterruptedReadIsPrintedAndClosesTheEnd) {
    for (const auto& [error, text] :
         {std::pair{EIO, "Input/output error"}, {EINTR, "Interrupted system call"}}) {
        pipe = openPipe();
        putBytes(3);
        const CapturedStreams captured;
        const FailedCall failing(Call::read, error);
        readOnce();
        EXPECT_EQ(callsOf(Call::read), 1);
        EXPECT_EQ(errno, 0);
        EXPECT_FALSE(pipe->readEnd.isOpen());
        EXPECT_EQ(captured.error(), std::string("fork_exec*: read(pipe) failed: ") + text + "\n");
        EXPECT_EQ(captured.output(), "");
    }
}

// fatal_message too takes its buffer from realloc; it is let through.
TEST_F(OutputBuffer, NoMemoryEndsTheProcess) {
    const ChildOutcome result = inChild([this] {
        failCall(Call::realloc, ENOMEM, {.times = 1});
        readOnce();
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Cannot allocate memory\nSystem error 12: Cannot allocate memory\n");
    EXPECT_EQ(result.output, result.error);
}

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

class ForkCapture : public testing::Test {
protected:
    void TearDown() override {
        conditions().onSelect = {};
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_FALSE(hasChildren());
    }
    const std::vector<int> before = openDescriptors();
};

TEST_F(ForkCapture, CollectsBothStreamsAndTheStatus) {
    for (const auto& [script, result, output, error] :
         {std::tuple{"echo out; echo err >&2; exit 7", 7, "out\n", "err\n"},
          {"exit 0", 0, "", ""},
          {"kill -KILL $$", -1, "", ""},
          {"kill -PIPE $$", -1, "", ""},
          {"exec >&- 2>&-; sleep 2; exit 7", 7, "", ""},
          {"echo early; sleep 2.2; echo late; exit 3", 3, "early\nlate\n", ""}}) {
        const Finished done = shell(script);
        EXPECT_EQ(done.result, result) << script;
        EXPECT_STREQ(done.output.get(), output);
        EXPECT_STREQ(done.error.get(), error);
    }
}

// A caller may release what it finds there when the run ends the process.
TEST_F(ForkCapture, BothTextsAreNullUntilTheRunEnds) {
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

TEST_F(ForkCapture, LongOutputOnBothStreamsDoesNotDeadlock) {
    const Finished done =
        shell("head -c 300000 /dev/zero | tr '\\0' e >&2; head -c 200000 /dev/zero | tr '\\0' o");
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(std::string(done.output.get()), std::string(200000, 'o'));
    EXPECT_EQ(std::string(done.error.get()), std::string(300000, 'e'));
}

TEST_F(ForkCapture, TheChildReadsTheUtilitysOwnInput) {
    EXPECT_TRUE(holdsInChild([] {
        const auto pipe = openPipe();
        (void)!::write(pipe->writeEnd.get(), "given\n", 6);
        ::dup2(pipe->readEnd.get(), STDIN_FILENO);
        return std::string(run("/usr/bin/head", {"head", "-1"}).output.get()) == "given\n";
    }));
}

TEST_F(ForkCapture, AMissingProgramGives255AndItsReasonAndPathIsNotSearched) {
    for (const std::string path : {"/no/such/program", "true"}) {
        const Finished done = run(path, {path});
        EXPECT_EQ(done.result, 255);
        EXPECT_EQ(std::string(done.error.get()),
                  "fork_execv: execv(\"" + path + "\") failed: No such file or directory\n");
        EXPECT_STREQ(done.output.get(), "");
    }
}

TEST_F(ForkCapture, AProcessLeftBehindDoesNotHoldTheUtility) {
    for (const auto& [ending, result] : {std::pair{"exit 4", 4}, {"kill -KILL $$", -1}}) {
        const Finished done = shell(std::string("sleep 60 & echo $!; ") + ending);
        EXPECT_EQ(done.result, result);
        EXPECT_LT(done.took, milliseconds(3000));
        EXPECT_FALSE(hasChildren());
        endLeftBehind(done);
    }
}

TEST_F(ForkCapture, AQuietSecondWhoseWaitFailsGivesMinus1) {
    failCall(Call::waitpid, ECHILD);
    const Finished done = shell("sleep 1.5");
    EXPECT_EQ(done.result, -1);
    EXPECT_EQ(callsOf(Call::waitpid), 1);
    stopFailing(Call::waitpid);
    EXPECT_NE(::waitpid(-1, nullptr, 0), -1);
}

TEST_F(ForkCapture, DescriptorsBeyondASelectSetAreRead) {
    EXPECT_TRUE(holdsInChild([] {
        setDescriptorLimit(4000);
        openMore(1500);
        const Finished done = shell("echo out; exit 7");
        return isOpen(1500) && done.result == 7 && std::string(done.output.get()) == "out\n";
    }));
}

TEST_F(ForkCapture, APipeThatCannotBeMadeEndsTheProcess) {
    const std::string pipe = "pipe() failed\nSystem error 24: Too many open files\n";
    const std::string flags = "fcntl(O_NONBLOCK) failed\nSystem error 24: Too many open files\n";
    // Each of the two has its flags read and then set.
    for (const auto& [call, skip, text] : {std::tuple{Call::pipe, 0, pipe},
                                           {Call::pipe, 1, pipe},
                                           {Call::fcntl, 0, flags},
                                           {Call::fcntl, 1, flags},
                                           {Call::fcntl, 2, flags},
                                           {Call::fcntl, 3, flags}}) {
        const ChildOutcome result = inChild([call = call, skip = skip] {
            failCall(call, EMFILE, {.skip = skip});
            shell("true");
        });
        EXPECT_EQ(result.exitStatus(), 1) << skip;
        EXPECT_EQ(result.error, "fork_execv_getouterr: " + text);
        EXPECT_EQ(result.output, result.error);
    }
}

// Until the child has ended; it is left for the loop to find.
std::optional<int> awaitEnd() {
    siginfo_t ended{};
    EXPECT_EQ(::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
    return std::nullopt;
}

TEST_F(ForkCapture, ThePeriodIsOneSecondSetAnewOnEachPass) {
    std::vector<long> timeouts; // microseconds
    conditions().onSelect = [&timeouts](int, fd_set*, fd_set*, const timeval* timeout) {
        timeouts.push_back(timeout->tv_sec * 1000000 + timeout->tv_usec);
        return std::nullopt;
    };
    EXPECT_EQ(shell("echo a; sleep 0.3; echo b; sleep 0.3; echo c").result, 0);
    EXPECT_GE(timeouts.size(), 3U);
    EXPECT_EQ(timeouts, std::vector<long>(timeouts.size(), 1000000));
}

// The child is gone at once, but what comes within the second is still collected.
TEST_F(ForkCapture, WhatAProcessLeftBehindPrintsWithinTheSecondIsCollected) {
    const TempDir directory;
    const std::string pidFile = directory.path("pid");
    const Finished done = shell("(sleep 0.5; echo late; exec sleep 5) & echo $! >" + pidFile + "; exit 0");
    EXPECT_STREQ(done.output.get(), "late\n");
    EXPECT_EQ(::kill(std::stoi(readFile(pidFile)), SIGKILL), 0);
}

TEST_F(ForkCapture, BothReadEndsAreNonBlocking) {
    std::vector<bool> blocking;
    conditions().onSelect = [&](int width, const fd_set* reading, fd_set*, timeval*) {
        for (int end = 0; end < width && blocking.size() < 2; ++end) {
            if (FD_ISSET(end, reading)) {
                blocking.push_back((::fcntl(end, F_GETFL) & O_NONBLOCK) == 0);
            }
        }
        return std::nullopt;
    };
    shell("echo out; echo err >&2");
    EXPECT_EQ(blocking, (std::vector<bool>{false, false}));
}

// All of it is in the pipes when the first pass begins.
TEST_F(ForkCapture, EachReadableEndIsReadOncePerPass) {
    std::vector<int> readsBefore;
    conditions().onSelect = [&readsBefore](int, fd_set*, fd_set*, timeval*) {
        readsBefore.push_back(callsOf(Call::read));
        return awaitEnd();
    };
    countCalls(Call::read);
    const Finished done =
        shell("head -c 20000 /dev/zero | tr '\\0' o; head -c 3000 /dev/zero | tr '\\0' e >&2");
    // 4095, 4096, 8192 and 3617 bytes and the end there; 3000 bytes and the end here.
    EXPECT_EQ(readsBefore, (std::vector<int>{0, 2, 4, 5, 6}));
    EXPECT_EQ(callsOf(Call::read), 7);
    EXPECT_EQ(std::string(done.output.get()), std::string(20000, 'o'));
    EXPECT_EQ(std::string(done.error.get()), std::string(3000, 'e'));
}

TEST_F(ForkCapture, AFailedPollLooksAtTheChild) {
    countCalls(Call::waitpid);
    failCall(Call::select, EINTR, {.times = 1});
    const Finished done = shell("sleep 0.3; echo out; exit 7");
    EXPECT_EQ(done.result, 7);
    EXPECT_GE(callsOf(Call::waitpid), 2); // after the failure, and at the end
    EXPECT_STREQ(done.output.get(), "out\n");
}

TEST_F(ForkCapture, AFailedPollOrAQuietSecondThatFindsTheChildEndedLeavesThePipesUnread) {
    const std::optional<int> quietSecond = 0;
    for (const auto& answer : {std::optional<int>(), quietSecond}) {
        countCalls(Call::read);
        countCalls(Call::waitpid);
        conditions().onSelect = [answer](int, fd_set*, fd_set*, timeval*) {
            awaitEnd();
            return answer;
        };
        failCall(Call::select, EBADF);
        const Finished done = shell("echo out; echo err >&2; exit 7");
        stopFailing(Call::select);
        EXPECT_EQ(done.result, 7);
        EXPECT_EQ(callsOf(Call::select), answer ? 0 : 1);
        EXPECT_EQ(callsOf(Call::read), 0);
        EXPECT_EQ(callsOf(Call::waitpid), 1);
        EXPECT_EQ(done.output, nullptr);
        EXPECT_EQ(done.error, nullptr);
    }
}

struct Reported {
    int result;
    std::string output;
    std::string error;

    bool operator==(const Reported&) const = default;
};

Reported report(const std::string& script, bool quiet = false) {
    const CapturedStreams captured;
    const ArgVector arguments{"sh", "-c", script};
    const int result = exec_and_report("/bin/sh", arguments.data(), quiet);
    return {result, captured.output(), captured.error()};
}

TEST(ExecReport, OnlyAFailureIsReportedUnlessQuiet) {
    const std::string none = "/bin/sh execution failed (no output)\n";
    const std::string failed = "/bin/sh execution failed:\n";
    EXPECT_EQ(report("echo out; echo err >&2"), (Reported{0, "", ""}));
    EXPECT_EQ(report("echo out; echo err >&2; exit 3", true), (Reported{3, "", ""}));
    EXPECT_EQ(report("exit 3"), (Reported{3, none, none}));
    EXPECT_EQ(report("kill -KILL $$"), (Reported{-1, none, none}));
    EXPECT_EQ(report("echo out; exit 3"), (Reported{3, none, "out\n" + none}));
    EXPECT_EQ(report("printf out; exit 3"), (Reported{3, none, "out" + none}));
    EXPECT_EQ(report("printf err >&2; exit 3"), (Reported{3, failed + "err\n", failed + "err\n"}));
    EXPECT_EQ(report("echo out; echo err >&2; exit 3"),
              (Reported{3, failed + "err\n", "out\n" + failed + "err\n"}));
    // A text that starts with a NUL byte is an output and prints nothing.
    EXPECT_EQ(report("printf 'a\\000b'; printf '\\000err' >&2; exit 3"), (Reported{3, failed, "a" + failed}));
}

TEST(ExecReport, TheUtilitysNameStandsBefore) {
    setProgramPath("/usr/bin/tamrix");
    const Reported reported = report("echo out; echo err >&2; exit 3");
    setProgramPath(nullptr);
    EXPECT_EQ(reported, (Reported{3, "tamrix: /bin/sh execution failed:\nerr\n",
                                  "out\ntamrix: /bin/sh execution failed:\nerr\n"}));
}

// A child that is found ended by looking leaves errno as it was.
TEST(ExecReport, NoSystemErrorIsToldForAProgramsFailure) {
    const TempDir directory;
    const std::string pidFile = directory.path("left-behind");
    errno = EAGAIN;
    EXPECT_EQ(report("echo err >&2; sleep 60 & echo $! > " + pidFile + "; exit 3").error,
              "/bin/sh execution failed:\nerr\n");
    EXPECT_EQ(::kill(std::stoi(readFile(pidFile)), SIGKILL), 0);
}

} // namespace

} // namespace quelm::test

#include "lib/process/lib/PlainChild.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <iostream>
#include <optional>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/Log.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/Pipe.h"
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/ProcessState.h"

namespace quelm::test {

namespace {

int shell(const ChildDescriptors& given, const std::string& script) {
    const ArgVector arguments{"sh", "-c", script};
    int status = 0;
    const pid_t child = fork_execv_pipes(given.input, given.output, given.error, "/bin/sh", arguments.data());
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ForkPipes, DescriptorsInTheirPlacesAreLeftThereAndExchangedOnesAreExchanged) {
    const CapturedStreams captured;
    EXPECT_EQ(shell({0, 1, 2}, "echo out; echo err >&2; exit 7"), 7);
    EXPECT_EQ(shell({0, 2, 1}, "echo more; echo less >&2"), 0);
    EXPECT_EQ(captured.output(), "out\nless\n");
    EXPECT_EQ(captured.error(), "err\nmore\n");
}

TEST(ForkPipes, MinusOneIsDevNullForReadingAndWritingAlsoOnAClosedSlot) {
    for (const bool closed : {false, true}) {
        const ChildOutcome result = inChild([closed] {
            closeStandard(closed ? 1 : 0);
            return shell({-1, 1, 2}, "readlink /proc/self/fd/0") +
                   shell({-1, -1, -1}, "echo out; echo err >&2; test -z \"$(cat)\"");
        });
        EXPECT_EQ(result.exitStatus(), 0);
        EXPECT_EQ(result.output, "/dev/null\n");
        EXPECT_EQ(result.error, "");
    }
}

TEST(ForkPipes, OneDescriptorServesBothStreams) {
    const CapturedStreams captured;
    const int copy = ::dup(STDOUT_FILENO);
    EXPECT_EQ(shell({0, copy, copy}, "echo out; echo err >&2"), 0);
    EXPECT_EQ(shell({0, 1, 1}, "echo more; echo errors >&2"), 0);
    ::close(copy);
    EXPECT_EQ(captured.output(), "out\nerr\nmore\nerrors\n");
    EXPECT_EQ(captured.error(), "");
}

TEST(ForkPipes, InputAndOutputCanBeSwapped) {
    const ChildOutcome result = inChild([] {
        const std::optional<Pipe> pipe = openPipe();
        (void)!::write(pipe->writeEnd.get(), "text", 4);
        ::dup2(STDOUT_FILENO, STDIN_FILENO);
        ::dup2(pipe->readEnd.get(), STDOUT_FILENO);
        return shell({1, 0, 2}, "head -c 4");
    });
    EXPECT_EQ(result.exitStatus(), 0);
    EXPECT_EQ(result.output, "text");
}

TEST(ForkPipes, ACopyDoesNotLandOnAClosedSlot) {
    const ChildOutcome result = inChild([] {
        ::dup2(STDERR_FILENO, STDIN_FILENO);
        ::close(STDOUT_FILENO);
        return shell({-1, -1, 0}, "echo out; echo err >&2");
    });
    EXPECT_EQ(result.exitStatus(), 0);
    EXPECT_EQ(result.error, "err\n");
}

TEST(ForkPipes, PendingOutputIsPrintedOnceAndFirst) {
    const CapturedStreams captured;
    std::cout << "stream ";
    std::fputs("stdio ", stdout);
    EXPECT_EQ(shell({0, 1, 2}, "echo child"), 0);
    EXPECT_EQ(captured.output(), "stream stdio child\n");
}

TEST(ForkPipes, ADescriptorThatCannotBePlacedEndsWith255) {
    const CapturedStreams captured;
    EXPECT_EQ(shell({0, 900, 2}, "true"), 255);
    const FailedCall failing(Call::fcntl, EMFILE); // wanted for a swap
    EXPECT_EQ(shell({1, 0, 2}, "true"), 255);
    EXPECT_EQ(captured.error(), "fork_execv: dup() failed: Bad file descriptor\n"
                                "fork_execv: dup() failed: Too many open files\n");
}

TEST(ForkPipes, AFailedForkEndsTheProcess) {
    const ChildOutcome result = inChild([] {
        failCall(Call::fork, EAGAIN);
        return shell({0, 1, 2}, "true");
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "fork_execv_pipes: fork() failed\n"
                            "System error 11: Resource temporarily unavailable\n");
    EXPECT_EQ(result.output, result.error);
}

// The layout of the kernel: low seven bits 0 = exited, 0x7f = stopped, 0xffff = continued, else killed;
// bit 7 tells of a core file.
TEST(WaitStatus, IsDecoded) {
    struct Case {
        int status;
        Ending ending;
        int value;
        int exitCode;
    };
    for (const Case& row : {Case{0x0000, Ending::exited, 0, 0}, Case{0x0100, Ending::exited, 1, 1},
                            Case{0xff00, Ending::exited, 255, 255}, Case{0x0009, Ending::killed, 9, -1},
                            Case{0x008b, Ending::killed, 11, -1}, Case{0x137f, Ending::stopped, 19, -1},
                            Case{0xffff, Ending::continued, 0, -1}}) {
        const WaitStatus decoded = decodeWaitStatus(row.status);
        EXPECT_EQ(decoded.ending, row.ending) << row.status;
        EXPECT_EQ(decoded.value, row.value);
        EXPECT_EQ(decoded.exitCode(), row.exitCode);
    }
}

constexpr int logErrors = 3;
constexpr int logWarnings = 4;

void logToStandardError(unsigned threshold) {
    log_init("stderr", threshold, 8, 0, nullptr);
}

pid_t forkChild(const std::function<void()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        body();
        ::_exit(0);
    }
    return child;
}

std::string about(pid_t child) {
    return "waitpid(" + std::to_string(child) + ")=" + std::to_string(child) + ": process 'tool' ";
}

const std::string notOurs =
    "waitpid(" + std::to_string(::getpid()) + ") for 'tool' process failed: No child processes (10)\n";

class ForkExecWait : public testing::Test {
protected:
    ForkExecWait() { logToStandardError(logWarnings); }

    CapturedStreams captured;
};

TEST_F(ForkExecWait, AnExitIsReturnedAndNotLogged) {
    int status = -1;
    errno = ENOENT;
    EXPECT_EQ(fork_exec_wait(forkChild([] { ::_exit(7); }), "tool", &status), 7);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(status, 7 << 8);
    EXPECT_EQ(captured.error() + captured.output(), "");
}

TEST_F(ForkExecWait, AFailedForkIsLoggedAlsoWithoutAName) {
    int status = 99;
    EXPECT_EQ(fork_exec_wait(-1, "tool", &status), -1);
    EXPECT_EQ(status, 99);
    EXPECT_EQ(fork_exec_wait(-1, nullptr), -1);
    EXPECT_EQ(captured.error(),
              "fork before spawning 'tool' failed\nfork before spawning '<unknown>' failed\n");
}

TEST_F(ForkExecWait, AFailedWaitIsLoggedAndNotRepeated) {
    EXPECT_EQ(fork_exec_wait(::getpid(), "tool"), -1);
    EXPECT_EQ(errno, ECHILD);
    failCall(Call::waitpid, EINTR);
    EXPECT_EQ(fork_exec_wait(77, "tool"), -1);
    EXPECT_EQ(callsOf(Call::waitpid), 1);
    stopFailing(Call::waitpid);
    EXPECT_EQ(captured.error(),
              notOurs + "waitpid(77) for 'tool' process failed: Interrupted system call (4)\n");
}

TEST_F(ForkExecWait, OtherEndingsAreLogged) {
    const pid_t killed = forkChild([] { ::raise(SIGKILL); });
    EXPECT_EQ(fork_exec_wait(killed, "tool"), -1);
    conditions().waitAnswer = {77, 0xffff};
    EXPECT_EQ(fork_exec_wait(77, "tool"), -1);
    conditions().waitAnswer = {0, 0};
    EXPECT_EQ(fork_exec_wait(77, "tool"), -1);
    EXPECT_EQ(captured.error(), about(killed) + "killed by signal 9\n" + about(77) + "continued\n" +
                                    "waitpid(77) for 'tool' process returned unexpected 0 code\n");
}

TEST_F(ForkExecWait, AStoppedChildIsLeftStopped) {
    const pid_t child = forkChild([] { ::raise(SIGSTOP); });
    int status = 0;
    EXPECT_EQ(fork_exec_wait(child, "tool", &status), -1);
    EXPECT_TRUE(WIFSTOPPED(status));
    EXPECT_EQ(captured.error(), about(child) + "stopped by signal 19\n");
    ::kill(child, SIGKILL);
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
}

TEST_F(ForkExecWait, SignalsAreWarningsAndFailuresErrors) {
    const auto waitForAll = [] {
        fork_exec_wait(forkChild([] { ::raise(SIGKILL); }), "tool");
        for (const auto& answer : {std::pair<pid_t, int>{77, 0x137f}, {77, 0xffff}, {0, 0}}) {
            conditions().waitAnswer = answer;
            fork_exec_wait(77, "tool");
        }
        fork_exec_wait(-1, "tool");
        fork_exec_wait(::getpid(), "tool");
    };
    logToStandardError(logErrors - 1);
    waitForAll();
    EXPECT_EQ(captured.error(), "");
    logToStandardError(logErrors);
    waitForAll();
    EXPECT_EQ(captured.error(), "waitpid(77) for 'tool' process returned unexpected 0 code\n"
                                "fork before spawning 'tool' failed\n" +
                                    notOurs);
}

TEST(WaitUninterrupted, IsRepeatedAfterASignal) {
    const pid_t child = forkChild([] { ::_exit(5); });
    failCall(Call::waitpid, EINTR, {.times = 1});
    int status = 0;
    EXPECT_EQ(waitUninterrupted(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 5);
}

} // namespace

} // namespace quelm::test

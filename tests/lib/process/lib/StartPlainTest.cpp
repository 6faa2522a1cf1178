#include "lib/process/lib/PlainChild.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <optional>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/Pipe.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/DescriptorTable.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"

namespace quelm::test {

namespace {

int statusOf(pid_t child) {
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int shell(int input, int output, int error, const std::string& script) {
    const ArgVector arguments{"sh", "-c", script};
    return statusOf(fork_execv_pipes(input, output, error, "/bin/sh", arguments.data()));
}

TEST(ForkPipes, TheOwnDescriptorsAreLeftWhereTheyStand) {
    const CapturedStreams captured;
    EXPECT_EQ(shell(0, 1, 2, "echo out; echo err >&2; exit 7"), 7);
    EXPECT_EQ(captured.output(), "out\n");
    EXPECT_EQ(captured.error(), "err\n");
}

TEST(ForkPipes, MinusOneIsDevNullForReadingAndWriting) {
    const CapturedStreams captured;
    EXPECT_EQ(shell(-1, 1, 2, "readlink /proc/self/fd/0"), 0);
    EXPECT_EQ(shell(-1, -1, -1, "echo out; echo err >&2; test -z \"$(cat)\""), 0);
    EXPECT_EQ(captured.output(), "/dev/null\n");
    EXPECT_EQ(captured.error(), "");
}

TEST(ForkPipes, AClosedSlotTakesDevNull) {
    const ChildOutcome result = runForked([] {
        ::close(STDIN_FILENO);
        return shell(-1, 1, 2, "readlink /proc/self/fd/0");
    });
    EXPECT_EQ(result.exitStatus(), 0);
    EXPECT_EQ(result.output, "/dev/null\n");
}

TEST(ForkPipes, OneDescriptorServesBothStreams) {
    const CapturedStreams captured;
    const int copy = ::dup(STDOUT_FILENO);
    EXPECT_EQ(shell(0, copy, copy, "echo out; echo err >&2"), 0);
    EXPECT_EQ(shell(0, 1, 1, "echo more; echo errors >&2"), 0);
    ::close(copy);
    EXPECT_EQ(captured.output(), "out\nerr\nmore\nerrors\n");
    EXPECT_EQ(captured.error(), "");
}

TEST(ForkPipes, StreamsThatOccupyEachOthersSlotsAreExchanged) {
    const CapturedStreams captured;
    EXPECT_EQ(shell(0, 2, 1, "echo out; echo err >&2"), 0);
    EXPECT_EQ(captured.output(), "err\n");
    EXPECT_EQ(captured.error(), "out\n");
}

TEST(ForkPipes, NothingElseIsInherited) {
    const ChildOutcome result = runForked([] {
        openMore(300);
        const ArgVector arguments{"ls", "/proc/self/fd"};
        return statusOf(fork_execv_pipes(0, 1, 2, "/bin/ls", arguments.data()));
    });
    EXPECT_EQ(result.output, "0\n1\n2\n3\n") << result.error; // 3 is the listed directory itself
}

TEST(ForkPipes, TheChildHasDefaultSignalsAndAnEmptyMask) {
    const ChildOutcome result = runForked([] {
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_IGN);
        sigset_t all;
        ::sigfillset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        const ArgVector arguments{"grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"};
        return statusOf(fork_execv_pipes(0, 1, 2, "/bin/grep", arguments.data()));
    });
    EXPECT_EQ(result.exitStatus(), 0) << result.error;
    EXPECT_EQ(result.output, "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

TEST(ForkPipes, PendingOutputIsPrintedOnceAndFirst) {
    const CapturedStreams captured;
    std::cout << "stream ";
    std::fputs("stdio ", stdout);
    EXPECT_EQ(shell(0, 1, 2, "echo child"), 0);
    EXPECT_EQ(captured.output(), "stream stdio child\n");
}

TEST(ForkPipes, AProgramThatCannotBeRunEndsWith255) {
    const CapturedStreams captured;
    const ArgVector arguments{"/no/such/program"};
    EXPECT_EQ(statusOf(fork_execv_pipes(0, 1, 2, "/no/such/program", arguments.data())), 255);
    EXPECT_EQ(captured.error(),
              "fork_execv: execv(\"/no/such/program\") failed: No such file or directory\n");
    EXPECT_EQ(captured.output(), "");
}

TEST(ForkPipes, AProgramIsNotSearchedAlongPath) {
    const CapturedStreams captured;
    const ArgVector arguments{"true"};
    EXPECT_EQ(statusOf(fork_execv_pipes(0, 1, 2, "true", arguments.data())), 255);
    EXPECT_EQ(captured.error(), "fork_execv: execv(\"true\") failed: No such file or directory\n");
}

TEST(ForkPipes, ADescriptorThatIsNotOpenEndsWith255) {
    const CapturedStreams captured;
    const ArgVector arguments{"true"};
    EXPECT_EQ(statusOf(fork_execv_pipes(0, 900, 2, "/bin/true", arguments.data())), 255);
    EXPECT_EQ(captured.error(), "fork_execv: dup() failed: Bad file descriptor\n");
}

TEST(ForkPipes, InputAndOutputCanBeSwapped) {
    const ChildOutcome result = runForked([] {
        const std::optional<Pipe> pipe = openPipe();
        (void)!::write(pipe->writeEnd.get(), "text", 4);
        ::dup2(STDOUT_FILENO, STDIN_FILENO);
        ::dup2(pipe->readEnd.get(), STDOUT_FILENO);
        return shell(1, 0, 2, "head -c 4");
    });
    EXPECT_EQ(result.exitStatus(), 0);
    EXPECT_EQ(result.output, "text");
}

TEST(ForkPipes, ACopyDoesNotLandOnAClosedSlot) {
    const ChildOutcome result = runForked([] {
        ::dup2(STDERR_FILENO, STDIN_FILENO);
        ::close(STDOUT_FILENO);
        return shell(-1, -1, 0, "echo out; echo err >&2");
    });
    EXPECT_EQ(result.exitStatus(), 0);
    EXPECT_EQ(result.error, "err\n");
}

TEST(ForkPipes, WithoutADescriptorToSwapByTheChildEndsWith255) {
    const CapturedStreams captured;
    const FailedCall failing(Call::fcntl, EMFILE);
    const ArgVector arguments{"true"};
    EXPECT_EQ(statusOf(fork_execv_pipes(1, 0, 2, "/bin/true", arguments.data())), 255);
    EXPECT_EQ(captured.error(), "fork_execv: dup() failed: Too many open files\n");
}

TEST(ForkPipes, AFailedForkEndsTheProcess) {
    const ChildOutcome result = runForked([] {
        failCall(Call::fork, EAGAIN);
        return shell(0, 1, 2, "true");
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "fork_execv_pipes: fork() failed\n"
                            "System error 11: Resource temporarily unavailable\n");
    EXPECT_EQ(result.output, result.error);
}

} // namespace

} // namespace quelm::test

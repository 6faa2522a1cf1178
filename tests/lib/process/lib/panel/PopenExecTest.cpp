#include "lib/process/lib/panel/Runners.h"

#include <cerrno>
#include <csignal>
#include <iostream>
#include <string>
#include <vector>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include "lib/process/lib/Capture.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/DescriptorTable.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"
#include "tests/support/ProcessState.h"

namespace quelm::test {

namespace {

struct Collected {
    int result = 0;
    PopenFailure failure = PopenFailure::none;
    CText output;
};

Collected collect(const std::string& command) {
    Collected collected;
    char stale = 'x';
    char* output = &stale;
    collected.result = popen_exec(command.c_str(), &output, &collected.failure);
    collected.output.reset(output);
    return collected;
}

int report(const std::string& command) {
    char* output = nullptr;
    const int result = popen_exec_report(command.c_str(), &output);
    const CText released(output);
    return result;
}

TEST(ExecWithInput, TheCommandReadsTheText) {
    const CapturedStreams captured;
    EXPECT_EQ(exec_with_input("cat; exit 7", "some\ntext"), 7);
    EXPECT_EQ(captured.output(), "some\ntext");
    EXPECT_EQ(captured.error(), "");
}

TEST(ExecWithInput, TextWithNulBytesAndBeyondThePipesSize) {
    const CapturedStreams captured;
    std::string text(300000, 'x');
    text[5] = '\0';
    EXPECT_EQ(exec_with_input("wc -c", text), 0);
    EXPECT_EQ(captured.output(), "300000\n");
}

// The signal meets us when the pipe is full, and the write answers with what it took.
TEST(ExecWithInput, AnInterruptedWriteGoesOnBehindWhatWasTaken) {
    const ChildOutcome result = runForked([] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        ::sigaction(SIGUSR1, &action, nullptr);
        std::string text(299999, 'x');
        text += 'y';
        return exec_with_input("sleep 0.2; kill -USR1 $PPID; sleep 0.1; tr -s x | wc -c", text);
    });
    EXPECT_EQ(result.exitStatus(), 0);
    EXPECT_EQ(result.output, "2\n");
}

TEST(ExecWithInput, AnEmptyTextIsEndOfFileAtOnce) {
    const CapturedStreams captured;
    EXPECT_EQ(exec_with_input("cat", ""), 0);
    EXPECT_EQ(captured.error(), "");
}

TEST(ExecWithInput, AKilledCommandGivesMinus1) {
    EXPECT_EQ(exec_with_input("cat > /dev/null; kill -KILL $$", "x"), -1);
}

TEST(ExecWithInput, ACommandThatCannotBeStarted) {
    for (const Call call : {Call::pipe, Call::fork}) {
        const CapturedStreams captured;
        const FailedCall failing(call, EMFILE);
        EXPECT_EQ(exec_with_input("cat", "x"), -1);
        EXPECT_EQ(captured.error(),
                  "Failed to execute command with input: either pipe, fork or memory allocation failed.\n");
        EXPECT_EQ(captured.output(), "");
    }
}

// The pipe holds 65536 bytes that nobody reads; the next write finds it broken.
TEST(ExecWithInput, ACommandThatStopsReadingGivesAShortWriteAndNoSignal) {
    const CapturedStreams captured;
    EXPECT_EQ(exec_with_input("sleep 0.3; exit 0", std::string(100000, 'x')), -1);
    EXPECT_EQ(captured.error(),
              "Failed to execute command with input: only 65536 of 100000 bytes were written.\n");
    EXPECT_NE(std::signal(SIGPIPE, SIG_DFL), SIG_IGN);
}

TEST(PopenExec, TheShellIsCalledSh) {
    EXPECT_STREQ(collect("echo $0").output.get(), "sh\n");
}

TEST(PopenExec, CollectsTheOutputAndTheStatus) {
    const CapturedStreams captured;
    const Collected collected = collect("echo out; echo err >&2; exit 7");
    EXPECT_EQ(collected.result, 7);
    EXPECT_EQ(collected.failure, PopenFailure::none);
    EXPECT_STREQ(collected.output.get(), "out\n");
    EXPECT_EQ(captured.error(), "err\n");
}

TEST(PopenExec, TheFailureNeedNotBeAskedFor) {
    char* output = nullptr;
    EXPECT_EQ(popen_exec("exit 3", &output), 3);
    const CText released(output);
    EXPECT_STREQ(output, "");
}

TEST(PopenExec, OutputsAroundTheBuffersSizes) {
    for (const std::size_t size : {0U, 1U, 4094U, 4095U, 4096U, 8190U, 8191U, 8192U, 200000U}) {
        const Collected collected = collect("head -c " + std::to_string(size) + " /dev/zero | tr '\\0' x");
        EXPECT_EQ(collected.result, 0);
        EXPECT_EQ(std::string(collected.output.get()), std::string(size, 'x'));
    }
}

TEST(PopenExec, AKilledCommandGivesMinus1) {
    EXPECT_EQ(collect("kill -KILL $$").result, -1);
}

TEST(PopenExec, AnUnknownCommandGivesTheShells127) {
    EXPECT_EQ(collect("no-such-command 2>/dev/null").result, 127);
}

TEST(PopenExec, AnIgnoredSigchldDoesNotLoseTheStatus) {
    const ChildOutcome result = runForked([] {
        std::signal(SIGCHLD, SIG_IGN);
        return collect("exit 7").result;
    });
    EXPECT_EQ(result.exitStatus(), 7);
}

TEST(PopenExec, TheCommandHasTheDefaultSigpipe) {
    const ChildOutcome result = runForked([] {
        std::signal(SIGPIPE, SIG_IGN);
        const bool killed = collect("kill -PIPE $$").result == -1;
        return killed && std::signal(SIGPIPE, SIG_DFL) == SIG_IGN ? 42 : 1;
    });
    EXPECT_EQ(result.exitStatus(), 42);
}

void blockSigterm() {
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
}

// A shell empties its own mask, so another program has to look at what it is given.
const std::vector<std::string> showSignals{"/bin/grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"};
constexpr const char* noSignals = "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n";

TEST(PopenExec, TheCommandHasDefaultSignalsAndAnEmptyMask) {
    const ChildOutcome result = runForked([] {
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_IGN);
        blockSigterm();
        replaceExecv(showSignals);
        const Collected collected = collect("echo not replaced");
        std::cout << collected.output.get();
        return collected.result;
    });
    EXPECT_EQ(result.exitStatus(), 0) << result.error;
    EXPECT_EQ(result.output, noSignals);
}

TEST(ExecWithInput, TheCommandHasDefaultSignalsAndAnEmptyMask) {
    const ChildOutcome result = runForked([] {
        std::signal(SIGPIPE, SIG_IGN);
        blockSigterm();
        replaceExecv(showSignals);
        return exec_with_input("echo not replaced", "");
    });
    EXPECT_EQ(result.exitStatus(), 0) << result.error;
    EXPECT_EQ(result.output, noSignals);
}

TEST(PopenExec, ASignalThatWaitsForTheUtilityGoesOnWaiting) {
    const ChildOutcome result = runForked([] {
        blockSigterm();
        ::raise(SIGTERM);
        collect("true");
        exec_with_input("cat", "");
        sigset_t pending;
        ::sigpending(&pending);
        return ::sigismember(&pending, SIGTERM) == 1 ? 42 : 1;
    });
    EXPECT_EQ(result.exitStatus(), 42);
}

TEST(PopenExec, ACommandThatBeginsWithADashIsNoOptionOfTheShell) {
    const CapturedStreams captured;
    EXPECT_EQ(collect("-x/no-such-command").result, 127);
    EXPECT_NE(captured.error().find("-x/no-such-command: not found"), std::string::npos);
}

TEST(PopenExec, TheCommandHasNothingElseOpen) {
    const ChildOutcome result = runForked([] {
        openMore(30);
        const Collected collected = collect("ls /proc/self/fd");
        std::cout << collected.output.get();
        return exec_with_input("ls /proc/self/fd", "");
    });
    EXPECT_EQ(result.output, "0\n1\n2\n3\n0\n1\n2\n3\n"); // 3 is the listed directory itself
}

TEST(PopenExec, AnInterruptedReadIsRepeated) {
    failCall(Call::read, EINTR, {.times = 1});
    EXPECT_STREQ(collect("echo out").output.get(), "out\n");
}

TEST(PopenExec, PendingOutputIsPrintedFirst) {
    const CapturedStreams captured;
    std::cout << "before ";
    char* output = nullptr;
    popen_exec("echo child >&2", &output);
    const CText released(output);
    EXPECT_EQ(captured.output(), "before ");
}

TEST(PopenExec, LeavesNoDescriptorAndNoChild) {
    const std::set<std::string> before = openDescriptors();
    collect("echo out");
    exec_with_input("cat > /dev/null", "x");
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(hasChildren());
}

TEST(PopenExecReport, ASuccessIsSilent) {
    const CapturedStreams captured;
    EXPECT_EQ(report("echo out"), 0);
    EXPECT_EQ(captured.error(), "");
    EXPECT_EQ(captured.output(), "");
}

TEST(PopenExecReport, AFailedCommandIsToldWithItsOutput) {
    const CapturedStreams captured;
    EXPECT_EQ(report("echo broken 2>&1; exit 7"), 7);
    EXPECT_EQ(captured.error(), "popen_exec: command failed code: 7 , broken\n\n");
    EXPECT_EQ(captured.output(), "");
}

TEST(PopenExecReport, AFailedCommandWithoutOutputReadsErrorNone) {
    const CapturedStreams captured;
    EXPECT_EQ(report("exit 7"), 7);
    EXPECT_EQ(report("kill -KILL $$"), -1);
    EXPECT_EQ(captured.error(), "popen_exec: command failed code: 7 , error: none\n"
                                "popen_exec: command failed code: -1 , error: none\n");
}

TEST(PopenExecReport, ACommandThatCannotBeStartedWithoutAReason) {
    const CapturedStreams captured;
    const FailedCall failing(Call::pipe, 0);
    EXPECT_EQ(report("true"), -1);
    EXPECT_EQ(captured.error(), "popen_exec: failed to execute command: fork or pipe calls failed, or cannot "
                                "allocate memory\n");
}

TEST(PopenExecReport, ACommandThatCannotBeStartedWithAReason) {
    for (const Call call : {Call::pipe, Call::fork}) {
        const CapturedStreams captured;
        const FailedCall failing(call, EMFILE);
        EXPECT_EQ(report("true"), -1);
        EXPECT_EQ(captured.error(), "popen_exec: failed to execute command: Too many open files\n");
    }
}

TEST(PopenExecReport, ACommandThatCannotBeWaitedFor) {
    {
        const CapturedStreams captured;
        const FailedCall failing(Call::waitpid, ECHILD);
        EXPECT_EQ(report("true"), -1);
        EXPECT_EQ(captured.error(), "popen_exec: failed to execute command: No child processes\n");
    }
    EXPECT_GT(::waitpid(-1, nullptr, 0), 0);
}

TEST(PopenExecReport, NoMemoryForTheBufferStartsNothing) {
    const CapturedStreams captured;
    countCalls(Call::fork);
    const FailedCall failing(Call::realloc, ENOMEM);
    EXPECT_EQ(report("true"), -1);
    EXPECT_EQ(callsOf(Call::fork), 0);
    EXPECT_EQ(captured.error(), "popen_exec: failed to allocate memory\n");
}

TEST(PopenExecReport, ABufferThatCannotGrowCutsTheOutputAndLetsTheCommandEnd) {
    const CapturedStreams captured;
    const FailedCall failing(Call::realloc, ENOMEM, {.skip = 1});
    char* output = nullptr;
    EXPECT_EQ(popen_exec_report("head -c 200000 /dev/zero | tr '\\0' x && exit 0", &output), 0);
    const CText text(output);
    EXPECT_EQ(std::string(text.get()), std::string(4095, 'x'));
    EXPECT_EQ(captured.error(), "popen_exec: warning: failed to allocate memory for command output buffer\n");
}

// An output that just fills the buffer needs no growth, whatever memory is left.
TEST(PopenExecReport, ABufferFilledToTheLastByteIsNotCut) {
    const CapturedStreams captured;
    const FailedCall failing(Call::realloc, ENOMEM, {.skip = 1});
    EXPECT_EQ(report("head -c 4095 /dev/zero | tr '\\0' x"), 0);
    EXPECT_EQ(captured.error(), "");
}

} // namespace

} // namespace quelm::test

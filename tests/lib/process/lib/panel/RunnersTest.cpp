#include "lib/process/lib/panel/Runners.h"

#include <cerrno>
#include <csignal>
#include <iostream>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include "lib/process/lib/Capture.h"
#include "lib/process/lib/CmdLine.h"
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/ProcessState.h"

namespace quelm::test {

namespace {

// However a run ends, no descriptor and no child may be left.
class Runners : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_FALSE(hasChildren());
    }
    const std::vector<int> before = openDescriptors();
};

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

void blockSigterm() {
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
}

TEST_F(Runners, FedCommandReadsTheText) {
    const CapturedStreams captured;
    EXPECT_EQ(exec_with_input("cat; exit 7", "some\ntext"), 7);
    EXPECT_EQ(exec_with_input("cat", ""), 0);
    std::string text(300000, 'x');
    text[5] = '\0';
    EXPECT_EQ(exec_with_input("wc -c", text), 0);
    EXPECT_EQ(exec_with_input("cat > /dev/null; kill -KILL $$", "x"), -1);
    EXPECT_EQ(captured.output(), "some\ntext300000\n");
    EXPECT_EQ(captured.error(), "");
}

// The signal meets us when the pipe is full, and the write answers with what it took.
TEST_F(Runners, FedCommandWhoseTextIsInterruptedGetsAllOfIt) {
    const ChildOutcome result = inChild([] {
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

TEST_F(Runners, FedCommandThatCannotBeStarted) {
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
TEST_F(Runners, FedCommandThatStopsReadingGivesAShortWriteAndNoSignal) {
    const CapturedStreams captured;
    EXPECT_EQ(exec_with_input("sleep 0.3; exit 0", std::string(100000, 'x')), -1);
    EXPECT_EQ(captured.error(),
              "Failed to execute command with input: only 65536 of 100000 bytes were written.\n");
    EXPECT_NE(std::signal(SIGPIPE, SIG_DFL), SIG_IGN);
}

TEST_F(Runners, ReadCommandGivesItsOutputAndStatus) {
    const CapturedStreams captured;
    std::cout << "before ";
    for (const auto& [command, result, output] :
         {std::tuple{"echo out; echo err >&2; exit 7", 7, "out\n"},
          {"echo $0", 0, "sh\n"},
          {"exit 3", 3, ""},
          {"kill -KILL $$", -1, ""},
          {"no-such-command 2>/dev/null", 127, ""},
          {"-x/no-such-command 2>/dev/null; exit 5", 5, ""}}) { // no option of the shell
        const Collected collected = collect(command);
        EXPECT_EQ(collected.result, result) << command;
        EXPECT_EQ(collected.failure, PopenFailure::none);
        EXPECT_STREQ(collected.output.get(), output);
    }
    char* output = nullptr; // the failure need not be asked for
    EXPECT_EQ(popen_exec("exit 3", &output), 3);
    const CText released(output);
    EXPECT_EQ(captured.error(), "err\n");
    EXPECT_EQ(captured.output(), "before ");
}

TEST_F(Runners, ReadCommandWithOutputsAroundTheBuffersSizes) {
    for (const std::size_t size : {0U, 1U, 4094U, 4095U, 4096U, 8190U, 8191U, 8192U, 200000U}) {
        const Collected collected = collect("head -c " + std::to_string(size) + " /dev/zero | tr '\\0' x");
        EXPECT_EQ(collected.result, 0);
        EXPECT_EQ(std::string(collected.output.get()), std::string(size, 'x'));
    }
}

TEST_F(Runners, ReadCommandWhoseReadIsInterruptedIsReadOn) {
    failCall(Call::read, EINTR, {.times = 1});
    EXPECT_STREQ(collect("echo out").output.get(), "out\n");
}

// A shell empties its own mask, so another program has to look at what it is given.
TEST_F(Runners, CommandsHaveDefaultSignalsAndAnEmptyMask) {
    const ChildOutcome result = inChild([] {
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_IGN);
        blockSigterm();
        conditions().execInstead = {"/bin/grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"};
        std::cout << collect("echo not replaced").output.get();
        std::signal(SIGCHLD, SIG_IGN);
        exec_with_input("echo not replaced", "");
        return std::signal(SIGPIPE, SIG_DFL) == SIG_IGN ? 42 : 1;
    });
    EXPECT_EQ(result.exitStatus(), 42);
    // The C library's own two signals are ignored in whatever posix_spawn() started: under make, say.
    const std::regex none("(SigBlk:\t0{16}\nSigIgn:\t0{7}[01][08]0{7}\n){2}");
    EXPECT_TRUE(std::regex_match(result.output, none)) << result.output;
}

TEST_F(Runners, ASignalThatWaitsForTheUtilityGoesOnWaitingAndAnIgnoredSigchldLosesNoStatus) {
    EXPECT_TRUE(holdsInChild([] {
        blockSigterm();
        ::raise(SIGTERM);
        std::signal(SIGCHLD, SIG_IGN);
        const bool collected = collect("exit 7").result == 7;
        exec_with_input("cat", "");
        sigset_t pending;
        ::sigpending(&pending);
        return collected && ::sigismember(&pending, SIGTERM) == 1;
    }));
}

TEST_F(Runners, CommandsHaveNothingElseOpen) {
    const ChildOutcome result = inChild([] {
        openMore(30);
        std::cout << collect("ls /proc/self/fd").output.get();
        return exec_with_input("ls /proc/self/fd", "");
    });
    EXPECT_EQ(result.output, "0\n1\n2\n3\n0\n1\n2\n3\n"); // 3 is the listed directory itself
}

int report(const std::string& command) {
    char* output = nullptr;
    const int result = popen_exec_report(command.c_str(), &output);
    const CText released(output);
    return result;
}

TEST_F(Runners, ReadCommandThatFailsIsTold) {
    const CapturedStreams captured;
    EXPECT_EQ(report("echo out"), 0);
    EXPECT_EQ(report("echo broken 2>&1; exit 7"), 7);
    EXPECT_EQ(report("exit 7"), 7);
    EXPECT_EQ(report("kill -KILL $$"), -1);
    EXPECT_EQ(captured.error(), "popen_exec: command failed code: 7 , broken\n\n"
                                "popen_exec: command failed code: 7 , error: none\n"
                                "popen_exec: command failed code: -1 , error: none\n");
    EXPECT_EQ(captured.output(), "");
}

TEST_F(Runners, ReadCommandThatCannotBeStartedIsTold) {
    for (const auto& [call, error, text] :
         {std::tuple{Call::pipe, 0,
                     "failed to execute command: fork or pipe calls failed, or cannot allocate memory"},
          {Call::pipe, EMFILE, "failed to execute command: Too many open files"},
          {Call::fork, EMFILE, "failed to execute command: Too many open files"},
          {Call::waitpid, ECHILD, "failed to execute command: No child processes"},
          {Call::realloc, ENOMEM, "failed to allocate memory"}}) {
        const CapturedStreams captured;
        countCalls(Call::fork);
        {
            const FailedCall failing(call, error);
            EXPECT_EQ(report("true"), -1);
        }
        EXPECT_EQ(captured.error(), std::string("popen_exec: ") + text + "\n");
        EXPECT_EQ(callsOf(Call::fork), call == Call::fork || call == Call::waitpid ? 1 : 0);
        EXPECT_EQ(::waitpid(-1, nullptr, 0) > 0, call == Call::waitpid);
    }
}

TEST_F(Runners, ABufferThatCannotGrowCutsTheOutputAndLetsTheCommandEnd) {
    const CapturedStreams captured;
    const FailedCall failing(Call::realloc, ENOMEM, {.skip = 1});
    char* output = nullptr;
    EXPECT_EQ(popen_exec_report("head -c 200000 /dev/zero | tr '\\0' x && exit 0", &output), 0);
    const CText text(output);
    EXPECT_EQ(std::string(text.get()), std::string(4095, 'x'));
    EXPECT_EQ(captured.error(), "popen_exec: warning: failed to allocate memory for command output buffer\n");
}

// An output that just fills the buffer needs no growth, whatever memory is left.
TEST_F(Runners, ABufferFilledToTheLastByteIsNotCut) {
    const CapturedStreams captured;
    const FailedCall failing(Call::realloc, ENOMEM, {.skip = 1});
    EXPECT_EQ(report("head -c 4095 /dev/zero | tr '\\0' x"), 0);
    EXPECT_EQ(captured.error(), "");
}

// What would be run is recorded in the child in place of its exec: the panel's own folders are not touched.
class ToolRunner : public testing::Test {
protected:
    ToolRunner() { conditions().recordedExec = 3; }
    ~ToolRunner() override { conditions().recordedExec.reset(); }

    CapturedStreams captured;
};

TEST_F(ToolRunner, AToolIsFoundByItsBareNameAndAFailureIsReportedUnlessQuiet) {
    const std::string admin = "/opt/ovt/admin/sbin/quelmrc";
    const std::string library = "/usr/lib/quelm-9.0/helper";
    const std::string failed = " execution failed (no output)\n";
    EXPECT_EQ(exec_admin_tool("quelmrc", {"php-fpm", "exists", ""}, ToolFailure::reported), 3);
    EXPECT_EQ(exec_library_tool("helper", {"one"}, ToolFailure::reported), 3);
    EXPECT_EQ(exec_admin_tool("quelmrc", {}, ToolFailure::quiet), 3);
    EXPECT_EQ(exec_library_tool("helper", {}, ToolFailure::quiet), 3);
    conditions().recordedExec = 0;
    EXPECT_EQ(exec_admin_tool("quelmrc", {}, ToolFailure::reported), 0);
    EXPECT_EQ(captured.error(), admin + " [" + admin + "] [php-fpm] [exists] []\n" + admin + failed +
                                    library + " [" + library + "] [one]\n" + library + failed);
    EXPECT_EQ(captured.output(), admin + failed + library + failed);
}

TEST_F(ToolRunner, AnAdminToolWithASlashIsRefused) {
    countCalls(Call::fork);
    EXPECT_EQ(exec_admin_tool("../quelmrc", {}, ToolFailure::quiet), -1);
    EXPECT_EQ(exec_admin_tool("quelmrc/", {}, ToolFailure::quiet), -1);
    EXPECT_EQ(callsOf(Call::fork), 0);
    EXPECT_EQ(captured.error(), "Utility name '../quelmrc' is invalid. Use only utility name without path.\n"
                                "Utility name 'quelmrc/' is invalid. Use only utility name without path.\n");
    EXPECT_EQ(captured.output(), "");
}

int waitFor(const std::string& script, const std::string& path = "/bin/sh") {
    const ArgVector arguments{"sh", "-c", script};
    return fork_and_wait(path.c_str(), arguments.data());
}

TEST_F(Runners, AProgramThatIsWaitedForPrintsWhereTheUtilityDoes) {
    const CapturedStreams captured;
    EXPECT_EQ(waitFor("echo out; echo err >&2; exit 7"), 7);
    EXPECT_EQ(waitFor("kill -KILL $$"), -1);
    EXPECT_EQ(waitFor("", "/no/such"), 255);
    failCall(Call::waitpid, EINTR, {.times = 1});
    EXPECT_EQ(waitFor("exit 7"), 7);
    failCall(Call::waitpid, ECHILD);
    EXPECT_EQ(waitFor("exit 7"), -1);
    stopFailing(Call::waitpid);
    EXPECT_GT(::waitpid(-1, nullptr, 0), 0);
    EXPECT_EQ(captured.output(), "out\n");
    EXPECT_EQ(captured.error(), "err\nfork_execv: execv(\"/no/such\") failed: No such file or directory\n");
}

TEST_F(Runners, AProgramThatIsWaitedForUnderAnIgnoredSigchldOrAFailedFork) {
    const ChildOutcome result = inChild([] {
        std::signal(SIGCHLD, SIG_IGN);
        if (waitFor("exit 7") == 7) {
            failCall(Call::fork, EAGAIN);
            waitFor("true");
        }
        return 2;
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Unable to fork\nSystem error 11: Resource temporarily unavailable\n");
    EXPECT_EQ(result.output, result.error);
}

} // namespace

} // namespace quelm::test

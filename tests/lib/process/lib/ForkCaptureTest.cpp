#include "lib/process/lib/ForkCapture.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/process/lib/ArgVector.h"
#include "lib/process/lib/OutputBuffer.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/DescriptorTable.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"
#include "tests/support/ProcessState.h"

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
            failCall(Call::pipe, EMFILE, passFirst);
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

#include "lib/process/lib/ForkExecWait.h"

#include <cerrno>
#include <csignal>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/Log.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Faults.h"

namespace quelm::test {

namespace {

constexpr int logErrors = 3;
constexpr int logWarnings = 4;

void logToStandardError(unsigned threshold) {
    log_init("stderr", threshold, 8, 0, nullptr);
}

template <typename Body>
pid_t forkChild(Body body) {
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

class ForkExecWait : public testing::Test {
protected:
    void SetUp() override { logToStandardError(logWarnings); }

    CapturedStreams captured;
};

TEST_F(ForkExecWait, AnExitIsReturnedAndNotLogged) {
    int status = -1;
    errno = ENOENT;
    EXPECT_EQ(fork_exec_wait(forkChild([] { ::_exit(7); }), "tool", &status), 7);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(status, 7 << 8);
    EXPECT_EQ(captured.error(), "");
    EXPECT_EQ(captured.output(), "");
}

TEST_F(ForkExecWait, AFailedForkIsLogged) {
    int status = 99;
    EXPECT_EQ(fork_exec_wait(-1, "tool", &status), -1);
    EXPECT_EQ(status, 99);
    EXPECT_EQ(captured.error(), "fork before spawning 'tool' failed\n");
}

TEST_F(ForkExecWait, AMissingNameReadsUnknown) {
    EXPECT_EQ(fork_exec_wait(-1, nullptr), -1);
    EXPECT_EQ(captured.error(), "fork before spawning '<unknown>' failed\n");
}

TEST_F(ForkExecWait, SomebodyElsesProcessCannotBeWaitedFor) {
    EXPECT_EQ(fork_exec_wait(::getpid(), "tool"), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_EQ(captured.error(), "waitpid(" + std::to_string(::getpid()) +
                                    ") for 'tool' process failed: No child processes (10)\n");
}

TEST_F(ForkExecWait, AnInterruptedWaitIsNotRepeated) {
    failCall(Call::waitpid, EINTR);
    EXPECT_EQ(fork_exec_wait(77, "tool"), -1);
    EXPECT_EQ(callsOf(Call::waitpid), 1);
    stopFailing(Call::waitpid);
    EXPECT_EQ(captured.error(), "waitpid(77) for 'tool' process failed: Interrupted system call (4)\n");
}

TEST_F(ForkExecWait, AnUnexpected0) {
    answerWaitpid(0, 0);
    EXPECT_EQ(fork_exec_wait(77, "tool"), -1);
    EXPECT_EQ(captured.error(), "waitpid(77) for 'tool' process returned unexpected 0 code\n");
}

TEST_F(ForkExecWait, AKilledChild) {
    const pid_t child = forkChild([] { ::raise(SIGKILL); });
    EXPECT_EQ(fork_exec_wait(child, "tool"), -1);
    EXPECT_EQ(captured.error(), about(child) + "killed by signal 9\n");
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

TEST_F(ForkExecWait, AContinuedChild) {
    answerWaitpid(77, 0xffff);
    EXPECT_EQ(fork_exec_wait(77, "tool"), -1);
    EXPECT_EQ(captured.error(), about(77) + "continued\n");
}

TEST_F(ForkExecWait, SignalsAreWarningsAndFailuresErrors) {
    logToStandardError(logErrors);
    fork_exec_wait(forkChild([] { ::raise(SIGKILL); }), "tool");
    answerWaitpid(77, 0x137f);
    fork_exec_wait(77, "tool");
    answerWaitpid(77, 0xffff);
    fork_exec_wait(77, "tool");
    EXPECT_EQ(captured.error(), "");
    fork_exec_wait(-1, "tool");
    answerWaitpid(0, 0);
    fork_exec_wait(77, "tool");
    fork_exec_wait(::getpid(), "tool");
    EXPECT_EQ(captured.error(), "fork before spawning 'tool' failed\n"
                                "waitpid(77) for 'tool' process returned unexpected 0 code\n"
                                "waitpid(" +
                                    std::to_string(::getpid()) +
                                    ") for 'tool' process failed: No child processes (10)\n");
    logToStandardError(logErrors - 1);
    fork_exec_wait(-1, "quiet");
    fork_exec_wait(::getpid(), "quiet");
    answerWaitpid(0, 0);
    fork_exec_wait(77, "quiet");
    EXPECT_EQ(captured.error().find("quiet"), std::string::npos);
}

TEST(WaitUninterrupted, IsRepeatedAfterASignal) {
    const pid_t child = forkChild([] { ::_exit(5); });
    failCallOnce(Call::waitpid, EINTR);
    int status = 0;
    EXPECT_EQ(waitUninterrupted(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 5);
}

} // namespace

} // namespace quelm::test

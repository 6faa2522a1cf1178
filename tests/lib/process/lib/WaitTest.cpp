#include "lib/process/lib/PlainChild.h"

#include <cerrno>
#include <csignal>
#include <ostream>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/Log.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Faults.h"

namespace {

using quelm::decodeWaitStatus;
using quelm::Ending;

struct Case {
    const char* name;
    int status;
    Ending ending;
    int value;
    int exitCode;
};

void PrintTo(const Case& row, std::ostream* stream) {
    *stream << row.name;
}

class WaitStatusTable : public testing::TestWithParam<Case> {};

TEST_P(WaitStatusTable, IsDecoded) {
    const auto decoded = decodeWaitStatus(GetParam().status);
    EXPECT_EQ(decoded.ending, GetParam().ending);
    EXPECT_EQ(decoded.value, GetParam().value);
    EXPECT_EQ(decoded.exitCode(), GetParam().exitCode);
}

// The layout of the kernel: low seven bits 0 = exited, 0x7f = stopped, 0xffff = continued, else killed;
// bit 7 tells of a core file.
INSTANTIATE_TEST_SUITE_P(Endings, WaitStatusTable,
                         testing::Values(Case{"Exited0", 0x0000, Ending::exited, 0, 0},
                                         Case{"Exited1", 0x0100, Ending::exited, 1, 1},
                                         Case{"Exited255", 0xff00, Ending::exited, 255, 255},
                                         Case{"Killed9", 0x0009, Ending::killed, 9, -1},
                                         Case{"Killed11WithCore", 0x008b, Ending::killed, 11, -1},
                                         Case{"Stopped19", 0x137f, Ending::stopped, 19, -1},
                                         Case{"Continued", 0xffff, Ending::continued, 0, -1}),
                         [](const auto& instance) { return instance.param.name; });

TEST(WaitStatus, StoppedContinuedAndKilledAsTheKernelReallyTellsThem) {
    const pid_t child = ::fork();
    if (child == 0) {
        for (;;) {
            ::pause();
        }
    }
    int status = 0;
    ::kill(child, SIGSTOP);
    ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
    EXPECT_EQ(decodeWaitStatus(status).ending, Ending::stopped);
    EXPECT_EQ(decodeWaitStatus(status).value, SIGSTOP);
    ::kill(child, SIGCONT);
    ASSERT_EQ(::waitpid(child, &status, WCONTINUED), child);
    EXPECT_EQ(decodeWaitStatus(status).ending, Ending::continued);
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(decodeWaitStatus(status).ending, Ending::killed);
    EXPECT_EQ(decodeWaitStatus(status).value, SIGKILL);
}

} // namespace

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
    failCall(Call::waitpid, EINTR, {.times = 1});
    int status = 0;
    EXPECT_EQ(waitUninterrupted(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 5);
}

} // namespace

} // namespace quelm::test

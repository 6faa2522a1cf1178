#include "lib/process/lib/panel/Runners.h"

#include <cerrno>
#include <csignal>
#include <string>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include "lib/process/lib/CmdLine.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"
#include "tests/support/ProcessState.h"

namespace quelm::test {

namespace {

// What would be run is recorded in the child in place of its exec: the panel's own folders are not touched.
class ToolRunner : public testing::Test {
protected:
    void SetUp() override { recordExecv(3); }
    void TearDown() override { recordExecv(-1); }

    CapturedStreams captured;
};

TEST_F(ToolRunner, AnAdminToolIsFoundByItsBareName) {
    EXPECT_EQ(exec_admin_tool("quelmrc", {"php-fpm", "exists", ""}, ToolFailure::reported), 3);
    EXPECT_EQ(captured.error(),
              "/opt/ovt/admin/sbin/quelmrc [/opt/ovt/admin/sbin/quelmrc] [php-fpm] [exists] []\n"
              "/opt/ovt/admin/sbin/quelmrc execution failed (no output)\n");
    EXPECT_EQ(captured.output(), "/opt/ovt/admin/sbin/quelmrc execution failed (no output)\n");
}

TEST_F(ToolRunner, AQuietFailureIsOnlyReturned) {
    EXPECT_EQ(exec_admin_tool("quelmrc", {}, ToolFailure::quiet), 3);
    EXPECT_EQ(captured.error(), "");
    EXPECT_EQ(captured.output(), "");
}

TEST_F(ToolRunner, ASuccessReturns0) {
    recordExecv(0);
    EXPECT_EQ(exec_admin_tool("quelmrc", {}, ToolFailure::reported), 0);
    EXPECT_EQ(captured.error(), "");
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

TEST_F(ToolRunner, ALibraryToolIsFoundByItsName) {
    EXPECT_EQ(exec_library_tool("helper", {"one"}, ToolFailure::reported), 3);
    EXPECT_EQ(captured.error(), "/usr/lib/quelm-9.0/helper [/usr/lib/quelm-9.0/helper] [one]\n"
                                "/usr/lib/quelm-9.0/helper execution failed (no output)\n");
}

TEST_F(ToolRunner, AQuietLibraryToolIsSilent) {
    EXPECT_EQ(exec_library_tool("helper", {}, ToolFailure::quiet), 3);
    EXPECT_EQ(captured.error(), "");
}

int shell(const std::string& script) {
    const ArgVector arguments{"sh", "-c", script};
    return fork_and_wait("/bin/sh", arguments.data());
}

TEST(ForkAndWait, OutputIsTheUtilitysOwn) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("echo out; echo err >&2; exit 7"), 7);
    EXPECT_EQ(captured.output(), "out\n");
    EXPECT_EQ(captured.error(), "err\n");
    EXPECT_FALSE(hasChildren());
}

TEST(ForkAndWait, AKilledProgramGivesMinus1) {
    EXPECT_EQ(shell("kill -KILL $$"), -1);
}

TEST(ForkAndWait, AProgramThatCannotBeRunGives255) {
    const CapturedStreams captured;
    const ArgVector arguments{"/no/such"};
    EXPECT_EQ(fork_and_wait("/no/such", arguments.data()), 255);
    EXPECT_EQ(captured.error(), "fork_execv: execv(\"/no/such\") failed: No such file or directory\n");
}

TEST(ForkAndWait, AnInterruptedWaitIsRepeated) {
    failCall(Call::waitpid, EINTR, {.times = 1});
    EXPECT_EQ(shell("exit 7"), 7);
}

TEST(ForkAndWait, AFailedWaitGivesMinus1) {
    {
        const FailedCall failing(Call::waitpid, ECHILD);
        EXPECT_EQ(shell("exit 7"), -1);
    }
    EXPECT_GT(::waitpid(-1, nullptr, 0), 0);
}

TEST(ForkAndWait, AnIgnoredSigchldDoesNotLoseTheStatus) {
    const ChildOutcome result = runForked([] {
        std::signal(SIGCHLD, SIG_IGN);
        return shell("exit 7");
    });
    EXPECT_EQ(result.exitStatus(), 7);
}

TEST(ForkAndWait, AFailedForkEndsTheProcess) {
    const ChildOutcome result = runForked([] {
        failCall(Call::fork, EAGAIN);
        return shell("true");
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Unable to fork\nSystem error 11: Resource temporarily unavailable\n");
    EXPECT_EQ(result.output, result.error);
}

} // namespace

} // namespace quelm::test

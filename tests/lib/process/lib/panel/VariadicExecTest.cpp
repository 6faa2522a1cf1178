#include "lib/process/lib/panel/VariadicExec.h"

#include <cerrno>
#include <functional>
#include <string>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include "lib/process/lib/Capture.h"
#include "lib/process/lib/PlainChild.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"

namespace quelm::test {

namespace {

TEST(VariadicExec, ForkExecvReturnsTheChildAtOnce) {
    const CapturedStreams captured;
    const pid_t child =
        fork_execv(-1, 1, 2, "/bin/sh", "-c", "echo \"$0|$1|$2\"; exit 7", "a", "b c", "", nullptr);
    ASSERT_GT(child, 0);
    EXPECT_EQ(fork_exec_wait(child, "sh"), 7);
    EXPECT_EQ(captured.output(), "a|b c|\n");
}

TEST(VariadicExec, ForkExecvTakesAnEmptyList) {
    EXPECT_EQ(fork_exec_wait(fork_execv(-1, -1, -1, "/bin/false", nullptr), "false"), 1);
}

TEST(VariadicExec, ThePathIsArgument0) {
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_wait(fork_execv(0, 1, 2, "/bin/cat", "/proc/self/cmdline", nullptr), "cat"), 0);
    EXPECT_EQ(captured.output(), std::string("/bin/cat\0/proc/self/cmdline\0", 28));
}

TEST(VariadicExec, ForkExecvThatCannotForkEndsTheProcess) {
    const ChildOutcome result = runForked([] {
        failCall(Call::fork, EAGAIN);
        return fork_execv(0, 1, 2, "/bin/true", nullptr);
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "fork_execv: fork() failed\nSystem error 11: Resource temporarily unavailable\n");
    EXPECT_EQ(result.output, result.error);
}

TEST(VariadicExec, ForkExecvThatCannotPlaceADescriptor) {
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_wait(fork_execv(900, 1, 2, "/bin/true", nullptr), "true"), 255);
    EXPECT_EQ(captured.error(), "fork_execv: dup() failed: Bad file descriptor\n");
}

TEST(VariadicExec, ForkExecvThatCannotRunTheProgram) {
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_wait(fork_execv(0, 1, 2, "/no/such", nullptr), "such"), 255);
    EXPECT_EQ(captured.error(), "fork_execv: execv(\"/no/such\") failed: No such file or directory\n");
}

TEST(VariadicExec, Pipes) {
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_wait(fork_execl_pipes(-1, 2, 1, "/bin/sh", "-c", "echo out; exit 3", nullptr), "sh"),
              3);
    EXPECT_EQ(captured.error(), "out\n");
}

TEST(VariadicExec, PipesThatCannotForkEndTheProcess) {
    const ChildOutcome result = runForked([] {
        failCall(Call::fork, ENOMEM);
        return fork_execl_pipes(0, 1, 2, "/bin/true", nullptr);
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "fork_execv_pipes: fork() failed\nSystem error 12: Cannot allocate memory\n");
}

TEST(VariadicExec, OutputAndError) {
    char* output = nullptr;
    char* error = nullptr;
    EXPECT_EQ(fork_execl_getouterr(&output, &error, "/bin/sh", "-c", "echo $0; echo $1 >&2; exit 4", "one",
                                   "two", nullptr),
              4);
    const CText outputText(output);
    const CText errorText(error);
    EXPECT_STREQ(output, "one\n");
    EXPECT_STREQ(error, "two\n");
}

TEST(VariadicExec, OutputAlone) {
    const CapturedStreams captured;
    char* output = nullptr;
    EXPECT_EQ(fork_execl_getout(&output, "/bin/sh", "-c", "echo out; echo err >&2; exit 4", nullptr), 4);
    const CText text(output);
    EXPECT_STREQ(output, "out\n");
    EXPECT_EQ(captured.error(), "err\n");
}

TEST(VariadicExec, ReportedAndQuiet) {
    const CapturedStreams captured;
    EXPECT_EQ(execl_and_report(true, "/bin/sh", "-c", "echo err >&2; exit 4", nullptr), 4);
    EXPECT_EQ(captured.error(), "");
    EXPECT_EQ(execl_and_report(false, "/bin/sh", "-c", "echo err >&2; exit 4", nullptr), 4);
    EXPECT_EQ(captured.error(), "/bin/sh execution failed:\nerr\n");
}

void endsWithoutMemory(const std::function<int()>& call) {
    const ChildOutcome result = runForked([&call] {
        failCall(Call::malloc, ENOMEM, {.times = 1});
        return call();
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error,
              "malloc() failed: Cannot allocate memory\nSystem error 12: Cannot allocate memory\n");
    EXPECT_EQ(result.output, result.error);
}

TEST(VariadicExec, EveryFormEndsWhenMemoryRunsOut) {
    char* output = nullptr;
    char* error = nullptr;
    endsWithoutMemory([] { return fork_execv(0, 1, 2, "/bin/true", nullptr); });
    endsWithoutMemory([] { return fork_execl_pipes(0, 1, 2, "/bin/true", nullptr); });
    endsWithoutMemory([&] { return fork_execl_getouterr(&output, &error, "/bin/true", nullptr); });
    endsWithoutMemory([&] { return fork_execl_getout(&output, "/bin/true", nullptr); });
    endsWithoutMemory([] { return execl_and_report(true, "/bin/true", nullptr); });
}

} // namespace

} // namespace quelm::test

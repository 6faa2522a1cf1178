#include "lib/process/lib/panel/VariadicExec.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/process/lib/Capture.h"
#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/PlainChild.h"
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

TEST(VariadicExec, ForkExecvReturnsTheChildAtOnceWithThePathAsArgument0) {
    const CapturedStreams captured;
    const pid_t child =
        fork_execv(-1, 1, 2, "/bin/sh", "-c", "echo \"$0|$1|$2\"; exit 7", "a", "b c", "", nullptr);
    ASSERT_GT(child, 0);
    EXPECT_EQ(fork_exec_wait(child, "sh"), 7);
    EXPECT_EQ(fork_exec_wait(fork_execv(-1, -1, -1, "/bin/false", nullptr), "false"), 1);
    EXPECT_EQ(fork_exec_wait(fork_execv(0, 1, 2, "/bin/cat", "/proc/self/cmdline", nullptr), "cat"), 0);
    EXPECT_EQ(captured.output(), "a|b c|\n" + std::string("/bin/cat\0/proc/self/cmdline\0", 28));
}

TEST(VariadicExec, ForkExecvThatCannotPlaceADescriptorOrRunTheProgram) {
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_wait(fork_execv(900, 1, 2, "/bin/true", nullptr), "true"), 255);
    EXPECT_EQ(fork_exec_wait(fork_execv(0, 1, 2, "/no/such", nullptr), "such"), 255);
    EXPECT_EQ(captured.error(), "fork_execv: dup() failed: Bad file descriptor\n"
                                "fork_execv: execv(\"/no/such\") failed: No such file or directory\n");
}

TEST(VariadicExec, ListFormsOfTheOthers) {
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_wait(fork_execl_pipes(-1, 2, 1, "/bin/sh", "-c", "echo out; exit 3", nullptr), "sh"),
              3);
    EXPECT_EQ(captured.error(), "out\n");
    char* output = nullptr;
    char* error = nullptr;
    EXPECT_EQ(fork_execl_getouterr(&output, &error, "/bin/sh", "-c", "echo $0; echo $1 >&2; exit 4", "one",
                                   "two", nullptr),
              4);
    const CText outputText(output);
    const CText errorText(error);
    EXPECT_STREQ(output, "one\n");
    EXPECT_STREQ(error, "two\n");
    EXPECT_EQ(fork_execl_getout(&output, "/bin/sh", "-c", "echo alone; echo err >&2; exit 4", nullptr), 4);
    const CText aloneText(output);
    EXPECT_STREQ(output, "alone\n");
    EXPECT_EQ(execl_and_report(true, "/bin/sh", "-c", "echo quiet >&2; exit 4", nullptr), 4);
    EXPECT_EQ(execl_and_report(false, "/bin/sh", "-c", "echo told >&2; exit 4", nullptr), 4);
    EXPECT_EQ(captured.error(), "out\nerr\n/bin/sh execution failed:\ntold\n");
    EXPECT_EQ(captured.output(), "/bin/sh execution failed:\ntold\n");
}

void expectEnd(Call call, const std::function<int()>& body, const std::string& text) {
    const ChildOutcome result = inChild([&] {
        failCall(call, ENOMEM, {.times = 1});
        return body();
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, text + "System error 12: Cannot allocate memory\n");
    EXPECT_EQ(result.output, result.error);
}

TEST(VariadicExec, AFailedForkOrMissingMemoryEndsTheProcess) {
    char* output = nullptr;
    char* error = nullptr;
    const auto plain = [] { return fork_execv(0, 1, 2, "/bin/true", nullptr); };
    const auto pipes = [] { return fork_execl_pipes(0, 1, 2, "/bin/true", nullptr); };
    expectEnd(Call::fork, plain, "fork_execv: fork() failed\n");
    expectEnd(Call::fork, pipes, "fork_execv_pipes: fork() failed\n");
    for (const std::function<int()>& form : {
             std::function<int()>(plain),
             {pipes},
             {[&] { return fork_execl_getouterr(&output, &error, "/bin/true", nullptr); }},
             {[&] { return fork_execl_getout(&output, "/bin/true", nullptr); }},
             {[] { return execl_and_report(true, "/bin/true", nullptr); }},
             {[] { return fork_exec_fd(-1, -1, "/bin/true", nullptr); }},
         }) {
        expectEnd(Call::malloc, form, "malloc() failed: Cannot allocate memory\n");
    }
}

// Scripts leave their number in a file of the directory.
class ForkExecFd : public testing::Test {
protected:
    int script(const std::string& body) {
        return fork_exec_fd(-1, -1, directory.script("run", "echo $$ >\"$1\"; " + body).c_str(),
                            directory.path("pid").c_str(), nullptr);
    }
    std::string pid() const {
        const std::string line = readFile(directory.path("pid"));
        return line.substr(0, line.find('\n'));
    }
    void TearDown() override {
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_FALSE(hasChildren());
    }

    const std::vector<int> before = openDescriptors();
    const TempDir directory;
};

TEST_F(ForkExecFd, RunsBetweenTwoDescriptors) {
    const UniqueFd input(::open(directory.write("in", "text").c_str(), O_RDONLY));
    const UniqueFd file(::open(directory.path("file").c_str(), O_RDWR | O_CREAT, 0600));
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_fd(input.get(), file.get(), "/bin/sh", "-c",
                           "cat; echo \" $1\"; echo err >&2; exit 7", "x", "argument", nullptr),
              7);
    EXPECT_EQ(readFile(directory.path("file")), "text argument\n");
    EXPECT_EQ(fork_exec_fd(file.get(), file.get(), "/bin/echo", "both ways", nullptr), 0);
    // 3 is the listed directory itself.
    EXPECT_EQ(fork_exec_fd(-1, file.get(), "/bin/ls", "/proc/self/fd", nullptr), 0);
    EXPECT_EQ(readFile(directory.path("file")), "text argument\nboth ways\n0\n1\n2\n3\n");
    EXPECT_EQ(captured.error(), "err\n");
    EXPECT_EQ(captured.output(), "");
}

// The shell counts its standard descriptors and the one that it reads the folder through.
TEST_F(ForkExecFd, TheChildGetsNoDescriptorWhereverTheyBegin) {
    const ChildOutcome result = inChild([] {
        for (int descriptor = 3; descriptor < 9; ++descriptor) {
            ::dup2(STDIN_FILENO, descriptor);
        }
        return fork_exec_fd(-1, -1, "/bin/sh", "-c", "set -- /proc/self/fd/*; exit $#", nullptr);
    });
    EXPECT_EQ(result.exitStatus(), 4);
}

TEST_F(ForkExecFd, StandardDescriptorsAreRefused) {
    const std::string refusal = "values 0,1,2 not allowed for variables fd_in & fd_out\n";
    for (int standard = 0; standard < 3; ++standard) {
        const CapturedStreams captured;
        EXPECT_EQ(fork_exec_fd(standard, -1, "/bin/true", nullptr), -1);
        EXPECT_EQ(fork_exec_fd(-1, standard, "/bin/true", nullptr), -1);
        EXPECT_EQ(captured.error(), refusal + refusal);
        EXPECT_EQ(captured.output(), "");
    }
}

TEST_F(ForkExecFd, AProgramThatCannotBeRunIsTold) {
    const std::string noFile = "Error occured during execv():\nNo such file or directory.\n";
    struct Case {
        Call failing;
        int error;
        int result;
        std::string text;
        int input = -1;
        const char* path = "/bin/true";
        std::uintptr_t argument = 0;
    };
    for (const Case& row :
         {Case{Call::pipe, EMFILE, -1, "fork_exec_fd pipe(): Too many open files\n"},
          Case{Call::fork, ENOMEM, -1, "Error occured during fork():\nCannot allocate memory\n"},
          Case{Call::fcntl, EMFILE, 255, "fork_execv: dup() failed: Too many open files\n"},
          Case{Call::count, 0, 255, "fork_execv: dup() failed: Bad file descriptor\n", 900},
          Case{Call::count, 0, -1, noFile, -1, "/no/such"},
          Case{Call::read, EINTR, -1, noFile, -1, "/no/such"},
          // A list that runs on into garbage.
          Case{Call::count, 0, -1,
               "Error occured during execv():\nBad address, possible reason - NULL parameter is absent in "
               "util_exec(path, arg1, arg2, NULL) call.\n",
               -1, "/bin/true", 1}}) {
        const CapturedStreams captured;
        std::optional<FailedCall> failing;
        if (row.failing != Call::count) {
            failing.emplace(row.failing, row.error, Which{.times = 1});
        }
        EXPECT_EQ(fork_exec_fd(row.input, -1, row.path, reinterpret_cast<const char*>(row.argument), nullptr),
                  row.result);
        EXPECT_EQ(captured.error(), row.text);
    }
}

TEST_F(ForkExecFd, AnEndingThatIsNoExitIsTold) {
    const CapturedStreams captured;
    EXPECT_EQ(script("kill -KILL $$"), -1);
    std::string expected = "The child process with pid " + pid() + " killed by signal 9\n";
    EXPECT_EQ(script("kill -STOP $$"), -1);
    expected += "The child process with pid " + pid() + " stopped by signal 19\n";
    ASSERT_EQ(::kill(std::stoi(pid()), SIGKILL), 0); // it is left stopped
    EXPECT_EQ(::waitpid(std::stoi(pid()), nullptr, 0), std::stoi(pid()));
    failCall(Call::waitpid, ECHILD);
    EXPECT_EQ(script("true"), -1);
    stopFailing(Call::waitpid);
    ASSERT_GT(::waitpid(-1, nullptr, 0), 0);
    EXPECT_EQ(captured.error(), expected + "Error occured during waiting the child process with pid: " +
                                    pid() + ": No child processes\n");
}

TEST_F(ForkExecFd, IgnoredSignalsAreDefaultsInTheChild) {
    const ChildOutcome result = inChild([this] {
        std::signal(SIGCHLD, SIG_IGN);
        std::signal(SIGPIPE, SIG_IGN);
        const bool killed = script("kill -PIPE $$") == -1 && std::signal(SIGPIPE, SIG_DFL) == SIG_IGN;
        return killed && script("exit 7") == 7 ? 42 : 1;
    });
    EXPECT_EQ(result.exitStatus(), 42);
    EXPECT_TRUE(result.error.ends_with(" killed by signal 13\n")) << result.error;
}

} // namespace

} // namespace quelm::test

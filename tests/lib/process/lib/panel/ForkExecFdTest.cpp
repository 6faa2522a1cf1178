#include "lib/process/lib/panel/VariadicExec.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/process/lib/Pipe.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

std::string readAll(int descriptor) {
    std::array<char, 256> text{};
    const ssize_t count = ::read(descriptor, text.data(), text.size());
    return {text.data(), static_cast<std::size_t>(count > 0 ? count : 0)};
}

std::string firstLine(const TempDir& directory, const std::string& name) {
    std::ifstream file(directory.path(name));
    std::string line;
    std::getline(file, line);
    return line;
}

TEST(ForkExecFd, RunsBetweenTwoDescriptors) {
    std::optional<Pipe> input = openPipe();
    const std::optional<Pipe> output = openPipe();
    ASSERT_TRUE(input && output);
    ASSERT_EQ(::write(input->writeEnd.get(), "text", 4), 4);
    input->writeEnd.close();
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_fd(input->readEnd.get(), output->writeEnd.get(), "/bin/sh", "-c",
                           "cat; echo \" $1\"; echo err >&2; exit 7", "x", "argument", nullptr),
              7);
    EXPECT_EQ(readAll(output->readEnd.get()), "text argument\n");
    EXPECT_EQ(captured.error(), "err\n");
    EXPECT_EQ(captured.output(), "");
}

TEST(ForkExecFd, OneDescriptorServesBothWays) {
    const TempDir directory;
    const int file = ::open(directory.path("file").c_str(), O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(fork_exec_fd(file, file, "/bin/echo", "text", nullptr), 0);
    std::array<char, 16> text{};
    EXPECT_EQ(::pread(file, text.data(), text.size(), 0), 5);
    EXPECT_STREQ(text.data(), "text\n");
    ::close(file);
}

TEST(ForkExecFd, TheChildHasNothingElseOpen) {
    const std::optional<Pipe> output = openPipe();
    ASSERT_TRUE(output);
    EXPECT_EQ(fork_exec_fd(-1, output->writeEnd.get(), "/bin/ls", "/proc/self/fd", nullptr), 0);
    EXPECT_EQ(readAll(output->readEnd.get()), "0\n1\n2\n3\n"); // 3 is the listed directory itself
}

// The shell counts its standard descriptors and the one that it reads the folder through.
TEST(ForkExecFd, TheChildGetsNoDescriptorWhereverTheyBegin) {
    const ChildOutcome result = runForked([] {
        for (int descriptor = 3; descriptor < 9; ++descriptor) {
            ::dup2(STDIN_FILENO, descriptor);
        }
        return fork_exec_fd(-1, -1, "/bin/sh", "-c", "set -- /proc/self/fd/*; exit $#", nullptr);
    });
    EXPECT_EQ(result.exitStatus(), 4);
}

TEST(ForkExecFd, LeavesNoDescriptorAndNoChild) {
    const CapturedStreams captured;
    const std::set<std::string> before = openDescriptors();
    fork_exec_fd(-1, -1, "/bin/true", nullptr);
    fork_exec_fd(-1, -1, "/no/such", nullptr);
    fork_exec_fd(900, -1, "/bin/true", nullptr);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(hasChildren());
}

TEST(ForkExecFd, StandardDescriptorsAreRefused) {
    for (int standard = 0; standard < 3; ++standard) {
        const CapturedStreams captured;
        EXPECT_EQ(fork_exec_fd(standard, -1, "/bin/true", nullptr), -1);
        EXPECT_EQ(fork_exec_fd(-1, standard, "/bin/true", nullptr), -1);
        EXPECT_EQ(captured.error(), "values 0,1,2 not allowed for variables fd_in & fd_out\n"
                                    "values 0,1,2 not allowed for variables fd_in & fd_out\n");
        EXPECT_EQ(captured.output(), "");
    }
}

TEST(ForkExecFd, AFailedPipe) {
    const CapturedStreams captured;
    const FailedCall failing(Call::pipe, EMFILE);
    EXPECT_EQ(fork_exec_fd(-1, -1, "/bin/true", nullptr), -1);
    EXPECT_EQ(captured.error(), "fork_exec_fd pipe(): Too many open files\n");
}

TEST(ForkExecFd, AFailedFork) {
    const CapturedStreams captured;
    const FailedCall failing(Call::fork, ENOMEM);
    EXPECT_EQ(fork_exec_fd(-1, -1, "/bin/true", nullptr), -1);
    EXPECT_EQ(captured.error(), "Error occured during fork():\nCannot allocate memory\n");
}

TEST(ForkExecFd, AProgramThatCannotBeRun) {
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_fd(-1, -1, "/no/such", nullptr), -1);
    EXPECT_EQ(captured.error(), "Error occured during execv():\nNo such file or directory.\n");
}

TEST(ForkExecFd, AnInterruptedReadOfTheReasonIsRepeated) {
    const CapturedStreams captured;
    failCall(Call::read, EINTR, {.times = 1});
    EXPECT_EQ(fork_exec_fd(-1, -1, "/no/such", nullptr), -1);
    EXPECT_EQ(captured.error(), "Error occured during execv():\nNo such file or directory.\n");
}

TEST(ForkExecFd, AListThatRunsOnIntoGarbage) {
    const CapturedStreams captured;
    const char* garbage = reinterpret_cast<const char*>(std::uintptr_t{1});
    EXPECT_EQ(fork_exec_fd(-1, -1, "/bin/true", garbage, nullptr), -1);
    EXPECT_EQ(captured.error(),
              "Error occured during execv():\nBad address, possible reason - NULL parameter is "
              "absent in util_exec(path, arg1, arg2, NULL) call.\n");
}

TEST(ForkExecFd, ADescriptorThatIsNotOpen) {
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_fd(900, -1, "/bin/true", nullptr), 255);
    EXPECT_EQ(captured.error(), "fork_execv: dup() failed: Bad file descriptor\n");
}

TEST(ForkExecFd, NoNumberForTheReasonEndsTheChildWith255) {
    const CapturedStreams captured;
    const FailedCall failing(Call::fcntl, EMFILE);
    EXPECT_EQ(fork_exec_fd(-1, -1, "/bin/true", nullptr), 255);
    EXPECT_EQ(captured.error(), "fork_execv: dup() failed: Too many open files\n");
}

TEST(ForkExecFd, AKilledProgram) {
    const TempDir directory;
    const std::string script = directory.script("killed", "echo $$ > \"$1\"; kill -KILL $$");
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_fd(-1, -1, script.c_str(), directory.path("pid").c_str(), nullptr), -1);
    EXPECT_EQ(captured.error(),
              "The child process with pid " + firstLine(directory, "pid") + " killed by signal 9\n");
}

TEST(ForkExecFd, AStoppedProgramIsLeftStopped) {
    const TempDir directory;
    const std::string script = directory.script("stopped", "echo $$ > \"$1\"; kill -STOP $$");
    const CapturedStreams captured;
    EXPECT_EQ(fork_exec_fd(-1, -1, script.c_str(), directory.path("pid").c_str(), nullptr), -1);
    const std::string pid = firstLine(directory, "pid");
    EXPECT_EQ(captured.error(), "The child process with pid " + pid + " stopped by signal 19\n");
    ASSERT_EQ(::kill(std::stoi(pid), SIGKILL), 0);
    EXPECT_EQ(::waitpid(std::stoi(pid), nullptr, 0), std::stoi(pid));
}

TEST(ForkExecFd, AFailedWait) {
    const TempDir directory;
    const std::string script = directory.script("waited", "echo $$ > \"$1\"");
    std::string error;
    {
        const CapturedStreams captured;
        const FailedCall failing(Call::waitpid, ECHILD);
        EXPECT_EQ(fork_exec_fd(-1, -1, script.c_str(), directory.path("pid").c_str(), nullptr), -1);
        error = captured.error();
    }
    ASSERT_GT(::waitpid(-1, nullptr, 0), 0);
    EXPECT_EQ(error, "Error occured during waiting the child process with pid: " +
                         firstLine(directory, "pid") + ": No child processes\n");
}

TEST(ForkExecFd, AnIgnoredSigchldDoesNotLoseTheStatus) {
    const ChildOutcome result = runForked([] {
        std::signal(SIGCHLD, SIG_IGN);
        return fork_exec_fd(-1, -1, "/bin/sh", "-c", "exit 7", nullptr);
    });
    EXPECT_EQ(result.exitStatus(), 7);
}

TEST(ForkExecFd, TheChildHasTheDefaultSigpipe) {
    const TempDir directory;
    const std::string script = directory.script("piped", "echo $$ > \"$1\"; kill -PIPE $$");
    const ChildOutcome result = runForked([&] {
        std::signal(SIGPIPE, SIG_IGN);
        const int status = fork_exec_fd(-1, -1, script.c_str(), directory.path("pid").c_str(), nullptr);
        return status == -1 && std::signal(SIGPIPE, SIG_DFL) == SIG_IGN ? 42 : 1;
    });
    EXPECT_EQ(result.exitStatus(), 42);
    EXPECT_EQ(result.error,
              "The child process with pid " + firstLine(directory, "pid") + " killed by signal 13\n");
}

TEST(ForkExecFd, NoMemoryForTheListEndsTheProcess) {
    const ChildOutcome result = runForked([] {
        failCall(Call::malloc, ENOMEM, {.times = 1});
        return fork_exec_fd(-1, -1, "/bin/true", nullptr);
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error,
              "malloc() failed: Cannot allocate memory\nSystem error 12: Cannot allocate memory\n");
}

TEST(ForkExecFd, ClosedStandardDescriptors) {
    const TempDir directory;
    const int file = ::open(directory.path("file").c_str(), O_RDWR | O_CREAT, 0600);
    const ChildOutcome result = runForked([file] {
        ::close(0);
        ::close(1);
        ::close(2);
        return fork_exec_fd(-1, file, "/bin/sh", "-c", "echo text; exit 7", nullptr);
    });
    EXPECT_EQ(result.exitStatus(), 7);
    EXPECT_EQ(firstLine(directory, "file"), "text");
    ::close(file);
}

} // namespace

} // namespace quelm::test

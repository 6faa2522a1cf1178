// What the child of forkExecvPipes finds: program, environment, signals, descriptors, user.
#include "lib/process/lib/ForkExecvPipes.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cli/FatalMessage.h"
#include "lib/process/lib/ArgVector.h"
#include "lib/process/lib/ForkExecv.h"
#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/SystemError.h"
#include "tests/support/InChild.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace {

using quelm::ArgVector;
using quelm::Environment;
using quelm::forkExecvGetOutErr;
using quelm::test::inChild;
using quelm::test::TempDir;

class ForkExecvPipes : public testing::Test {
protected:
    int run(const std::string& path, const ArgVector& arguments, const Environment& environment = {}) {
        return forkExecvGetOutErr("", &output, &error, path, arguments.get(), "", true, environment);
    }
    int shell(const std::string& script, const Environment& environment = {}) {
        return run("/bin/sh", ArgVector{"sh", "-c", script}, environment);
    }
    void TearDown() override { EXPECT_FALSE(quelm::test::hasChildren()); }

    std::string output;
    std::string error;
    TempDir directory;
};

constexpr const char* noSuchFile = "forkExecvPipes: execv() failed: No such file or directory\n\nSystem "
                                   "error 2: No such file or directory\n";

TEST_F(ForkExecvPipes, AMissingProgramIsReportedOnBothStreams) {
    EXPECT_EQ(run("/nonexistent/tool", ArgVector{"tool"}), 1);
    EXPECT_EQ(error, noSuchFile);
    EXPECT_EQ(output, noSuchFile);
}

TEST_F(ForkExecvPipes, AMissingProgramIsReportedUnderTheUtilitysName) {
    quelm::setProgramPath("/opt/somewhere/tamrix");
    EXPECT_EQ(run("no-such-tool-on-any-path", ArgVector{"tool"}, {{"PATH", "/usr/bin:/bin"}}), 1);
    quelm::setProgramPath(nullptr);
    EXPECT_EQ(error, std::string("tamrix: ") + noSuchFile);
    EXPECT_EQ(output, std::string("tamrix: ") + noSuchFile);
}

TEST_F(ForkExecvPipes, ADirectoryCannotBeExecuted) {
    EXPECT_EQ(run(directory.path(""), ArgVector{"tool"}), 1);
    EXPECT_EQ(error,
              "forkExecvPipes: execv() failed: Permission denied\n\nSystem error 13: Permission denied\n");
}

TEST_F(ForkExecvPipes, ANameWithoutASlashIsFoundAlongPath) {
    EXPECT_EQ(run("printf", ArgVector{"printf", "found"}), 0);
    EXPECT_EQ(output, "found");
}

TEST_F(ForkExecvPipes, APathInTheExtraEnvironmentDecidesTheSearch) {
    directory.script("own-tool", "echo own");
    EXPECT_EQ(run("own-tool", ArgVector{"own-tool"}), 1);
    output.clear();
    EXPECT_EQ(run("own-tool", ArgVector{"own-tool"}, {{"PATH", directory.path("")}}), 0);
    EXPECT_EQ(output, "own\n");
}

TEST_F(ForkExecvPipes, AScriptWithoutAnInterpreterLineRunsInTheShell) {
    directory.write("bare", "echo bare $1\n");
    std::filesystem::permissions(directory.path("bare"), std::filesystem::perms(0755));
    EXPECT_EQ(run(directory.path("bare"), ArgVector{"bare", "x"}), 0);
    EXPECT_EQ(output, "bare x\n");
}

TEST_F(ForkExecvPipes, TheFirstArgumentIsTheProgramsName) {
    EXPECT_EQ(run("/bin/sh", ArgVector{"other-name", "-c", "echo $0"}), 0);
    EXPECT_EQ(output, "other-name\n");
}

TEST_F(ForkExecvPipes, TheEnvironmentIsSetOnTopOfTheInheritedOne) {
    ::setenv("TAMRIX_TEST_A", "inherited", 1);
    ::setenv("TAMRIX_TEST_B", "inherited", 1);
    EXPECT_EQ(shell("echo \"$TAMRIX_TEST_A|$TAMRIX_TEST_B|${TAMRIX_TEST_C-unset}|$TAMRIX_TEST_D\"",
                    {{"TAMRIX_TEST_B", "new"}, {"TAMRIX_TEST_C", ""}, {"TAMRIX_TEST_D", "a=b c"}}),
              0);
    EXPECT_EQ(output, "inherited|new||a=b c\n");
    EXPECT_STREQ(::getenv("TAMRIX_TEST_B"), "inherited");
}

// The C library appends each new variable, so that a program finds them in the order of their setting.
TEST_F(ForkExecvPipes, TheEnvironmentIsSetInTheOrderOfTheNames) {
    EXPECT_EQ(
        run("/usr/bin/env", ArgVector{"env"}, {{"TAMRIX_C", "1"}, {"TAMRIX_A", "2"}, {"TAMRIX_B", "3"}}), 0);
    EXPECT_TRUE(output.ends_with("\nTAMRIX_A=2\nTAMRIX_B=3\nTAMRIX_C=1\n")) << output;
}

TEST_F(ForkExecvPipes, AVariableNameThatCannotBeSetEndsTheChildWithTheReason) {
    EXPECT_EQ(shell("echo ran", {{"A=B", "x"}}), 1);
    EXPECT_EQ(error, "forkExecvPipes: setenv() falied: Invalid argument\n");
    EXPECT_EQ(shell("echo ran", {{"", "x"}}), 1);
    EXPECT_EQ(output, "");
}

TEST_F(ForkExecvPipes, SignalsAreAtTheirDefaultsAndNoneIsBlocked) {
    const auto outcome = inChild([] {
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_IGN);
        sigset_t mask;
        ::sigfillset(&mask);
        ::sigprocmask(SIG_SETMASK, &mask, nullptr);
        std::string text;
        std::string complaints;
        forkExecvGetOutErr(text, complaints, "/bin/grep",
                           ArgVector{"grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"}.get());
        std::cout << text << complaints;
    });
    unsigned long long blocked = 1;
    unsigned long long ignored = ~0ULL;
    ASSERT_EQ(std::sscanf(outcome.output.c_str(), "SigBlk: %llx SigIgn: %llx", &blocked, &ignored), 2)
        << outcome.output;
    EXPECT_EQ(blocked, 0u);
    EXPECT_EQ(ignored & (1ULL << (SIGPIPE - 1)), 0u);
    EXPECT_EQ(ignored & (1ULL << (SIGCHLD - 1)), 0u);
}

TEST_F(ForkExecvPipes, SigpipeKillsTheChildAsUsual) {
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(shell("kill -PIPE $$"), -1);
    std::signal(SIGPIPE, SIG_DFL);
}

TEST_F(ForkExecvPipes, NothingBeyondTheStandardDescriptorsIsInherited) {
    const int high = ::fcntl(0, F_DUPFD, 77);
    EXPECT_EQ(run("/bin/ls", ArgVector{"ls", "/proc/self/fd"}), 0);
    ::close(high);
    EXPECT_EQ(output, "0\n1\n2\n3\n"); // 3 is ls reading the directory
}

TEST_F(ForkExecvPipes, PendingOutputOfTheParentIsNotPrintedByTheChild) {
    const auto outcome = inChild([] {
        std::setvbuf(stdout, nullptr, _IOFBF, 4096);
        std::printf("the id\n");
        std::string text;
        std::string complaints;
        forkExecvGetOutErr(text, complaints, "/nonexistent/tool", ArgVector{"tool"}.get());
        ::_exit(text == noSuchFile ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
    EXPECT_EQ(outcome.output, "the id\n");
}

TEST_F(ForkExecvPipes, NoDescriptorMeansTheNullDevice) {
    const auto outcome = inChild([] {
        const pid_t child = quelm::forkExecvPipes(
            -1, -1, STDERR_FILENO, "/bin/sh",
            ArgVector{"sh", "-c",
                      "in=$(readlink /proc/$$/fd/0); out=$(readlink /proc/$$/fd/1); echo $in $out >&2"}
                .get(),
            "", true, {});
        int status = 0;
        ::waitpid(child, &status, 0);
        ::_exit(WEXITSTATUS(status));
    });
    EXPECT_EQ(outcome.exitStatus(), 0);
    EXPECT_EQ(outcome.error, "/dev/null /dev/null\n");
}

TEST_F(ForkExecvPipes, AFailureBeforeTheStreamsAreInPlaceIsStillReadByTheParent) {
    auto pipe = quelm::openPipe();
    ASSERT_TRUE(pipe);
    const pid_t child = quelm::forkExecvPipes(999, -1, pipe->writeEnd.get(), "/bin/true",
                                              ArgVector{"true"}.get(), "", true, {});
    pipe->writeEnd.close();
    char text[100] = {};
    EXPECT_GT(::read(pipe->readEnd.get(), text, sizeof(text) - 1), 0);
    EXPECT_STREQ(text, "dup2Custom failed: Bad file descriptor\n");
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 1);
}

TEST_F(ForkExecvPipes, Dup2CustomThrowsWithTheReason) {
    try {
        quelm::dup2Custom(999, 1);
        FAIL();
    } catch (const quelm::SystemError& failure) {
        EXPECT_EQ(failure.message(), "dup2Custom failed");
        EXPECT_EQ(failure.code(), EBADF);
    }
}

TEST_F(ForkExecvPipes, WithoutAnErrorStreamOfItsOwnTheChildComplainsOnOurs) {
    const auto outcome = inChild([] {
        const pid_t child =
            quelm::forkExecvPipes(999, -1, -1, "/bin/true", ArgVector{"true"}.get(), "", true, {});
        int status = 0;
        ::waitpid(child, &status, 0);
        ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 99);
    });
    EXPECT_EQ(outcome.exitStatus(), 1);
    EXPECT_EQ(outcome.error, "dup2Custom failed: Bad file descriptor\n");
}

} // namespace

#include "lib/process/lib/StartAsUser.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>

#include <fcntl.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "base/FatalMessage.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/Exceptions.h"
#include "lib/process/lib/ForkExecv.h"
#include "lib/process/lib/Pipe.h"
#include "tests/support/AsRoot.h"
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

TEST_F(ForkExecvPipes, ADescriptorGivenTwiceIsRefusedAndTheParentReadsIt) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    for (const int input : {-1, ends[1]}) {
        const pid_t child = quelm::forkExecvPipes(input, ends[1], ends[1], "/bin/true",
                                                  ArgVector{"true"}.get(), "", true, {});
        int status = 0;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(WEXITSTATUS(status), 1);
        char text[100] = {};
        EXPECT_GT(::recv(ends[0], text, sizeof(text) - 1, MSG_DONTWAIT), 0);
        EXPECT_STREQ(text, "dup2Custom failed: Bad file descriptor\n");
    }
    ::close(ends[0]);
    ::close(ends[1]);
}

// No descriptor is left for a copy, so the original itself is written to.
TEST_F(ForkExecvPipes, AFailureIsReadByTheParentAlsoWhenNoDescriptorIsFree) {
    auto pipe = quelm::openPipe();
    ASSERT_TRUE(pipe);
    const auto outcome = inChild([&] {
        const auto most = static_cast<rlim_t>(pipe->writeEnd.get()) + 1;
        const rlimit limit{most, most};
        ::setrlimit(RLIMIT_NOFILE, &limit);
        while (::dup(STDIN_FILENO) != -1) {
        }
        quelm::forkExecvPipes(999, -1, pipe->writeEnd.get(), "/bin/true", ArgVector{"true"}.get(), "", true,
                              {});
        ::_exit(0);
    });
    pipe->writeEnd.close();
    char text[100] = {};
    EXPECT_GT(::read(pipe->readEnd.get(), text, sizeof(text) - 1), 0);
    EXPECT_STREQ(text, "dup2Custom failed: Bad file descriptor\n");
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

enum class Home { stay, change };

class ForkExecvUser : public testing::Test {
protected:
    int shellAs(const std::string& user, Home home, const std::string& script) {
        return forkExecvGetOutErr("", &output, &error, "/bin/sh", ArgVector{"sh", "-c", script}.get(), user,
                                  home == Home::change);
    }

    std::string output;
    std::string error;
};

constexpr const char* whoAndWhere = "id -un; id -gn; id -Gn; pwd";

TEST_F(ForkExecvUser, SwitchesUserAndGroups) {
    TAMRIX_TEST_AS_ROOT();
    std::filesystem::current_path("/");
    EXPECT_EQ(shellAs("nobody", Home::stay, whoAndWhere), 0);
    EXPECT_EQ(output, "nobody\nnogroup\nnogroup\n/\n");
    EXPECT_EQ(error, "");
}

TEST_F(ForkExecvUser, CannotComeBack) {
    TAMRIX_TEST_AS_ROOT();
    EXPECT_EQ(shellAs("nobody", Home::stay, "grep -E '^Uid' /proc/self/status"), 0);
    EXPECT_EQ(output, "Uid:\t65534\t65534\t65534\t65534\n");
}

TEST_F(ForkExecvUser, ChangesToTheHomeDirectoryWhenAsked) {
    TAMRIX_TEST_AS_ROOT();
    const passwd* daemon = ::getpwnam("daemon");
    ASSERT_NE(daemon, nullptr);
    const std::string home = daemon->pw_dir;
    EXPECT_EQ(shellAs("daemon", Home::change, "pwd; id -u"), 0);
    EXPECT_EQ(output, home + "\n1\n");
}

TEST_F(ForkExecvUser, AHomeDirectoryThatIsNotThereEndsTheChildWithTheReason) {
    TAMRIX_TEST_AS_ROOT();
    EXPECT_EQ(shellAs("nobody", Home::change, "echo ran"), 1);
    EXPECT_EQ(error, "Cannot chdir to 'nobody' homedir '/nonexistent'\n"
                     "System error 2: No such file or directory\n");
    EXPECT_EQ(output, error);
}

TEST_F(ForkExecvUser, TheUserIsSwitchedBeforeTheEnvironmentIsSet) {
    TAMRIX_TEST_AS_ROOT();
    EXPECT_EQ(forkExecvGetOutErr("", &output, &error, "/bin/true", ArgVector{"true"}.get(), "nobody", true,
                                 {{"A=B", "x"}}),
              1);
    EXPECT_EQ(error, "Cannot chdir to 'nobody' homedir '/nonexistent'\n"
                     "System error 2: No such file or directory\n");
}

TEST_F(ForkExecvUser, AnUnknownUserIsWarnedOfAndNoSwitch) {
    EXPECT_EQ(shellAs("no-such-user", Home::change, "id -u"), 0);
    EXPECT_EQ(error, "Unable to getpwnam for user no-such-user\n");
    EXPECT_EQ(output, std::to_string(::geteuid()) + "\n");
}

TEST_F(ForkExecvUser, UidZeroIsNoSwitchAndNoChangeOfDirectory) {
    std::filesystem::current_path("/");
    EXPECT_EQ(shellAs("root", Home::change, "id -u; pwd"), 0);
    EXPECT_EQ(output, std::to_string(::geteuid()) + "\n/\n");
}

} // namespace

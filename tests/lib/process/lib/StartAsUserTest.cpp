#include "lib/process/lib/StartAsUser.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/FatalMessage.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/Exceptions.h"
#include "lib/process/lib/ForkExecv.h"
#include "lib/process/lib/Pipe.h"
#include "tests/support/AsRoot.h"
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

namespace fs = std::filesystem;

const std::string noSuchFile = "forkExecvPipes: execv() failed: No such file or directory\n\n"
                               "System error 2: No such file or directory\n";
const std::string noHome = "Cannot chdir to 'nobody' homedir '/nonexistent'\n"
                           "System error 2: No such file or directory\n";
const std::string badDescriptor = "dup2Custom failed: Bad file descriptor\n";

enum class Home { stay, change };

class ForkExecvPipes : public testing::Test {
protected:
    int run(const std::string& path, const ArgVector& arguments, const Environment& environment = {},
            const std::string& user = "", Home home = Home::change) {
        output.clear();
        error.clear();
        return forkExecvGetOutErr("", &output, &error, path, arguments.get(), user, home == Home::change,
                                  environment);
    }
    int shell(const std::string& script, const Environment& environment = {}) {
        return run("/bin/sh", {"sh", "-c", script}, environment);
    }
    int shellAs(const std::string& user, Home home, const std::string& script) {
        return run("/bin/sh", {"sh", "-c", script}, {}, user, home);
    }
    void TearDown() override { EXPECT_FALSE(hasChildren()); }

    std::string output;
    std::string error;
    TempDir directory;
};

TEST_F(ForkExecvPipes, AProgramThatCannotBeRunIsReportedOnBothStreamsUnderTheUtilitysName) {
    EXPECT_EQ(run("/nonexistent/tool", {"tool"}), 1);
    EXPECT_EQ(error, noSuchFile);
    EXPECT_EQ(output, noSuchFile);
    setProgramPath("/opt/somewhere/tamrix");
    EXPECT_EQ(run("no-such-tool-on-any-path", {"tool"}, {{"PATH", "/usr/bin:/bin"}}), 1);
    setProgramPath(nullptr);
    EXPECT_EQ(error, "tamrix: " + noSuchFile);
    EXPECT_EQ(output, error);
    EXPECT_EQ(run(directory.path(""), {"tool"}), 1);
    EXPECT_EQ(error,
              "forkExecvPipes: execv() failed: Permission denied\n\nSystem error 13: Permission denied\n");
}

TEST_F(ForkExecvPipes, ANameWithoutASlashIsFoundAlongThePathOfTheExtraEnvironment) {
    EXPECT_EQ(run("printf", {"printf", "found"}), 0);
    EXPECT_EQ(output, "found");
    directory.script("own-tool", "echo own");
    EXPECT_EQ(run("own-tool", {"own-tool"}), 1);
    EXPECT_EQ(run("own-tool", {"own-tool"}, {{"PATH", directory.path()}}), 0);
    EXPECT_EQ(output, "own\n");
}

TEST_F(ForkExecvPipes, AScriptWithoutAnInterpreterLineRunsInTheShell) {
    directory.write("bare", "echo bare $1\n");
    fs::permissions(directory.path("bare"), fs::perms(0755));
    EXPECT_EQ(run(directory.path("bare"), {"bare", "x"}), 0);
    EXPECT_EQ(output, "bare x\n");
    EXPECT_EQ(run("/bin/sh", {"other-name", "-c", "echo $0"}), 0);
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
    EXPECT_EQ(run("/usr/bin/env", {"env"}, {{"TAMRIX_C", "1"}, {"TAMRIX_A", "2"}, {"TAMRIX_B", "3"}}), 0);
    EXPECT_TRUE(output.ends_with("\nTAMRIX_A=2\nTAMRIX_B=3\nTAMRIX_C=1\n")) << output;
}

TEST_F(ForkExecvPipes, AVariableNameThatCannotBeSetEndsTheChildWithTheReason) {
    for (const char* name : {"A=B", ""}) {
        EXPECT_EQ(shell("echo ran", {{name, "x"}}), 1);
        EXPECT_EQ(error, "forkExecvPipes: setenv() falied: Invalid argument\n");
        EXPECT_EQ(output, "");
    }
}

TEST_F(ForkExecvPipes, SignalsAreAtTheirDefaultsAndNoneIsBlocked) {
    EXPECT_TRUE(holdsInChild([this] {
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_IGN);
        sigset_t mask;
        ::sigfillset(&mask);
        ::sigprocmask(SIG_SETMASK, &mask, nullptr);
        run("/bin/grep", {"grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"});
        std::fputs(output.c_str(), stdout);
        // The C library's own two signals are ignored in whatever posix_spawn() started: under make, say.
        return std::regex_match(output, std::regex("SigBlk:\t0{16}\nSigIgn:\t0{7}[01][08]0{7}\n"));
    }));
}

TEST_F(ForkExecvPipes, NothingBeyondTheStandardDescriptorsIsInherited) {
    const int high = ::fcntl(0, F_DUPFD, 77);
    EXPECT_EQ(run("/bin/ls", {"ls", "/proc/self/fd"}), 0);
    ::close(high);
    EXPECT_EQ(output, "0\n1\n2\n3\n"); // 3 is ls reading the directory
}

TEST_F(ForkExecvPipes, PendingOutputOfTheParentIsNotPrintedByTheChild) {
    const auto outcome = inChild([this] {
        std::setvbuf(stdout, nullptr, _IOFBF, 4096);
        std::printf("the id\n");
        run("/nonexistent/tool", {"tool"});
        ::_exit(output == noSuchFile ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
    EXPECT_EQ(outcome.output, "the id\n");
}

// The status of a shell with these descriptors.
int start(int input, int out, int err, const std::string& script = "true") {
    const ArgVector arguments{"sh", "-c", script};
    const pid_t child = forkExecvPipes(input, out, err, "/bin/sh", arguments.get(), "", true, {});
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WEXITSTATUS(status);
}

TEST_F(ForkExecvPipes, NoDescriptorMeansTheNullDevice) {
    const CapturedStreams captured;
    EXPECT_EQ(start(-1, -1, ::dup(STDERR_FILENO),
                    "in=$(readlink /proc/$$/fd/0); out=$(readlink /proc/$$/fd/1); echo $in $out >&2"),
              0);
    EXPECT_EQ(captured.error(), "/dev/null /dev/null\n");
}

TEST_F(ForkExecvPipes, AFailureBeforeTheStreamsAreInPlaceIsStillReadByTheParent) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    const auto expectRead = [&ends] {
        char text[100] = {};
        EXPECT_GT(::recv(ends[0], text, sizeof text - 1, MSG_DONTWAIT), 0);
        EXPECT_EQ(text, badDescriptor);
    };
    EXPECT_EQ(start(999, -1, ends[1]), 1);
    expectRead();
    EXPECT_EQ(start(-1, ends[1], ends[1]), 1); // one can be given only once
    expectRead();
    EXPECT_EQ(start(ends[1], ends[1], ends[1]), 1);
    expectRead();
    // No descriptor is left for a copy, so the original itself is written to.
    inChild([&ends] {
        const auto most = static_cast<rlim_t>(ends[1]) + 1;
        const rlimit limit{most, most};
        ::setrlimit(RLIMIT_NOFILE, &limit);
        while (::dup(STDIN_FILENO) != -1) {
        }
        start(999, -1, ends[1]);
    });
    expectRead();
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(ForkExecvPipes, WithoutAnErrorStreamOfItsOwnTheChildComplainsOnOurs) {
    const CapturedStreams captured;
    EXPECT_EQ(start(999, -1, -1), 1);
    EXPECT_EQ(captured.error(), badDescriptor);
}

TEST_F(ForkExecvPipes, SwitchesUserAndGroupsForGood) {
    TAMRIX_TEST_AS_ROOT();
    fs::current_path("/");
    EXPECT_EQ(shellAs("nobody", Home::stay, "id -un; id -gn; id -Gn; pwd"), 0);
    EXPECT_EQ(output, "nobody\nnogroup\nnogroup\n/\n");
    EXPECT_EQ(error, "");
}

TEST_F(ForkExecvPipes, ChangesToTheHomeDirectoryWhenAskedBeforeTheEnvironmentIsSet) {
    TAMRIX_TEST_AS_ROOT();
    EXPECT_EQ(shellAs("daemon", Home::change, "pwd; id -u"), 0);
    EXPECT_EQ(output, "/usr/sbin\n1\n");
    EXPECT_EQ(run("/bin/true", {"true"}, {{"A=B", "x"}}, "nobody"), 1);
    EXPECT_EQ(error, noHome);
    EXPECT_EQ(output, noHome);
}

TEST_F(ForkExecvPipes, AnUnknownUserIsWarnedOfAndUidZeroIsNoSwitch) {
    fs::current_path("/");
    const std::string here = std::to_string(::geteuid()) + "\n/\n";
    EXPECT_EQ(shellAs("no-such-user", Home::change, "id -u; pwd"), 0);
    EXPECT_EQ(error, "Unable to getpwnam for user no-such-user\n");
    EXPECT_EQ(output, here);
    EXPECT_EQ(shellAs("root", Home::change, "id -u; pwd"), 0);
    EXPECT_EQ(output, here);
}

// Users with a home that exists on any Debian are used, and nobody, whose home does not. A process that has
// changed its user or its root cannot run the exit handlers of a test.
ChildOutcome runSwitched(const std::function<bool()>& body) {
    return inChild([&body] {
        markForkedChild();
        return body() ? 42 : 2;
    });
}

void expectHolds(const std::function<bool()>& body) {
    const ChildOutcome result = runSwitched(body);
    EXPECT_EQ(result.exitStatus(), 42);
    EXPECT_EQ(result.error, "");
}

bool runsAs(uid_t uid, gid_t gid) {
    std::array<uid_t, 3> uids{};
    std::array<gid_t, 3> gids{};
    ::getresuid(&uids[0], &uids[1], &uids[2]);
    ::getresgid(&gids[0], &gids[1], &gids[2]);
    return std::count(uids.begin(), uids.end(), uid) == 3 && std::count(gids.begin(), gids.end(), gid) == 3;
}

std::vector<gid_t> supplementaryGroups() {
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(::getgroups(0, nullptr), 0)));
    ::getgroups(static_cast<int>(groups.size()), groups.data());
    return groups;
}

bool isSameDirectory(const struct stat& before, const char* path) {
    struct stat now {};
    return ::stat(path, &now) == 0 && now.st_dev == before.st_dev && now.st_ino == before.st_ino;
}

TEST(SwitchUser, BecomesTheUserWithItsGroupsForGood) {
    TAMRIX_TEST_AS_ROOT();
    expectHolds([] {
        const std::array<gid_t, 2> strange{4711, 4712};
        (void)::setgroups(strange.size(), strange.data());
        return p_setuid("nobody", 0) == 0 && runsAs(65534, 65534) &&
               supplementaryGroups() == std::vector<gid_t>{65534} && ::setuid(0) == -1 && ::setgid(0) == -1;
    });
}

// The numbers are part of the interface.
TEST(SwitchUser, TheFlagsChangeToTheHomePermitUid0AndChangeTheRoot) {
    TAMRIX_TEST_AS_ROOT();
    EXPECT_EQ(setuidChdirHome, 1U);
    EXPECT_EQ(setuidAllowRoot, 2U);
    EXPECT_EQ(setuidChrootHome, 4U);
    fs::current_path("/tmp");
    expectHolds([] { return p_setuid("daemon", 0) == 0 && fs::current_path() == "/tmp"; });
    expectHolds(
        [] { return p_setuid("daemon", 1) == 0 && runsAs(1, 1) && fs::current_path() == "/usr/sbin"; });
    expectHolds([] { return p_setuid("root", 2) == 0 && runsAs(0, 0); });
    expectHolds([] {
        struct stat home {};
        ::stat("/usr/sbin", &home);
        p_setuid("daemon", 1 + 4);
        return runsAs(1, 1) && isSameDirectory(home, "/") && isSameDirectory(home, ".");
    });
}

// Where two steps fail, the first one is told: home, root, uid 0, groups, group id, user id.
TEST(SwitchUser, AFailureEndsTheProcessWithItsReason) {
    TAMRIX_TEST_AS_ROOT();
    using Calls = std::vector<Call>;
    const std::string denied = "System error 1: Operation not permitted\n";
    for (const auto& [user, flags, failing, text] : {
             std::tuple<const char*, unsigned, Calls, std::string>{"nobody", 1, {}, noHome},
             {"nobody", 1 + 4, {}, noHome},
             {"nobody",
              4,
              {},
              "Cannot chroot to 'nobody' homedir '/nonexistent'\nSystem error 2: No such file or "
              "directory\n"},
             {"root", 4, {Call::chroot}, "Cannot chroot to 'root' homedir '/root'\n" + denied},
             {"root", 1, {Call::initgroups}, "Cannot run as forbidden uid: 0\n"},
             {"sync",
              0,
              {Call::initgroups, Call::setgid},
              "Unable to init new groups for user 'sync': Operation not permitted\n" + denied},
             {"sync", 0, {Call::setgid, Call::setuid}, "Failed to setgid: 65534\n\n" + denied},
             {"sync", 0, {Call::setuid}, "Failed to setuid: 4\n\n" + denied},
         }) {
        const ChildOutcome result = runSwitched([&user = user, &flags = flags, &failing = failing] {
            conditions().errnoAfterLookup = ENOENT; // a user database may leave any
            for (const Call call : failing) {
                failCall(call, EPERM);
            }
            return p_setuid(user, flags) == 0;
        });
        EXPECT_EQ(result.exitStatus(), 1) << user;
        EXPECT_EQ(result.error, text);
        EXPECT_EQ(result.output, text);
    }
}

TEST(SwitchUser, AnUnknownUserIsTold) {
    const ChildOutcome result = runSwitched([] { return p_setuid("no-such-user", 0) == 0; });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Unable to getpwnam for user no-such-user\nUser 'no-such-user' not found\n");
    EXPECT_EQ(result.output, "User 'no-such-user' not found\n");
}

} // namespace

} // namespace quelm::test

#include "lib/process/lib/StartAsUser.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/FatalMessage.h"
#include "tests/support/AsRoot.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"

namespace quelm::test {

namespace {

// Users with a home that exists on any Debian are used, and nobody, whose home does not.
constexpr int good = 42;

// A process that has changed its user or its root cannot run the exit handlers of a test.
ChildOutcome runSwitched(const std::function<int()>& body) {
    return runForked([&body] {
        markForkedChild();
        return body();
    });
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

std::string workingDirectory() {
    std::array<char, 4096> path{};
    return ::getcwd(path.data(), path.size()) != nullptr ? path.data() : "";
}

bool isSameDirectory(const struct stat& before, const char* path) {
    struct stat now {};
    return ::stat(path, &now) == 0 && now.st_dev == before.st_dev && now.st_ino == before.st_ino;
}

TEST(SwitchUser, BecomesTheUserWithItsGroupsForGood) {
    TAMRIX_TEST_AS_ROOT();
    const ChildOutcome result = runSwitched([] {
        const std::array<gid_t, 2> strange{4711, 4712};
        (void)::setgroups(strange.size(), strange.data());
        if (p_setuid("nobody", 0) != 0) {
            return 1;
        }
        const bool switched = runsAs(65534, 65534) && supplementaryGroups() == std::vector<gid_t>{65534};
        return switched && ::setuid(0) == -1 && ::setgid(0) == -1 ? good : 2;
    });
    EXPECT_EQ(result.exitStatus(), good) << result.error;
    EXPECT_EQ(result.error, "");
}

TEST(SwitchUser, WithoutTheHomeFlagTheDirectoryStays) {
    TAMRIX_TEST_AS_ROOT();
    EXPECT_EQ(runSwitched([] {
                  (void)!::chdir("/tmp");
                  p_setuid("daemon", 0);
                  return workingDirectory() == "/tmp" ? good : 1;
              }).exitStatus(),
              good);
}

// The numbers are part of the interface.
TEST(SwitchUser, Bit1ChangesToTheHome) {
    TAMRIX_TEST_AS_ROOT();
    EXPECT_EQ(setuidChdirHome, 1U);
    EXPECT_EQ(runSwitched([] {
                  p_setuid("daemon", 1);
                  return runsAs(1, 1) && workingDirectory() == "/usr/sbin" ? good : 1;
              }).exitStatus(),
              good);
}

TEST(SwitchUser, Bit2PermitsUid0) {
    TAMRIX_TEST_AS_ROOT();
    EXPECT_EQ(setuidAllowRoot, 2U);
    EXPECT_EQ(runSwitched([] { return p_setuid("root", 2) == 0 && runsAs(0, 0) ? good : 1; }).exitStatus(),
              good);
}

TEST(SwitchUser, Bit4ChangesTheRootToTheHome) {
    TAMRIX_TEST_AS_ROOT();
    EXPECT_EQ(setuidChrootHome, 4U);
    EXPECT_EQ(runSwitched([] {
                  struct stat home {};
                  ::stat("/usr/sbin", &home);
                  p_setuid("daemon", 1 + 4);
                  return runsAs(1, 1) && isSameDirectory(home, "/") && isSameDirectory(home, ".") ? good : 1;
              }).exitStatus(),
              good);
}

// A user database may leave any errno behind when it has found the user.
TEST(SwitchUser, RootIsForbiddenWithoutBit2AndNoSystemErrorIsTold) {
    TAMRIX_TEST_AS_ROOT();
    const ChildOutcome result = runSwitched([] {
        leaveErrnoAfterLookup(ENOENT);
        return p_setuid("root", 1);
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Cannot run as forbidden uid: 0\n");
    EXPECT_EQ(result.output, "Cannot run as forbidden uid: 0\n");
}

TEST(SwitchUser, AHomeThatDoesNotExist) {
    TAMRIX_TEST_AS_ROOT();
    const ChildOutcome result = runSwitched([] { return p_setuid("nobody", 1); });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Cannot chdir to 'nobody' homedir '/nonexistent'\n"
                            "System error 2: No such file or directory\n");
}

TEST(SwitchUser, AHomeThatCannotBecomeTheRoot) {
    TAMRIX_TEST_AS_ROOT();
    const ChildOutcome result = runSwitched([] { return p_setuid("nobody", 4); });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Cannot chroot to 'nobody' homedir '/nonexistent'\n"
                            "System error 2: No such file or directory\n");
}

TEST(SwitchUser, TheHomeIsEnteredBeforeTheRootIsChanged) {
    TAMRIX_TEST_AS_ROOT();
    const ChildOutcome result = runSwitched([] { return p_setuid("nobody", 1 + 4); });
    EXPECT_EQ(result.error.rfind("Cannot chdir to 'nobody'", 0), 0U) << result.error;
}

// Of two steps that both must fail, the first one is told.
TEST(SwitchUser, TheRootIsChangedBeforeUid0IsForbidden) {
    TAMRIX_TEST_AS_ROOT();
    const ChildOutcome result = runSwitched([] {
        failCall(Call::chroot, EACCES);
        return p_setuid("root", 4);
    });
    EXPECT_EQ(result.error, "Cannot chroot to 'root' homedir '/root'\n"
                            "System error 13: Permission denied\n");
}

TEST(SwitchUser, Uid0IsForbiddenBeforeTheGroupsAreSet) {
    const ChildOutcome result = runSwitched([] {
        failCall(Call::initgroups, EPERM);
        return p_setuid("root", 0);
    });
    EXPECT_EQ(result.error, "Cannot run as forbidden uid: 0\n");
}

TEST(SwitchUser, TheGroupsAreSetBeforeTheGroupId) {
    const ChildOutcome result = runSwitched([] {
        failCall(Call::initgroups, EPERM);
        failCall(Call::setgid, EPERM);
        return p_setuid("sync", 0);
    });
    EXPECT_EQ(result.error, "Unable to init new groups for user 'sync': Operation not permitted\n"
                            "System error 1: Operation not permitted\n");
}

TEST(SwitchUser, TheGroupIdIsSetBeforeTheUserId) {
    TAMRIX_TEST_AS_ROOT();
    const ChildOutcome result = runSwitched([] {
        failCall(Call::setgid, EPERM);
        failCall(Call::setuid, EPERM);
        return p_setuid("sync", 0);
    });
    EXPECT_EQ(result.error, "Failed to setgid: 65534\n\nSystem error 1: Operation not permitted\n");
}

TEST(SwitchUserFailure, AnUnknownUser) {
    const ChildOutcome result = runSwitched([] { return p_setuid("no-such-user", 0); });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Unable to getpwnam for user no-such-user\nUser 'no-such-user' not found\n");
    EXPECT_EQ(result.output, "User 'no-such-user' not found\n");
}

TEST(SwitchUserFailure, TheGroups) {
    const ChildOutcome result = runSwitched([] {
        failCall(Call::initgroups, EPERM);
        return p_setuid("nobody", 0);
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Unable to init new groups for user 'nobody': Operation not permitted\n"
                            "System error 1: Operation not permitted\n");
}

TEST(SwitchUser, TheGroupId) {
    TAMRIX_TEST_AS_ROOT();
    const ChildOutcome result = runSwitched([] {
        failCall(Call::setgid, EPERM);
        return p_setuid("sync", 0); // uid 4, gid 65534
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Failed to setgid: 65534\n\nSystem error 1: Operation not permitted\n");
}

TEST(SwitchUser, TheUserIdAfterTheGroupIsChanged) {
    TAMRIX_TEST_AS_ROOT();
    const ChildOutcome result = runSwitched([] {
        failCall(Call::setuid, EAGAIN);
        return p_setuid("sync", 0);
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Failed to setuid: 4\n\nSystem error 11: Resource temporarily unavailable\n");
}

} // namespace

} // namespace quelm::test

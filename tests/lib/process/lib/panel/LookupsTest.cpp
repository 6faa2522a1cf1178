#include "lib/process/lib/panel/Lookups.h"

#include <cerrno>

#include <gtest/gtest.h>

#include "lib/process/lib/StartAsUser.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Faults.h"

namespace quelm::test {

namespace {

TEST(GroupLookup, FindsAGroupByName) {
    const std::optional<Group> found = findGroupByName("nogroup");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name, "nogroup");
    EXPECT_EQ(found->gid, 65534U);
}

TEST(GroupLookup, FindsAGroupByNumber) {
    const std::optional<Group> found = findGroupByGid(0);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name, "root");
    EXPECT_EQ(found->gid, 0U);
}

TEST(GroupLookup, TellsThatTheNameIsUnknown) {
    const CapturedStreams captured;
    errno = ENOENT;
    EXPECT_FALSE(findGroupByName("no-such-group"));
    EXPECT_EQ(captured.error(), "getgrnam(no-such-group): Group not found\n");
    EXPECT_EQ(captured.output(), "");
}

TEST(GroupLookup, TellsThatTheNumberIsUnknown) {
    const CapturedStreams captured;
    errno = ENOENT;
    EXPECT_FALSE(findGroupByGid(4000000000U));
    EXPECT_EQ(captured.error(), "getgrgid(4000000000): Group not found\n");
}

TEST(GroupLookup, TellsTheSystemsReasonForTheName) {
    const CapturedStreams captured;
    const FailedCall failing(Call::getgrnam, EIO);
    EXPECT_FALSE(findGroupByName("root"));
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(captured.error(), "getgrnam(root): Input/output error\n");
}

TEST(GroupLookup, TellsTheSystemsReasonForTheNumber) {
    const CapturedStreams captured;
    const FailedCall failing(Call::getgrgid, EIO);
    EXPECT_FALSE(findGroupByGid(0));
    EXPECT_EQ(captured.error(), "getgrgid(0): Input/output error\n");
}

} // namespace

} // namespace quelm::test

namespace quelm::test {

namespace {

constexpr uid_t unusedUid = 4000000000U;

TEST(UserLookup, FindsAUserWithGroupAndHome) {
    const std::optional<User> root = findUser("root");
    ASSERT_TRUE(root);
    EXPECT_EQ(root->name, "root");
    EXPECT_EQ(root->uid, 0U);
    EXPECT_EQ(root->gid, 0U);
    EXPECT_EQ(root->home, "/root");
    EXPECT_EQ(findUser("nobody")->uid, 65534U);
}

TEST(UserLookup, AnUnknownUserPrintsAWarningOnStandardError) {
    const CapturedStreams captured;
    EXPECT_FALSE(findUser("no-such-user"));
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(captured.error(), "Unable to getpwnam for user no-such-user\n");
    EXPECT_EQ(captured.output(), "");
}

TEST(UserLookup, AFailedLookupPrintsTheSameWarningAndKeepsErrno) {
    const CapturedStreams captured;
    const FailedCall failing(Call::getpwnam, EIO);
    EXPECT_FALSE(findUser("root"));
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(captured.error(), "Unable to getpwnam for user root\n");
}

TEST(UserLookup, UidByName) {
    const CapturedStreams captured;
    EXPECT_EQ(uidByName("nobody"), 65534U);
    EXPECT_EQ(captured.error(), "");
}

TEST(UserLookup, UidByNameTellsThatTheUserIsUnknown) {
    const CapturedStreams captured;
    errno = ENOENT;
    EXPECT_FALSE(uidByName("no-such-user"));
    EXPECT_EQ(captured.error(), "Unable to find uid for user no-such-user: User not found\n");
}

TEST(UserLookup, UidByNameTellsTheSystemsReason) {
    const CapturedStreams captured;
    const FailedCall failing(Call::getpwnam, EIO);
    EXPECT_FALSE(uidByName("root"));
    EXPECT_EQ(captured.error(), "Unable to find uid for user root: Input/output error\n");
}

TEST(UserLookup, NameByUid) {
    EXPECT_EQ(userNameByUid(65534), "nobody");
}

TEST(UserLookup, NameByUidTellsThatTheUserIsUnknown) {
    const CapturedStreams captured;
    errno = ENOENT;
    EXPECT_FALSE(userNameByUid(unusedUid));
    EXPECT_EQ(captured.error(), "User not found\n");
}

TEST(UserLookup, NameByUidTellsTheSystemsReason) {
    const CapturedStreams captured;
    const FailedCall failing(Call::getpwuid, EMFILE);
    EXPECT_FALSE(userNameByUid(0));
    EXPECT_EQ(captured.error(), "Too many open files\n");
}

} // namespace

} // namespace quelm::test

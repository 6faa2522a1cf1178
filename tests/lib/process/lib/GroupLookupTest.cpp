#include "lib/process/lib/GroupLookup.h"

#include <cerrno>

#include <gtest/gtest.h>

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

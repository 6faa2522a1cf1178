#include "lib/process/lib/panel/Lookups.h"

#include <cerrno>
#include <functional>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "lib/process/lib/StartAsUser.h"
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"

namespace quelm::test {

namespace {

TEST(Lookups, FindWhatIsThere) {
    const CapturedStreams captured;
    EXPECT_EQ(findGroupByName("nogroup").value().name, "nogroup");
    EXPECT_EQ(findGroupByName("nogroup").value().gid, 65534U);
    EXPECT_EQ(findGroupByGid(0).value().name, "root");
    EXPECT_EQ(findGroupByGid(0).value().gid, 0U);
    const User daemon = findUser("daemon").value();
    EXPECT_EQ(daemon.name, "daemon");
    EXPECT_EQ(daemon.uid, 1U);
    EXPECT_EQ(daemon.gid, 1U);
    EXPECT_EQ(daemon.home, "/usr/sbin");
    EXPECT_EQ(findUser("sync").value().gid, 65534U);
    EXPECT_EQ(uidByName("nobody"), 65534U);
    EXPECT_EQ(userNameByUid(65534), "nobody");
    EXPECT_EQ(captured.output() + captured.error(), "");
}

TEST(Lookups, TellWhatIsUnknownWhateverErrnoWas) {
    const std::string user = "Unable to getpwnam for user no-such-user\n";
    for (const auto& [found, text] :
         {std::pair<std::function<bool()>, std::string>{
              [] { return findGroupByName("no-such-group").has_value(); },
              "getgrnam(no-such-group): Group not found\n"},
          {[] { return findGroupByGid(4000000000U).has_value(); }, "getgrgid(4000000000): Group not found\n"},
          {[] { return findUser("no-such-user").has_value(); }, user},
          {[] { return uidByName("no-such-user").has_value(); },
           "Unable to find uid for user no-such-user: User not found\n"},
          {[] { return userNameByUid(4000000000U).has_value(); }, "User not found\n"}}) {
        const CapturedStreams captured;
        errno = ENOENT;
        EXPECT_FALSE(found());
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(captured.error(), text);
        EXPECT_EQ(captured.output(), "");
    }
}

TEST(Lookups, TellTheSystemsReason) {
    for (const auto& [call, found, text] :
         {std::tuple<Call, std::function<bool()>, std::string>{
              Call::getgrnam, [] { return findGroupByName("root").has_value(); },
              "getgrnam(root): Input/output error\n"},
          {Call::getgrgid, [] { return findGroupByGid(0).has_value(); }, "getgrgid(0): Input/output error\n"},
          {Call::getpwnam, [] { return findUser("root").has_value(); }, "Unable to getpwnam for user root\n"},
          {Call::getpwnam, [] { return uidByName("root").has_value(); },
           "Unable to find uid for user root: Input/output error\n"},
          {Call::getpwuid, [] { return userNameByUid(0).has_value(); }, "Input/output error\n"}}) {
        const CapturedStreams captured;
        const FailedCall failing(call, EIO);
        EXPECT_FALSE(found());
        EXPECT_EQ(errno, EIO);
        EXPECT_EQ(captured.error(), text);
    }
}

} // namespace

} // namespace quelm::test

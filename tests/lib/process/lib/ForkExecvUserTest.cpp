// Children that run as another user, for real.
#include "lib/process/lib/ForkExecv.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "lib/process/lib/ArgVector.h"
#include "tests/support/AsRoot.h"
#include "tests/support/TempDir.h"

namespace {

using quelm::ArgVector;
using quelm::forkExecvGetOutErr;

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

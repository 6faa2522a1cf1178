// What --add and --update show of the tools is in tests/system/test_sibling_tools.py.
#include "host/SiblingTools.h"

#include <cerrno>
#include <filesystem>
#include <functional>

#include <gtest/gtest.h>

#include "lib/process/lib/Exceptions.h"
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/TempDir.h"

namespace {

using quelm::setDefaultUlimit;
using quelm::setDepotDirtyFlag;
using quelm::test::inChild;
using quelm::test::readFile;
using quelm::test::TempDir;

class SiblingTools : public testing::Test {
protected:
    SiblingTools() { std::filesystem::create_directories(root_.path("admin/sbin")); }

    // The tool writes one argument a line to the file "called".
    void install(const std::string& name, const std::string& more = {}) {
        root_.script("admin/sbin/" + name,
                     "printf '%s\\n' \"$0\" \"$@\" >" + root_.path("called") + "\n" + more);
    }
    std::string tool(const std::string& name) const { return root_.path("admin/sbin/" + name); }
    std::string called() const { return readFile(root_.path("called")); }

    std::string ulimitError(const std::vector<std::string>& services) const {
        testing::internal::CaptureStderr();
        setDefaultUlimit(services, root_.path());
        return testing::internal::GetCapturedStderr();
    }

    TempDir root_;
};

TEST_F(SiblingTools, ThePanelsRootAndToolPathAreFixed) {
    EXPECT_STREQ(quelm::panelRoot, "/opt/ovt");
    EXPECT_EQ(quelm::adminTool(quelm::panelRoot, "depotctl"), "/opt/ovt/admin/sbin/depotctl");
}

TEST_F(SiblingTools, TheServiceOptionStandsOnceBeforeAllNames) {
    install("quotagate");
    EXPECT_EQ(ulimitError({"a", "b"}), "");
    EXPECT_EQ(called(), tool("quotagate") + "\n--set\n8192\n--service\na\nb\n--no-restart\n");
    EXPECT_EQ(ulimitError({}), "");
    EXPECT_EQ(called(), tool("quotagate") + "\n--set\n8192\n--service\n--no-restart\n");
}

TEST_F(SiblingTools, ASystemErrorLeavesTheDirtyFlagAndTheUlimitUnchanged) {
    install("depotctl");
    install("quotagate");
    const quelm::test::CapturedStreams captured;
    const quelm::test::FailedCall failing(quelm::test::Call::fork, EAGAIN);
    const std::function<void()> calls[] = {[this] { setDepotDirtyFlag(root_.path()); },
                                           [this] { setDefaultUlimit({"a"}, root_.path()); }};
    for (const auto& call : calls) {
        try {
            call();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const quelm::ExSystemError<11>& failure) {
            EXPECT_EQ(failure.message(), "forkExecvPipes: fork() failed");
            EXPECT_EQ(failure.code(), EAGAIN);
        }
    }
    EXPECT_EQ(captured.output() + captured.error(), "");
}

// Its primitive throws nothing: it ends the process, and no "service not found" is told.
TEST_F(SiblingTools, ASystemErrorLeavesTheServiceCheckUnchanged) {
    install("quelmrc");
    const quelm::test::ChildOutcome outcome = inChild([this] {
        quelm::test::failCall(quelm::test::Call::fork, EAGAIN);
        quelm::checkServiceExists("s", root_.path());
        return 2;
    });
    EXPECT_EQ(outcome.exitStatus(), 1);
    EXPECT_EQ(outcome.error, "fork_execv_pipes: fork() failed\n"
                             "System error 11: Resource temporarily unavailable\n");
    EXPECT_EQ(outcome.output, outcome.error);
}

TEST_F(SiblingTools, AnActionThatFailsIsReportedOnBothStreams) {
    install("quelmrc", "echo told; echo why >&2; exit 3");
    const auto outcome = inChild([&] { return quelm::runServiceAction("web", "restart", root_.path()); });
    EXPECT_EQ(called(), tool("quelmrc") + "\nweb\nrestart\n");
    EXPECT_EQ(outcome.exitStatus(), 3);
    EXPECT_EQ(outcome.error, "told\n" + tool("quelmrc") + " execution failed:\nwhy\n");
    EXPECT_EQ(outcome.output, tool("quelmrc") + " execution failed:\nwhy\n");
    install("quelmrc", "echo told; echo why >&2");
    EXPECT_EQ(inChild([&] { return quelm::runServiceAction("web", "start", root_.path()); }).error, "");
}

TEST_F(SiblingTools, EnablingAndDisablingAreSilentAlsoWhenTheyFail) {
    install("svc_enlist", "echo told; echo why >&2; exit 6");
    const auto enabled = inChild([&] { return quelm::enableService("web", root_.path()); });
    EXPECT_EQ(called(), tool("svc_enlist") + "\n--enable\nweb\n");
    EXPECT_EQ(enabled.exitStatus(), 6);
    EXPECT_EQ(enabled.output + enabled.error, "");
    const auto disabled = inChild([&] { return quelm::disableService("web", root_.path()); });
    EXPECT_EQ(called(), tool("svc_enlist") + "\n--disable\nweb\n");
    EXPECT_EQ(disabled.output + disabled.error, "");
}

TEST_F(SiblingTools, TheStatusLineIsRunningForZeroAndStoppedForAnyOther) {
    const auto outcome = inChild([] {
        quelm::printServiceStatus(0);
        quelm::printServiceStatus(3);
        quelm::printServiceStatus(-1);
    });
    EXPECT_EQ(outcome.output, "is running\nis stopped\nis stopped\n");
}

} // namespace

#include "host/SiblingTools.h"

#include <cerrno>
#include <filesystem>
#include <functional>

#include <gtest/gtest.h>

#include "cli/QuelmUtilException.h"
#include "host/ServiceTools.h"
#include "lib/process/lib/SystemError.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"
#include "tests/support/TempDir.h"

namespace {

using quelm::QuelmUtilException;
using quelm::setDefaultUlimit;
using quelm::setDepotDirtyFlag;
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

    std::string dirtyFlagFailure() const {
        try {
            setDepotDirtyFlag(root_.path());
        } catch (const QuelmUtilException& failure) {
            return failure.what();
        }
        return "no exception";
    }
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

TEST_F(SiblingTools, TheDirtyFlagIsOneOption) {
    install("depotctl");
    EXPECT_EQ(dirtyFlagFailure(), "no exception");
    EXPECT_EQ(called(), tool("depotctl") + "\n--set-dirty-flag\n");
}

TEST_F(SiblingTools, AFailedDirtyFlagThrowsTheStandardErrorAsItCame) {
    install("depotctl", "echo shown; echo 'no depot' >&2; exit 1");
    EXPECT_EQ(dirtyFlagFailure(), "Failed to set depotctl dirty flag : no depot\n");
}

TEST_F(SiblingTools, AFailedDirtyFlagWithoutAWordThrowsThePrefixAlone) {
    install("depotctl", "exit 1");
    EXPECT_EQ(dirtyFlagFailure(), "Failed to set depotctl dirty flag : ");
}

TEST_F(SiblingTools, AKilledDirtyFlagToolIsAFailure) {
    install("depotctl", "kill -KILL $$");
    EXPECT_EQ(dirtyFlagFailure(), "Failed to set depotctl dirty flag : ");
}

TEST_F(SiblingTools, AMissingDirtyFlagToolThrowsTheExecFailure) {
    EXPECT_EQ(dirtyFlagFailure(), "Failed to set depotctl dirty flag : "
                                  "forkExecvPipes: execv() failed: No such file or directory\n\n"
                                  "System error 2: No such file or directory\n");
}

TEST_F(SiblingTools, TheServiceOptionStandsOnceBeforeAllNames) {
    install("quotagate");
    EXPECT_EQ(ulimitError({"a", "b"}), "");
    EXPECT_EQ(called(), tool("quotagate") + "\n--set\n8192\n--service\na\nb\n--no-restart\n");
}

TEST_F(SiblingTools, AnEmptyServiceListStillRunsTheTool) {
    install("quotagate");
    EXPECT_EQ(ulimitError({}), "");
    EXPECT_EQ(called(), tool("quotagate") + "\n--set\n8192\n--service\n--no-restart\n");
}

TEST_F(SiblingTools, AFailedUlimitIsAMessageAndNoException) {
    install("quotagate", "echo 'no gate' >&2; exit 9");
    EXPECT_EQ(ulimitError({"a"}), "[Error] Failed to set default ulimit: no gate\n\n");
}

TEST_F(SiblingTools, AKilledUlimitToolIsAMessageWithoutAWordOfIts) {
    install("quotagate", "kill -KILL $$");
    EXPECT_EQ(ulimitError({"a"}), "[Error] Failed to set default ulimit: \n");
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
    const quelm::test::ChildOutcome outcome = quelm::test::runForked([this] {
        quelm::test::failCall(quelm::test::Call::fork, EAGAIN);
        quelm::checkServiceExists("s", root_.path());
        return 2;
    });
    EXPECT_EQ(outcome.exitStatus(), 1);
    EXPECT_EQ(outcome.error, "fork_execv_pipes: fork() failed\n"
                             "System error 11: Resource temporarily unavailable\n");
    EXPECT_EQ(outcome.output, outcome.error);
}

TEST_F(SiblingTools, AMissingUlimitToolIsAMessageWithTheExecFailure) {
    EXPECT_EQ(ulimitError({"a"}), "[Error] Failed to set default ulimit: "
                                  "forkExecvPipes: execv() failed: No such file or directory\n\n"
                                  "System error 2: No such file or directory\n\n");
}

} // namespace

#include "lib/process/lib/ExecCmd.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/support/AsRoot.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace {

using quelm::ExecCmd;
using quelm::test::TempDir;
using testing::ElementsAre;
using testing::IsNull;
using testing::Pair;
using testing::StrEq;

class ExecCmdRun : public testing::Test {
protected:
    ExecCmd shell(const std::string& script) {
        ExecCmd command("/bin/sh");
        command.addArg("-c").addArg(script);
        return command;
    }
    void TearDown() override { EXPECT_FALSE(quelm::test::hasChildren()); }

    TempDir directory;
};

TEST(ExecCmd, ANewOneHoldsItsProgramAndNothingElse) {
    const ExecCmd command("/bin/tool");
    EXPECT_EQ(command.programPath(), "/bin/tool");
    EXPECT_THAT(command.arguments().get(), ElementsAre(StrEq("/bin/tool"), IsNull()));
    EXPECT_TRUE(command.environment().empty());
    EXPECT_EQ(command.standardOutput(), "");
    EXPECT_EQ(command.standardError(), "");
    EXPECT_FALSE(command.executed());
    EXPECT_FALSE(command.systemErrorSet());
    EXPECT_EQ(command.systemErrorNumber(), 0);
    EXPECT_EQ(command.exitCode(), -1);
    EXPECT_EQ(command.lastError(), "");
}

TEST(ExecCmd, ArgumentsAreChained) {
    ExecCmd command("/bin/tool");
    EXPECT_EQ(&command.addArg("a").addArg(""), &command);
    EXPECT_THAT(command.arguments().get(), ElementsAre(StrEq("/bin/tool"), StrEq("a"), StrEq(""), IsNull()));
    EXPECT_EQ(command.commandText(), "/bin/tool a ''");
}

TEST(ExecCmd, AVariableSetTwiceIsReplaced) {
    ExecCmd command("/bin/tool");
    command.setEnv("B", "1");
    command.setEnv("A", "2");
    command.setEnv("B", "");
    EXPECT_THAT(command.environment(), ElementsAre(Pair("A", "2"), Pair("B", "")));
}

TEST(ExecCmd, ACopyHasArgumentsOfItsOwn) {
    ExecCmd original("/bin/tool");
    ExecCmd copy(original);
    copy.addArg("x");
    EXPECT_EQ(original.commandText(), "/bin/tool");
    EXPECT_EQ(copy.commandText(), "/bin/tool x");
    original = copy;
    copy.addArg("y");
    EXPECT_EQ(original.commandText(), "/bin/tool x");
}

// A pointer to a virtual member holds 1 + the offset of its slot; the destructor takes the first two slots.
template <class Member>
std::size_t slotOf(Member member) {
    std::size_t word = 0;
    static_assert(sizeof(member) >= sizeof(word));
    std::memcpy(&word, &member, sizeof(word));
    EXPECT_EQ(word % sizeof(void*), 1u) << "not virtual";
    return word / sizeof(void*);
}

TEST(ExecCmd, VirtualFunctionsKeepTheirSlots) {
    EXPECT_EQ(slotOf(&ExecCmd::addArg), 2u);
    EXPECT_EQ(slotOf(&ExecCmd::setEnv), 3u);
    EXPECT_EQ(slotOf(&ExecCmd::run), 4u);
    EXPECT_EQ(slotOf(&ExecCmd::runNoThrow), 5u);
    EXPECT_EQ(slotOf(&ExecCmd::execute), 6u);
    EXPECT_TRUE(std::has_virtual_destructor_v<ExecCmd>);
    EXPECT_FALSE(std::is_polymorphic_v<quelm::CmdLine>);
}

class Counting : public ExecCmd {
public:
    using ExecCmd::ExecCmd;
    int execute() override {
        ++executions;
        return result;
    }
    int executions = 0;
    int result = 0;
};

TEST(ExecCmd, BothRunsGoThroughTheVirtualExecute) {
    Counting command("/bin/tool");
    EXPECT_EQ(command.runNoThrow(), 0);
    command.result = 9;
    EXPECT_EQ(command.runNoThrow(), 9);
    EXPECT_THROW(command.run(), std::exception);
    EXPECT_EQ(command.executions, 3);
}

class Throwing : public ExecCmd {
public:
    using ExecCmd::ExecCmd;
    int execute() override { throw 5; }
};

TEST(ExecCmd, RunNoThrowSwallowsWhateverIsThrown) {
    Throwing command("/bin/tool");
    EXPECT_EQ(command.runNoThrow(), -1);
    EXPECT_THROW(command.run(), int);
}

TEST_F(ExecCmdRun, FeedsCollectsAndReturns) {
    ExecCmd command = shell("cat; echo \"$X\"; echo err >&2");
    command.setStandardInput("in ");
    command.setEnv("X", "value");
    EXPECT_EQ(command.run(), 0);
    EXPECT_TRUE(command.executed());
    EXPECT_EQ(command.exitCode(), 0);
    EXPECT_EQ(command.standardOutput(), "in value\n");
    EXPECT_EQ(command.standardError(), "err\n");
}

TEST_F(ExecCmdRun, AnotherExitCodeIsThrownByRunAndReturnedByRunNoThrow) {
    EXPECT_THROW(shell("exit 3").run(), std::exception);
    ExecCmd command = shell("exit 3");
    EXPECT_EQ(command.runNoThrow(), 3);
    EXPECT_EQ(command.exitCode(), 3);
    EXPECT_EQ(shell("kill -KILL $$").runNoThrow(), -1);
}

TEST_F(ExecCmdRun, ARunThatWaitedForOutputEndsWithEagainAlsoWhenItSucceeded) {
    ExecCmd command = shell("echo out; sleep 0.3");
    EXPECT_EQ(command.run(), 0);
    EXPECT_TRUE(command.systemErrorSet());
    EXPECT_EQ(command.systemErrorNumber(), EAGAIN);
    EXPECT_EQ(command.lastError(), "Resource temporarily unavailable");
}

TEST_F(ExecCmdRun, ARunWithoutOutputEndsWithoutASystemErrorWhateverWasBefore) {
    errno = EPERM;
    ExecCmd command = shell("exit 3");
    EXPECT_EQ(command.runNoThrow(), 3);
    EXPECT_FALSE(command.systemErrorSet());
    EXPECT_EQ(command.systemErrorNumber(), 0);
    EXPECT_EQ(command.lastError(), "");
}

TEST_F(ExecCmdRun, ASecondRunAppendsTheOutputsAndOverwritesTheRest) {
    const std::string mark = directory.path("mark");
    ExecCmd command =
        shell("if [ -e " + mark + " ]; then exit 3; fi; : > " + mark + "; echo out; echo err >&2; sleep 0.3");
    EXPECT_EQ(command.runNoThrow(), 0);
    EXPECT_TRUE(command.systemErrorSet());
    EXPECT_EQ(command.runNoThrow(), 3);
    EXPECT_EQ(command.exitCode(), 3);
    EXPECT_FALSE(command.systemErrorSet());
    EXPECT_EQ(command.systemErrorNumber(), 0);
    EXPECT_EQ(command.lastError(), "");
    std::filesystem::remove(mark);
    EXPECT_EQ(command.runNoThrow(), 0);
    EXPECT_EQ(command.standardOutput(), "out\nout\n");
    EXPECT_EQ(command.standardError(), "err\nerr\n");
}

TEST_F(ExecCmdRun, AProgramThatCannotBeStartedReturnsOneWithTheReasonInBothOutputs) {
    const std::string text = "forkExecvPipes: execv() failed: No such file or directory\n\n"
                             "System error 2: No such file or directory\n";
    ExecCmd command("/nonexistent/tool");
    EXPECT_EQ(command.runNoThrow(), 1);
    EXPECT_EQ(command.standardOutput(), text);
    EXPECT_EQ(command.standardError(), text);
    EXPECT_THROW(command.run(), std::exception);
}

TEST_F(ExecCmdRun, RunsAsTheGivenUserInTheHomeDirectoryUnlessTold) {
    TAMRIX_TEST_AS_ROOT();
    ExecCmd command = shell("id -u; pwd");
    command.setUser("nobody");
    EXPECT_EQ(command.runNoThrow(), 1);
    EXPECT_EQ(command.standardError(), "Cannot chdir to 'nobody' homedir '/nonexistent'\n"
                                       "System error 2: No such file or directory\n");
    ExecCmd staying = shell("id -u; pwd");
    staying.setUser("nobody");
    staying.setChangeToHome(false);
    std::filesystem::current_path("/");
    EXPECT_EQ(staying.run(), 0);
    EXPECT_EQ(staying.standardOutput(), "65534\n/\n");
}

} // namespace

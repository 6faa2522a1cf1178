#include "lib/process/lib/ExecCmd.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <typeinfo>

#include <unistd.h>

#include <gmock/gmock.h>

#include "base/Traceback.h"
#include "tests/support/AsRoot.h"
#include "tests/support/Captured.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

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
    void TearDown() override { EXPECT_FALSE(hasChildren()); }

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

TEST(ExecCmd, ArgumentsAreChainedAndAVariableSetTwiceIsReplaced) {
    ExecCmd command("/bin/tool");
    EXPECT_EQ(&command.addArg("a").addArg(""), &command);
    EXPECT_THAT(command.arguments().get(), ElementsAre(StrEq("/bin/tool"), StrEq("a"), StrEq(""), IsNull()));
    EXPECT_EQ(command.commandText(), "/bin/tool a ''");
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
    EXPECT_FALSE(std::is_polymorphic_v<CmdLine>);
}

class Replaced : public ExecCmd {
public:
    using ExecCmd::ExecCmd;
    int execute() override { return result != 5 ? result : throw 5; }
    int result = 0;
};

TEST(ExecCmd, BothRunsGoThroughTheVirtualExecuteAndRunNoThrowSwallowsWhateverIsThrown) {
    Replaced command("/bin/tool");
    EXPECT_EQ(command.runNoThrow(), 0);
    command.result = 9;
    EXPECT_EQ(command.runNoThrow(), 9);
    EXPECT_THROW(command.run(), std::exception);
    command.result = 5;
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
    EXPECT_THROW(shell("exit 3").run(), std::exception);
    EXPECT_EQ(shell("kill -KILL $$").runNoThrow(), -1);
}

TEST_F(ExecCmdRun, ARunThatWaitedForOutputEndsWithEagainAndAnyOtherWithoutASystemError) {
    ExecCmd waited = shell("echo out; sleep 0.3");
    EXPECT_EQ(waited.run(), 0);
    EXPECT_TRUE(waited.systemErrorSet());
    EXPECT_EQ(waited.systemErrorNumber(), EAGAIN);
    EXPECT_EQ(waited.lastError(), "Resource temporarily unavailable");
    errno = EPERM;
    ExecCmd silent = shell("exit 3");
    EXPECT_EQ(silent.runNoThrow(), 3);
    EXPECT_FALSE(silent.systemErrorSet());
    EXPECT_EQ(silent.systemErrorNumber(), 0);
    EXPECT_EQ(silent.lastError(), "");
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

using Failure = Exc<&ExecCmd::Failed, ExDefault>;

class ExecCmdReport : public testing::Test {
protected:
    ExecCmd hook(const std::string& body) { return ExecCmd(directory.script("hook", body)); }
    std::string reported(ExecCmd& command) {
        try {
            command.run();
        } catch (const Failure& failure) {
            return failure.what();
        }
        return "nothing was thrown";
    }
    std::string first(const std::string& arguments, const std::string& code) {
        return "Execution of " + directory.path("hook") + arguments + " failed with return code " + code +
               ".\n";
    }

    TempDir directory;
};

TEST_F(ExecCmdReport, EverySectionThatHasATextInItsOrderWithANewlineOnlyWhereMissing) {
    const std::string waited = "Last error is\nResource temporarily unavailable\n";
    const std::string drain = "cat >/dev/null; ";
    ExecCmd none = hook("exit 3");
    none.addArg("add").addArg("a b").addArg("");
    EXPECT_EQ(reported(none), first(" add a\\ b ''", "3"));
    ExecCmd all = hook(drain + "echo 'out 100% %1%'; printf warning >&2; sleep 0.3; exit 255");
    all.setStandardInput("given");
    EXPECT_EQ(reported(all), first("", "255") +
                                 "Stdin is\ngiven\nStdout is\nout 100% %1%\n"
                                 "Stderr is\nwarning\n" +
                                 waited);
    ExecCmd killed = hook(drain + "printf out; echo err >&2; sleep 0.3; kill -KILL $$");
    killed.setStandardInput("given\n");
    EXPECT_EQ(reported(killed),
              first("", "-1") + "Stdin is\ngiven\nStdout is\nout\nStderr is\nerr\n" + waited);
    ExecCmd newline = hook(drain + "exit 1");
    newline.setStandardInput("\n");
    EXPECT_EQ(reported(newline), first("", "1") + "Stdin is\n\n");
}

TEST_F(ExecCmdReport, OutputWithNulBytesIsReportedWhole) {
    ExecCmd command = hook("printf 'a\\000b'; sleep 0.3; exit 3");
    try {
        command.run();
        FAIL();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.message(), first("", "3") + std::string("Stdout is\na\0b\n", 14) +
                                         "Last error is\nResource temporarily unavailable\n");
        EXPECT_EQ(failure.what(), first("", "3") + "Stdout is\na");
    }
}

TEST_F(ExecCmdReport, TheExceptionNamesItsConstantPlace) {
    const ExecCmd command("/bin/tool");
    try {
        command.reportError();
        FAIL();
    } catch (const Failure& failure) {
        EXPECT_STREQ(failure.what(), "Execution of /bin/tool failed with return code -1.\n");
        EXPECT_EQ(failure.tag(), "ExecCmd::ExFailed");
        EXPECT_STREQ(failure.function(), "void quelm::ExecCmd::reportError() const");
        EXPECT_STREQ(failure.file(), "lib/process/lib/ExecCmd");
        EXPECT_EQ(failure.line(), 76);
        EXPECT_EQ(readableTypeName(typeid(failure).name()),
                  "quelm::Exc<&quelm::ExecCmd::Failed, quelm::ExDefault>");
    }
}

TEST_F(ExecCmdReport, InShort) {
    ExecCmd silent = hook("exit 0");
    silent.runNoThrow();
    EXPECT_EQ(silent.shortReport(), "The return code was 0"
                                    " \nNo output on STDOUT were performed by the utility"
                                    " \nNo output on STDERR were performed by the utility");
    ExecCmd command = hook("echo out; printf err >&2; sleep 0.3; exit 3");
    command.runNoThrow();
    EXPECT_EQ(command.shortReport(), "The return code was 3"
                                     " \nThe output on STDOUT was: \nout\n"
                                     " \nThe output on STDERR was: \nerr"
                                     " \nThe last error was: \nResource temporarily unavailable");
}

} // namespace

} // namespace quelm::test

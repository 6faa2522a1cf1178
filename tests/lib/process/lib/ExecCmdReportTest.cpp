// The texts in which a finished command is told.
#include "lib/process/lib/ExecCmd.h"

#include <string>
#include <typeinfo>

#include <gtest/gtest.h>

#include "cli/Demangle.h"
#include "tests/support/TempDir.h"

namespace {

using quelm::ExecCmd;
using Failure = quelm::Exc<&ExecCmd::Failed, quelm::ExDefault>;

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

    quelm::test::TempDir directory;
};

TEST_F(ExecCmdReport, WithoutAnyTextIsOneLine) {
    ExecCmd command = hook("exit 3");
    command.addArg("add").addArg("a b").addArg("");
    EXPECT_EQ(reported(command), first(" add a\\ b ''", "3"));
}

TEST_F(ExecCmdReport, EverySectionInItsOrderWithANewlineOnlyWhereMissing) {
    ExecCmd command = hook("cat >/dev/null; echo 'out 100% %1%'; printf warning >&2; sleep 0.3; exit 255");
    command.setStandardInput("given");
    EXPECT_EQ(reported(command), first("", "255") + "Stdin is\ngiven\n"
                                                    "Stdout is\nout 100% %1%\n"
                                                    "Stderr is\nwarning\n"
                                                    "Last error is\nResource temporarily unavailable\n");
}

TEST_F(ExecCmdReport, TextsThatEndTheirLineGetNoSecondNewline) {
    ExecCmd command = hook("cat >/dev/null; printf out; echo err >&2; sleep 0.3; kill -KILL $$");
    command.setStandardInput("given\n");
    EXPECT_EQ(reported(command), first("", "-1") + "Stdin is\ngiven\n"
                                                   "Stdout is\nout\n"
                                                   "Stderr is\nerr\n"
                                                   "Last error is\nResource temporarily unavailable\n");
}

TEST_F(ExecCmdReport, AnInputOfANewlineAloneIsASection) {
    ExecCmd command = hook("cat >/dev/null; exit 1");
    command.setStandardInput("\n");
    EXPECT_EQ(reported(command), first("", "1") + "Stdin is\n\n");
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
        EXPECT_EQ(quelm::readableTypeName(typeid(failure).name()),
                  "quelm::Exc<&quelm::ExecCmd::Failed, quelm::ExDefault>");
    }
}

TEST_F(ExecCmdReport, InShortWithoutAnyOutput) {
    ExecCmd command = hook("exit 0");
    command.runNoThrow();
    EXPECT_EQ(command.shortReport(), "The return code was 0"
                                     " \nNo output on STDOUT were performed by the utility"
                                     " \nNo output on STDERR were performed by the utility");
}

TEST_F(ExecCmdReport, InShortWithEverything) {
    ExecCmd command = hook("echo out; printf err >&2; sleep 0.3; exit 3");
    command.runNoThrow();
    EXPECT_EQ(command.shortReport(), "The return code was 3"
                                     " \nThe output on STDOUT was: \nout\n"
                                     " \nThe output on STDERR was: \nerr"
                                     " \nThe last error was: \nResource temporarily unavailable");
}

} // namespace

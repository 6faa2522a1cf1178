#include "lib/process/lib/ExecReport.h"

#include <cerrno>
#include <csignal>
#include <string>

#include <gtest/gtest.h>

#include "cli/FatalMessage.h"
#include "lib/process/lib/ArgVector.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

int shell(const std::string& script, bool quiet) {
    const ArgVector arguments{"sh", "-c", script};
    return exec_and_report("/bin/sh", arguments.data(), quiet);
}

TEST(ExecReport, ASuccessIsSilent) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("echo out; echo err >&2", false), 0);
    EXPECT_EQ(captured.output(), "");
    EXPECT_EQ(captured.error(), "");
}

TEST(ExecReport, AQuietFailureIsSilent) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("echo out; echo err >&2; exit 3", true), 3);
    EXPECT_EQ(captured.output(), "");
    EXPECT_EQ(captured.error(), "");
}

TEST(ExecReport, StandardOutputComesFirstOnStandardError) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("echo out; echo err >&2; exit 3", false), 3);
    EXPECT_EQ(captured.error(), "out\n/bin/sh execution failed:\nerr\n");
    EXPECT_EQ(captured.output(), "/bin/sh execution failed:\nerr\n");
}

TEST(ExecReport, AMissingNewlineIsAdded) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("printf err >&2; exit 3", false), 3);
    EXPECT_EQ(captured.error(), "/bin/sh execution failed:\nerr\n");
}

TEST(ExecReport, AFailureWithoutOutput) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("exit 3", false), 3);
    EXPECT_EQ(captured.error(), "/bin/sh execution failed (no output)\n");
    EXPECT_EQ(captured.output(), "/bin/sh execution failed (no output)\n");
}

TEST(ExecReport, StandardOutputAloneStillReadsNoOutput) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("echo out; exit 3", false), 3);
    EXPECT_EQ(captured.error(), "out\n/bin/sh execution failed (no output)\n");
}

TEST(ExecReport, NoNewlineIsAddedToStandardOutput) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("printf out; exit 3", false), 3);
    EXPECT_EQ(captured.error(), "out/bin/sh execution failed (no output)\n");
    EXPECT_EQ(captured.output(), "/bin/sh execution failed (no output)\n");
}

TEST(ExecReport, ATextThatStartsWithANulByteIsAnOutputAndPrintsNothing) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("printf 'a\\000b'; printf '\\000err' >&2; exit 3", false), 3);
    EXPECT_EQ(captured.error(), "a/bin/sh execution failed:\n");
    EXPECT_EQ(captured.output(), "/bin/sh execution failed:\n");
}

TEST(ExecReport, AKilledProgramIsReported) {
    const CapturedStreams captured;
    EXPECT_EQ(shell("kill -KILL $$", false), -1);
    EXPECT_EQ(captured.error(), "/bin/sh execution failed (no output)\n");
}

TEST(ExecReport, AMissingProgramIsReportedWithItsReason) {
    const CapturedStreams captured;
    const ArgVector arguments{"/no/such/program"};
    EXPECT_EQ(exec_and_report("/no/such/program", arguments.data(), false), 255);
    EXPECT_EQ(captured.error(), "/no/such/program execution failed:\nfork_execv: execv(\"/no/such/program\") "
                                "failed: No such file or directory\n");
}

TEST(ExecReport, TheUtilitysNameStandsBefore) {
    const CapturedStreams captured;
    setProgramPath("/usr/bin/tamrix");
    EXPECT_EQ(shell("echo out; echo err >&2; exit 3", false), 3);
    setProgramPath(nullptr);
    EXPECT_EQ(captured.error(), "out\ntamrix: /bin/sh execution failed:\nerr\n");
    EXPECT_EQ(captured.output(), "tamrix: /bin/sh execution failed:\nerr\n");
}

// A child that is found ended by looking leaves errno as it was.
TEST(ExecReport, NoSystemErrorIsToldForAProgramsFailure) {
    const TempDir directory;
    const std::string pidFile = directory.path("left-behind");
    {
        const CapturedStreams captured;
        errno = EAGAIN;
        EXPECT_EQ(shell("echo err >&2; sleep 60 & echo $! > " + pidFile + "; exit 3", false), 3);
        EXPECT_EQ(captured.error(), "/bin/sh execution failed:\nerr\n");
    }
    EXPECT_EQ(::kill(std::stoi(readFile(pidFile)), SIGKILL), 0);
}

} // namespace

} // namespace quelm::test

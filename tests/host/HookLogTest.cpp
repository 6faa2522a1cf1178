#include "host/HookLog.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/support/TempDir.h"

namespace {

using quelm::ExecCmd;
using quelm::formatLogTime;
using quelm::HookLog;
using quelm::test::readFile;
using quelm::test::TempDir;

// 2024-03-05 14:07:09 UTC
constexpr time_t sampleSecond = 1709647629;

class HookLogTime : public testing::Test {
protected:
    HookLogTime() { setZone("UTC"); }
    static void setZone(const char* zone) {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
};

TEST_F(HookLogTime, MillisecondsAreTruncatedAndPaddedToThreeDigits) {
    EXPECT_EQ(formatLogTime({sampleSecond, 0}), "[2024-03-05 14-07-09.000");
    EXPECT_EQ(formatLogTime({sampleSecond, 999}), "[2024-03-05 14-07-09.000");
    EXPECT_EQ(formatLogTime({sampleSecond, 42999}), "[2024-03-05 14-07-09.042");
    EXPECT_EQ(formatLogTime({sampleSecond, 999999}), "[2024-03-05 14-07-09.999");
}

TEST_F(HookLogTime, TheTimeIsLocal) {
    setZone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(formatLogTime({sampleSecond, 0}), "[2024-03-05 15-07-09.000");
}

class HookLogFile : public HookLogTime {
protected:
    TempDir directory_;
    std::string path_ = directory_.path("hooks.log");
};

TEST_F(HookLogFile, ARecordIsFlushedLineByLineAndVariablesStandInByteOrder) {
    ExecCmd command("/bin/sh");
    command.addArg("-c").addArg("echo out; printf err >&2; exit 3");
    command.setEnv("PHP_TYPE", "cgi");
    command.setEnv("PHP_CLI", "");
    command.runNoThrow();
    HookLog log(path_);
    log.append(command, {sampleSecond, 42000});
    EXPECT_EQ(readFile(path_), "[2024-03-05 14-07-09.042] Start: /bin/sh -c echo\\ out\\;\\ printf\\ err\\ "
                               "\\>\\&2\\;\\ exit\\ 3\n"
                               "PHP_CLI = \n"
                               "PHP_TYPE = cgi\n"
                               "stdout: out\n\n"
                               "stderr: err\n"
                               "Exit code: 3\n");
}

TEST_F(HookLogFile, OutputIsKeptByteForByte) {
    ExecCmd command("/bin/sh");
    command.addArg("-c").addArg("printf 'a\\000b\\377'");
    command.runNoThrow();
    HookLog(path_).append(command, {sampleSecond, 0});
    EXPECT_NE(readFile(path_).find(std::string("\nstdout: a\0b\xff\nstderr: \n", 23)), std::string::npos);
}

TEST_F(HookLogFile, IsCreatedEvenWithoutARecord) {
    { const HookLog log(path_); }
    EXPECT_TRUE(std::filesystem::exists(path_));
    EXPECT_EQ(readFile(path_), "");
}

TEST_F(HookLogFile, RecordsAreAppended) {
    directory_.write("hooks.log", "before\n");
    ExecCmd command("/bin/true");
    command.runNoThrow();
    HookLog(path_).append(command, {sampleSecond, 0});
    EXPECT_EQ(readFile(path_),
              "before\n[2024-03-05 14-07-09.000] Start: /bin/true\nstdout: \nstderr: \nExit code: 0\n");
}

TEST_F(HookLogFile, ALogThatCannotBeOpenedSwallowsItsRecords) {
    ExecCmd command("/bin/true");
    command.runNoThrow();
    HookLog log(directory_.path("missing/hooks.log"));
    EXPECT_NO_THROW(log.append(command, {sampleSecond, 0}));
    EXPECT_FALSE(std::filesystem::exists(directory_.path("missing")));
}

} // namespace

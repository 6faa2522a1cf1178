#include "host/HookRunner.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"
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

// The number of write calls that this process has made, or -1.
long writesMade() {
    std::ifstream counters("/proc/self/io");
    std::string name;
    long value = 0;
    while (counters >> name >> value) {
        if (name == "syscw:") {
            return value;
        }
    }
    return -1;
}

TEST_F(HookLogFile, EachLineOfARecordIsWrittenAtOnce) {
    ExecCmd command("/bin/true");
    command.setEnv("A", "1");
    command.setEnv("B", "2");
    HookLog log(path_);
    // Once for a sanitizer, which makes write calls of its own for what it has not seen yet.
    log.append(command, {sampleSecond, 0});
    ASSERT_NE(writesMade(), -1);
    const long before = writesMade();
    log.append(command, {sampleSecond, 0});
    const long after = writesMade();
    EXPECT_EQ(after - before, 6);
    const std::string record = "[2024-03-05 14-07-09.000] Start: /bin/true\n"
                               "A = 1\nB = 2\nstdout: \nstderr: \nExit code: -1\n";
    EXPECT_EQ(readFile(path_), record + record);
}

TEST_F(HookLogFile, ARecordHasItsLinesAndVariablesInByteOrder) {
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

TEST_F(HookLogFile, ALogThatCannotBeWrittenSwallowsItsRecords) {
    ExecCmd command("/bin/true");
    const quelm::test::CapturedStreams captured;
    HookLog log("/dev/full");
    EXPECT_NO_THROW(log.append(command, {sampleSecond, 0}));
    EXPECT_NO_THROW(log.append(command, {sampleSecond, 0}));
    EXPECT_EQ(captured.output() + captured.error(), "");
}

TEST_F(HookLogFile, AFifoThatNobodyReadsSwallowsItsRecords) {
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    ExecCmd command("/bin/true");
    command.runNoThrow();
    HookLog log(path_);
    log.append(command, {sampleSecond, 0});
}

TEST_F(HookLogFile, AFifoThatIsReadGetsItsRecords) {
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    const quelm::UniqueFd reader(::open(path_.c_str(), O_RDONLY | O_NONBLOCK));
    ExecCmd command("/bin/true");
    command.runNoThrow();
    HookLog(path_).append(command, {sampleSecond, 0});
    std::string text(200, '\0');
    const ssize_t count = ::read(reader.get(), text.data(), text.size());
    ASSERT_GT(count, 0);
    text.resize(static_cast<std::size_t>(count));
    EXPECT_EQ(text, "[2024-03-05 14-07-09.000] Start: /bin/true\nstdout: \nstderr: \nExit code: 0\n");
}

TEST_F(HookLogFile, AReaderThatWentAwayDoesNotEndTheProgram) {
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    quelm::UniqueFd reader(::open(path_.c_str(), O_RDONLY | O_NONBLOCK));
    ExecCmd command("/bin/true");
    command.runNoThrow();
    HookLog log(path_);
    reader.close();
    log.append(command, {sampleSecond, 0});
    log.append(command, {sampleSecond, 0});
}

TEST_F(HookLogFile, AFileSizeLimitCutsTheLogAndNothingElse) {
    const auto outcome = quelm::test::inChild([this] {
        const rlimit limit{50, 50};
        std::signal(SIGXFSZ, SIG_IGN); // as main leaves it
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ExecCmd command("/bin/true");
        command.runNoThrow();
        HookLog log(path_);
        log.append(command, {sampleSecond, 0});
        log.append(command, {sampleSecond, 0});
        ::_exit(7);
    });
    EXPECT_EQ(outcome.exitStatus(), 7);
    EXPECT_EQ(readFile(path_).size(), 50u);
}

} // namespace

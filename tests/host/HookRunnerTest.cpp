// The calls of scripts and the format of their log; which files are scripts is in tests/system/test_hooks.py.
#include "host/HookRunner.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

namespace fs = std::filesystem;

PhpHandler sampleHandler() {
    PhpHandler handler;
    handler.id = "the id";
    handler.path = "/p/php-cgi";
    handler.version = "8.2.1";
    handler.phpini = "/p/php.ini";
    handler.type = PhpHandlerType::fpm;
    return handler;
}

const std::string variables = "PHP_CLI = \nPHP_ID = the id\nPHP_INI = /p/php.ini\nPHP_PATH = /p/php-cgi\n"
                              "PHP_TYPE = fpm\nPHP_VERSION = 8.2.1\n";

class HookRunner : public testing::Test {
protected:
    HookRunner() { fs::create_directory(scripts_.path("d")); }

    std::string addScript(const std::string& name, const std::string& body) {
        return scripts_.script("d/" + name, body);
    }
    void run(const PhpHandler& handler = sampleHandler()) {
        runConfigurators("add", handler, scripts_.path("d/"), log_);
    }
    // The log with each time stamp replaced by "T".
    std::string records() const {
        const std::string form = "[2026-03-05 14-07-09.000] Start: ";
        std::string text = readFile(log_);
        for (std::size_t at = text.find("] Start: "); at != std::string::npos;
             at = text.find("] Start: ", at + 1)) {
            const std::size_t begin = at - form.find(']');
            EXPECT_EQ(text[begin], '[');
            at = text.replace(begin, form.find(']'), "[T").find(']', begin);
        }
        return text;
    }
    std::string record(const std::string& name, const std::string& output, const std::string& error,
                       const std::string& code) const {
        return "[T] Start: " + scripts_.path("d/" + name) + " add\n" + variables + "stdout: " + output +
               "\nstderr: " + error + "\nExit code: " + code + "\n";
    }

    TempDir scripts_;
    std::string log_ = scripts_.path("hooks.log");
};

TEST_F(HookRunner, ScriptsRunOneAfterAnotherInByteOrderWhateverTheyReturn) {
    addScript("2", "exit 7");
    addScript("10", "cat; echo end");
    addScript("1", "echo broken >&2; exit 255");
    addScript("3", "kill -KILL $$");
    addScript("4", "");
    scripts_.write("d/4", "#!/no/such/interpreter\n");
    const std::string failure = "forkExecvPipes: execv() failed: No such file or directory\n\n"
                                "System error 2: No such file or directory\n";
    run();
    failCall(Call::fork, EAGAIN, {.times = 1});
    runConfigurators("add", sampleHandler(), scripts_.path("d/"), scripts_.path("second.log"));
    EXPECT_EQ(records(), record("1", "", "broken\n", "255") + record("10", "end\n", "", "0") +
                             record("2", "", "", "7") + record("3", "", "", "-1") +
                             record("4", failure, failure, "1"));
    // The first script of the second run had no process.
    EXPECT_NE(readFile(scripts_.path("second.log")).find("stderr: \nExit code: -1\n"), std::string::npos);
    EXPECT_NE(readFile(scripts_.path("second.log")).find("stdout: end\n\n"), std::string::npos);
}

TEST_F(HookRunner, AnOutOfRangeTypeLeavesTheRunner) {
    addScript("any", "");
    PhpHandler handler = sampleHandler();
    handler.type = static_cast<PhpHandlerType>(9);
    EXPECT_THROW(run(handler), std::runtime_error);
}

// 2024-03-05 14:07:09 UTC
constexpr time_t sampleSecond = 1709647629;
const std::string sampleRecord =
    "[2024-03-05 14-07-09.000] Start: /bin/true\nstdout: \nstderr: \nExit code: 0\n";

class HookLogFile : public testing::Test {
protected:
    HookLogFile() {
        setZone("UTC");
        true_.runNoThrow();
    }
    static void setZone(const char* zone) {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }

    const TempDir directory_;
    const std::string path_ = directory_.path("hooks.log");
    ExecCmd true_{"/bin/true"};
};

TEST_F(HookLogFile, TheTimeIsLocalWithItsMillisecondsTruncated) {
    for (const auto& [microseconds, text] :
         {std::pair{0, "000"}, {999, "000"}, {42999, "042"}, {999999, "999"}}) {
        EXPECT_EQ(formatLogTime({sampleSecond, microseconds}), std::string("[2024-03-05 14-07-09.") + text);
    }
    setZone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(formatLogTime({sampleSecond, 0}), "[2024-03-05 15-07-09.000");
}

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
    ExecCmd command("/bin/sh");
    command.addArg("-c").addArg("echo out; printf 'a\\000b\\377' >&2; exit 3");
    command.setEnv("B", "2");
    command.setEnv("A", "");
    command.runNoThrow();
    directory_.write("hooks.log", "before\n");
    HookLog log(path_);
    // Once for a sanitizer, which makes write calls of its own for what it has not seen yet.
    log.append(command, {sampleSecond, 42000});
    ASSERT_NE(writesMade(), -1);
    const long before = writesMade();
    log.append(command, {sampleSecond, 42000});
    EXPECT_EQ(writesMade() - before, 6);
    const std::string record = "[2024-03-05 14-07-09.042] Start: /bin/sh -c echo\\ out\\;\\ printf\\ "
                               "\\'a\\\\000b\\\\377\\'\\ \\>\\&2\\;\\ exit\\ 3\nA = \nB = 2\nstdout: out\n\n"
                               "stderr: " +
                               std::string("a\0b\xff", 4) + "\nExit code: 3\n";
    EXPECT_EQ(readFile(path_), "before\n" + record + record);
}

TEST_F(HookLogFile, AFifoGetsItsRecordsUntilItsReaderGoesAway) {
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    UniqueFd reader(::open(path_.c_str(), O_RDONLY | O_NONBLOCK));
    HookLog log(path_);
    log.append(true_, {sampleSecond, 0});
    std::string text(200, '\0');
    text.resize(static_cast<std::size_t>(::read(reader.get(), text.data(), text.size())));
    EXPECT_EQ(text, sampleRecord);
    reader.close();
    log.append(true_, {sampleSecond, 0});
    log.append(true_, {sampleSecond, 0});
}

TEST_F(HookLogFile, AFileSizeLimitCutsTheLogAndNothingElse) {
    EXPECT_TRUE(holdsInChild([this] {
        const rlimit limit{50, 50};
        std::signal(SIGXFSZ, SIG_IGN); // as main leaves it
        ::setrlimit(RLIMIT_FSIZE, &limit);
        HookLog log(path_);
        log.append(true_, {sampleSecond, 0});
        log.append(true_, {sampleSecond, 0});
        return true;
    }));
    EXPECT_EQ(readFile(path_).size(), 50u);
}

} // namespace

} // namespace quelm::test

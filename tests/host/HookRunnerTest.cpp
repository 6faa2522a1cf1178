#include "host/HookRunner.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <stdexcept>

#include <gtest/gtest.h>

#include "tests/support/Faults.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using quelm::PhpHandler;
using quelm::PhpHandlerType;
using quelm::runConfigurators;
using quelm::test::readFile;
using quelm::test::TempDir;

PhpHandler sampleHandler() {
    PhpHandler handler;
    handler.id = "the id";
    handler.path = "/p/php-cgi";
    handler.clipath = "";
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
    void run(const std::string& action = "add", const PhpHandler& handler = sampleHandler()) {
        runConfigurators(action, handler, scripts_.path("d/"), log_);
    }
    // The log without its time stamps.
    std::string records() const {
        const std::regex stamp(R"(\[\d{4}-\d\d-\d\d \d\d-\d\d-\d\d\.\d{3}\] Start: )");
        return std::regex_replace(readFile(log_), stamp, "[T] Start: ");
    }

    TempDir scripts_;
    std::string log_ = scripts_.path("hooks.log");
};

TEST_F(HookRunner, EachScriptGetsPathAndActionAndTheSixVariables) {
    const std::string script = addScript(
        "10-a", R"(printf '%s|' "$0" "$#" "$1" "$PHP_ID" "$PHP_PATH" "${PHP_CLI-unset}" "$PHP_INI" )"
                R"("$PHP_VERSION" "$PHP_TYPE")");
    run("update");
    EXPECT_EQ(records(), "[T] Start: " + script + " update\n" + variables + "stdout: " + script +
                             "|1|update|the id|/p/php-cgi||/p/php.ini|8.2.1|fpm|\nstderr: \nExit code: 0\n");
}

TEST_F(HookRunner, ScriptsRunOneAfterAnotherInByteOrderWhateverTheyReturn) {
    addScript("2", "exit 7");
    addScript("10", "exit 0");
    addScript("1", "echo broken >&2; exit 255");
    run();
    const std::string prefix = "[T] Start: " + scripts_.path("d/");
    EXPECT_EQ(records(), prefix + "1 add\n" + variables + "stdout: \nstderr: broken\n\nExit code: 255\n" +
                             prefix + "10 add\n" + variables + "stdout: \nstderr: \nExit code: 0\n" + prefix +
                             "2 add\n" + variables + "stdout: \nstderr: \nExit code: 7\n");
}

TEST_F(HookRunner, AScriptKilledByASignalIsLoggedWithMinusOne) {
    addScript("kill", "kill -KILL $$");
    run();
    EXPECT_NE(records().find("\nExit code: -1\n"), std::string::npos) << records();
}

TEST_F(HookRunner, AScriptForWhichThereIsNoProcessIsLoggedWithMinusOneAndTheNextRuns) {
    addScript("1", "echo ran");
    addScript("2", "echo ran");
    quelm::test::failCallOnce(quelm::test::Call::fork, EAGAIN);
    EXPECT_NO_THROW(run());
    const std::string prefix = "[T] Start: " + scripts_.path("d/");
    EXPECT_EQ(records(), prefix + "1 add\n" + variables + "stdout: \nstderr: \nExit code: -1\n" + prefix +
                             "2 add\n" + variables + "stdout: ran\n\nstderr: \nExit code: 0\n");
}

TEST_F(HookRunner, AnOutputWithoutAFinalNewlineEndsInThatOfItsLine) {
    addScript("ok", "printf ok");
    run();
    EXPECT_NE(records().find("\nstdout: ok\nstderr: "), std::string::npos);
}

TEST_F(HookRunner, AnOutputWithAFinalNewlineLeavesAnEmptyLine) {
    addScript("ok", "echo ok");
    run();
    EXPECT_NE(records().find("\nstdout: ok\n\nstderr: "), std::string::npos);
}

TEST_F(HookRunner, AScriptThatCannotBeExecutedIsLoggedWithItsFailureInBothOutputs) {
    const std::string script = addScript("bad", "");
    scripts_.write("d/bad", "#!/no/such/interpreter\n");
    run();
    const std::string failure = "forkExecvPipes: execv() failed: No such file or directory\n\n"
                                "System error 2: No such file or directory\n";
    EXPECT_EQ(records(), "[T] Start: " + script + " add\n" + variables + "stdout: " + failure +
                             "\nstderr: " + failure + "\nExit code: 1\n");
}

TEST_F(HookRunner, AScriptReadsAnEmptyStandardInput) {
    addScript("reads", "cat; echo end");
    run();
    EXPECT_NE(records().find("\nstdout: end\n\n"), std::string::npos);
}

TEST_F(HookRunner, OurOwnEnvironmentIsInheritedAndOverwritten) {
    ::setenv("PHP_ID", "inherited", 1);
    ::setenv("HOOK_TEST", "kept", 1);
    addScript("env", R"(echo "$PHP_ID $HOOK_TEST")");
    run();
    EXPECT_NE(records().find("\nstdout: the id kept\n"), std::string::npos);
}

TEST_F(HookRunner, WithoutAScriptTheLogIsStillCreated) {
    run();
    EXPECT_TRUE(fs::exists(log_));
    EXPECT_EQ(readFile(log_), "");
}

TEST_F(HookRunner, TheLogIsOpenedOncePerCall) {
    const std::string moved = scripts_.path("moved.log");
    addScript("1", "mv " + log_ + " " + moved);
    addScript("2", "");
    run();
    EXPECT_FALSE(fs::exists(log_));
    fs::rename(moved, log_);
    const std::string prefix = "[T] Start: " + scripts_.path("d/");
    const std::string rest = " add\n" + variables + "stdout: \nstderr: \nExit code: 0\n";
    EXPECT_EQ(records(), prefix + "1" + rest + prefix + "2" + rest);
}

TEST_F(HookRunner, WithoutADirectoryNothingIsLogged) {
    EXPECT_THROW(runConfigurators("add", sampleHandler(), scripts_.path("none/"), log_),
                 fs::filesystem_error);
    EXPECT_FALSE(fs::exists(log_));
}

TEST_F(HookRunner, WithoutALogTheScriptsStillRun) {
    addScript("touch", "touch " + scripts_.path("ran"));
    runConfigurators("add", sampleHandler(), scripts_.path("d/"), scripts_.path("none/hooks.log"));
    EXPECT_TRUE(fs::exists(scripts_.path("ran")));
    EXPECT_FALSE(fs::exists(scripts_.path("none")));
}

TEST_F(HookRunner, AnOutOfRangeTypeLeavesTheRunner) {
    addScript("any", "");
    PhpHandler handler = sampleHandler();
    handler.type = static_cast<PhpHandlerType>(9);
    try {
        run("add", handler);
        FAIL();
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "Unknown php handler type : 9");
    }
}

TEST_F(HookRunner, TheTimeStampIsTheMomentOfTheEnd) {
    addScript("slow", "sleep 1; date '+%Y-%m-%d %H-%M-%S'");
    run();
    std::smatch match;
    const std::string log = readFile(log_);
    ASSERT_TRUE(std::regex_search(log, match, std::regex(R"(\[(\S+ \S+)\.\d+\] Start)")));
    EXPECT_NE(log.find("stdout: " + match[1].str()), std::string::npos) << log;
}

} // namespace

#include "host/HookRunner.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <set>
#include <stdexcept>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using quelm::listHookScripts;
using quelm::test::TempDir;
using Names = std::vector<std::string>;

Names namesIn(const TempDir& directory) {
    Names names;
    for (const std::string& path : listHookScripts(directory.path() + "/")) {
        EXPECT_TRUE(path.starts_with(directory.path() + "/")) << path;
        names.push_back(path.substr(directory.path().size() + 1));
    }
    return names;
}

void makeWithMode(const TempDir& directory, const std::string& name, mode_t mode) {
    ASSERT_EQ(::chmod(directory.write(name, "").c_str(), mode), 0);
}

TEST(HookScripts, RunInPlainByteOrder) {
    const TempDir directory;
    for (const char* name : {"1", "10", "2", "9-a", "10-a", "b", "A", "\xc3\xa9", ".hidden"}) {
        makeWithMode(directory, name, 0700);
    }
    EXPECT_EQ(namesIn(directory), (Names{".hidden", "1", "10", "10-a", "2", "9-a", "A", "b", "\xc3\xa9"}));
}

TEST(HookScripts, OnlyTheOwnersExecuteBitCounts) {
    const TempDir directory;
    makeWithMode(directory, "group-and-others", 0677);
    makeWithMode(directory, "nobody", 0666);
    makeWithMode(directory, "owner", 0100);
    EXPECT_EQ(namesIn(directory), Names{"owner"});
}

TEST(HookScripts, ALinkCountsAsWhatItPointsToAndKeepsItsOwnPath) {
    const TempDir directory;
    const TempDir elsewhere;
    const std::string target = elsewhere.script("target", "");
    fs::create_symlink(target, directory.path("link"));
    EXPECT_EQ(namesIn(directory), Names{"link"});
}

TEST(HookScripts, EverythingElseIsPassedOverInSilence) {
    const TempDir directory;
    fs::create_directory(directory.path("directory"));
    fs::create_symlink("nowhere", directory.path("dangling"));
    fs::create_symlink("loop", directory.path("loop"));
    ASSERT_EQ(::mkfifo(directory.path("fifo").c_str(), 0700), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(namesIn(directory), Names{});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(HookScripts, SubdirectoriesAreNotEntered) {
    const TempDir directory;
    fs::create_directory(directory.path("sub"));
    makeWithMode(directory, "sub/script", 0700);
    EXPECT_EQ(namesIn(directory), Names{});
}

TEST(HookScripts, AMissingDirectoryThrowsTheFileSystemsError) {
    const TempDir directory;
    EXPECT_THROW(listHookScripts(directory.path("none/")), fs::filesystem_error);
    directory.write("file", "");
    EXPECT_THROW(listHookScripts(directory.path("file")), fs::filesystem_error);
}

// Root may read everything, so another user looks.
TEST(HookScripts, ADirectoryThatMayNotBeReadThrowsTheFileSystemsError) {
    const TempDir directory;
    fs::permissions(directory.path(), fs::perms::none);
    const quelm::test::ChildOutcome outcome = quelm::test::inChild([&directory] {
        if (::geteuid() == 0 && ::setuid(65534) != 0) {
            return 1;
        }
        try {
            listHookScripts(directory.path() + "/");
        } catch (const fs::filesystem_error& failure) {
            return failure.code() == std::errc::permission_denied ? 42 : 2;
        }
        return 3;
    });
    fs::permissions(directory.path(), fs::perms::owner_all);
    EXPECT_EQ(outcome.exitStatus(), 42);
}

namespace fs = std::filesystem;
using quelm::PhpHandler;
using quelm::PhpHandlerType;
using quelm::runConfigurators;
using quelm::test::readFile;

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
    quelm::test::failCall(quelm::test::Call::fork, EAGAIN, {.times = 1});
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

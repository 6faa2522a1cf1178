#include "lib/process/lib/ForkExecv.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "base/FatalMessage.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/Exceptions.h"
#include "lib/process/lib/ExecCmd.h"
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace quelm::test {

namespace {

constexpr std::size_t megabyte = 1024 * 1024;

// Bytes that show a swapped, lost or doubled block.
std::string pattern(std::size_t size) {
    std::string text(size, '\0');
    unsigned state = 1;
    for (char& byte : text) {
        state = state * 1103515245u + 12345u;
        byte = static_cast<char>(state >> 16);
    }
    return text;
}

// However a run ends, no descriptor, child or disposition may be left.
class ForkExecv : public testing::Test {
protected:
    int shell(const std::string& script, const std::string& input = "") {
        output.clear();
        error.clear();
        const ArgVector arguments{"sh", "-c", script};
        return forkExecvGetOutErr(input, &output, &error, "/bin/sh", arguments.get());
    }
    int shellWith(SourceCallback source, SinkCallback outputSink, SinkCallback errorSink,
                  const std::string& script, void* context = nullptr) {
        const ArgVector arguments{"sh", "-c", script};
        return forkExecvGetOutErr(source, outputSink, errorSink, "/bin/sh", arguments.get(), "", true, {},
                                  context);
    }
    void expectThrown(const std::string& message, int code, const std::string& script,
                      const std::string& input = "") {
        try {
            shell(script, input);
            FAIL() << "nothing was thrown";
        } catch (const SystemError& failure) {
            EXPECT_EQ(failure.message(), message);
            EXPECT_EQ(failure.code(), code);
        }
    }
    void TearDown() override {
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_FALSE(hasChildren());
        EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
    }

    std::string output;
    std::string error;
    const std::vector<int> before = openDescriptors();
};

TEST_F(ForkExecv, CollectsBothStreamsApartAndTheExitStatus) {
    const std::string long1(300000, 'o');
    const std::string long2(300000, 'e');
    for (const auto& [script, status, out, err] :
         {std::tuple<const char*, int, std::string, std::string>{"echo out; echo err >&2; exit 7", 7, "out\n",
                                                                 "err\n"},
          {"exit 0", 0, "", ""},
          {"exit 255", 255, "", ""},
          {"echo out; kill -KILL $$", -1, "out\n", ""},
          {"kill -TERM $$", -1, "", ""},
          {"printf 'a\\000b'", 0, std::string("a\0b", 3), ""},
          {"exec >&- 2>&-; sleep 0.3; exit 7", 7, "", ""},
          {"yes e | tr -d '\\n' | head -c 300000 >&2; yes o | tr -d '\\n' | head -c 300000", 0, long1,
           long2}}) {
        EXPECT_EQ(shell(script), status) << script;
        EXPECT_TRUE(output == out) << script;
        EXPECT_TRUE(error == err) << script;
    }
}

TEST_F(ForkExecv, TheShorterFormsAppendToTheirStringsInheritTheEnvironmentAndDropWhatIsNull) {
    ::setenv("TAMRIX_TEST_INHERITED", "yes", 1);
    const ArgVector arguments{"sh", "-c", "cat; echo $TAMRIX_TEST_INHERITED; echo err >&2"};
    output = error = "before ";
    EXPECT_EQ(forkExecvGetOutErr(output, error, "/bin/sh", arguments.get()), 0);
    EXPECT_EQ(output, "before yes\n");
    EXPECT_EQ(error, "before err\n");
    EXPECT_EQ(forkExecvGetOutErr("in", &output, &error, "/bin/sh", arguments.get(), "", true), 0);
    EXPECT_EQ(output, "before yes\ninyes\n");
    EXPECT_EQ(error, "before err\nerr\n");
    const ArgVector loud{"sh", "-c", "head -c 200000 /dev/zero | tee /dev/stderr"};
    output = error = "";
    EXPECT_EQ(forkExecvGetOutErr("", nullptr, &error, "/bin/sh", loud.get()), 0);
    EXPECT_EQ(forkExecvGetOutErr("", &output, nullptr, "/bin/sh", loud.get()), 0);
    EXPECT_EQ(output.size() + error.size(), 400000u);
}

TEST_F(ForkExecv, OneMegabyteInAndOutOnBothStreamsAtOnce) {
    const std::string text = pattern(megabyte);
    EXPECT_EQ(shell("tee /dev/stderr", text), 0);
    EXPECT_TRUE(output == text);
    EXPECT_TRUE(error == text);
}

TEST_F(ForkExecv, AChildMayLeaveItsInputUnreadOrReadItAfterItClosedItsOutputs) {
    const std::string text = pattern(megabyte);
    EXPECT_EQ(shell("sleep 0.2; echo out; echo err >&2; exit 5", text), 5);
    EXPECT_EQ(output + error, "out\nerr\n");
    EXPECT_EQ(shell("exec <&-; sleep 0.2; echo late; exit 4", text), 4);
    EXPECT_EQ(output, "late\n");
    EXPECT_EQ(shell("exec >&- 2>&-; [ $(wc -c) = 1048576 ]", text), 0);
}

TEST_F(ForkExecv, EagainStaysInErrnoAfterARunThatWaitedForOutput) {
    errno = 0;
    EXPECT_EQ(shell("echo out; sleep 0.3"), 0);
    EXPECT_EQ(errno, EAGAIN);
    errno = 0;
    EXPECT_EQ(shell("exit 3"), 3);
    EXPECT_EQ(errno, 0);
}

TEST_F(ForkExecv, SurvivesInterruptingSignals) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 5000}, {0, 5000}};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    const int status = shell("sleep 0.3; cat; exec >&- 2>&-; sleep 0.3; exit 6", pattern(megabyte));
    const itimerval never{};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(status, 6);
    EXPECT_TRUE(output == pattern(megabyte));
}

// One context for the source and both sinks; blocks never exceed the sizes given.
struct Record {
    std::vector<std::size_t> capacities;
    int piecesLeft = 3;
    std::size_t largestOutput = 0;
    std::size_t largestError = 0;
    std::string output;
    std::string error;
};

std::size_t givePiece(char* buffer, std::size_t capacity, void* context) {
    auto& record = *static_cast<Record*>(context);
    record.capacities.push_back(capacity);
    return record.piecesLeft-- > 0 ? std::string("piece ").copy(buffer, capacity) : 0;
}

void recordOutput(const char* bytes, std::size_t count, void* context) {
    auto& record = *static_cast<Record*>(context);
    record.largestOutput = std::max(record.largestOutput, count);
    record.output.append(bytes, count);
}

void recordError(const char* bytes, std::size_t count, void* context) {
    auto& record = *static_cast<Record*>(context);
    record.largestError = std::max(record.largestError, count);
    record.error.append(bytes, count);
}

TEST_F(ForkExecv, CallbacksShareTheContextAndKeepToTheirSizes) {
    Record small;
    const ArgVector arguments{"sh", "-c", "cat | tee /dev/stderr"};
    EXPECT_EQ(forkExecvGetOutErr(givePiece, recordOutput, recordError, "/bin/sh", arguments.get(), "", true,
                                 {}, &small, 10, 5, 3),
              0);
    EXPECT_EQ(small.output, "piece piece piece ");
    EXPECT_EQ(small.error, "piece piece piece ");
    EXPECT_EQ(small.largestOutput, 5u);
    EXPECT_EQ(small.largestError, 3u);
    EXPECT_THAT(small.capacities, testing::ElementsAre(10u, 10u, 10u, 10u));
    Record usual;
    EXPECT_EQ(shellWith(givePiece, recordOutput, recordError,
                        "cat >/dev/null; head -c 100000 /dev/zero | tee /dev/stderr", &usual),
              0);
    EXPECT_EQ(usual.output.size() + usual.error.size(), 200000u);
    EXPECT_EQ(usual.largestOutput, 4096u);
    EXPECT_EQ(usual.largestError, 4096u);
    EXPECT_THAT(usual.capacities, testing::Each(4096u));
    EXPECT_EQ(shellWith(nullptr, nullptr, nullptr, "cat; head -c 100000 /dev/zero; exit 2"), 2);
}

// The first pass begins when the child has written on both streams and left its input unread.
TEST_F(ForkExecv, InputOutputAndErrorAreServedInThisOrder) {
    static std::string passed;
    const TempDir directory;
    const std::string mark = directory.path("mark");
    watchCall(Call::select, [&mark] {
        while (!std::filesystem::exists(mark)) {
            ::usleep(1000);
        }
    });
    EXPECT_EQ(shellWith([](char*, std::size_t, void*) { return passed += "input ", std::size_t{0}; },
                        [](const char*, std::size_t, void*) { passed += "output "; },
                        [](const char*, std::size_t, void*) { passed += "error "; },
                        "echo err >&2; echo out; : >" + mark + "; cat"),
              0);
    watchCall(Call::select, {});
    EXPECT_EQ(passed, "input output error ");
}

void throwNumber(const char* /*bytes*/, std::size_t /*count*/, void* /*context*/) {
    throw 7;
}

std::size_t giveForEver(char* buffer, std::size_t capacity, void* /*context*/) {
    return std::string(capacity, 'x').copy(buffer, capacity);
}

TEST_F(ForkExecv, AThrowingCallbackEndsTheChildAndItsExceptionArrives) {
    EXPECT_THROW(shellWith(nullptr, throwNumber, nullptr, "echo x; exec sleep 60"), int);
    EXPECT_THROW(shellWith(nullptr, nullptr, throwNumber, "echo x >&2; exec sleep 60"), int);
    const auto throwText = [](char*, std::size_t, void*) -> std::size_t { throw std::runtime_error("no"); };
    EXPECT_THROW(shellWith(throwText, nullptr, nullptr, "exec sleep 60"), std::runtime_error);
}

TEST_F(ForkExecv, TheChildIsAskedWithSigtermThenThePipesAreClosedThenItIsWaitedFor) {
    const TempDir directory;
    const std::string mark = directory.path("mark");
    std::size_t openThen = 0;
    watchCall(Call::kill, [&] { openThen = openDescriptors().size(); });
    EXPECT_THROW(shellWith(nullptr, throwNumber, nullptr,
                           "trap 'sleep 0.2; : > " + mark + "; exit 0' TERM; echo x; while :; do :; done"),
                 int);
    watchCall(Call::kill, {});
    EXPECT_TRUE(std::filesystem::exists(mark));
    EXPECT_EQ(openThen, before.size() + 2); // the input was closed at once
    // A child that is deaf to SIGTERM sees the end.
    EXPECT_THROW(shellWith(giveForEver, throwNumber, nullptr, "trap '' TERM; echo x; cat >/dev/null"), int);
}

TEST_F(ForkExecv, SigpipeIsIgnoredDuringTheRunAndThenAsItWas) {
    static void (*seen)(int) = SIG_DFL;
    const auto look = [](const char*, std::size_t, void*) {
        struct sigaction now {};
        ::sigaction(SIGPIPE, nullptr, &now);
        seen = now.sa_handler;
    };
    void (*const handler)(int) = [](int) {};
    std::signal(SIGPIPE, handler);
    EXPECT_EQ(shellWith(nullptr, look, nullptr, "echo x"), 0);
    EXPECT_EQ(seen, SIG_IGN);
    EXPECT_THROW(shellWith(nullptr, throwNumber, nullptr, "echo x"), int);
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), handler);
}

TEST_F(ForkExecv, WorksWith1500OpenDescriptors) {
    EXPECT_TRUE(holdsInChild([this] {
        setDescriptorLimit(4096);
        openMore(1500);
        const std::string text(100000, 'x');
        return isOpen(1500) && shell("tee /dev/stderr", text) == 0 && output == text && error == text;
    }));
}

TEST_F(ForkExecv, ExhaustedDescriptorsEndTheUtility) {
    for (const rlim_t room : {0u, 2u, 5u}) {
        const auto outcome = inChild([this, room] {
            // No exit handlers: a sanitizer's leak check needs descriptors of its own.
            markForkedChild();
            const int lowestFree = ::dup(STDIN_FILENO);
            for (int number = lowestFree; number < 64; ++number) {
                ::close(number);
            }
            const auto limit = static_cast<rlim_t>(lowestFree) + room;
            const rlimit tight{limit, limit};
            ::setrlimit(RLIMIT_NOFILE, &tight);
            shell("exit 0");
        });
        EXPECT_EQ(outcome.exitStatus(), 1);
        EXPECT_EQ(outcome.error, "forkExecvGetOutErr: pipe() failed\nSystem error 24: Too many open files\n");
        EXPECT_EQ(outcome.output, outcome.error);
    }
}

// Each of the three ends has its flags read and then set.
TEST_F(ForkExecv, AFailedFcntlOnAnyEndEndsTheUtility) {
    for (int call = 0; call < 6; ++call) {
        const auto outcome = inChild([this, call] {
            failCall(Call::fcntl, EBADF, {.skip = call, .times = 1, .hereOnly = true});
            shell("exit 0");
        });
        EXPECT_EQ(outcome.exitStatus(), 1) << call;
        EXPECT_EQ(outcome.error,
                  "forkExecvGetOutErr: fcntl(O_NONBLOCK) failed\nSystem error 9: Bad file descriptor\n");
        EXPECT_EQ(outcome.output, outcome.error);
    }
}

TEST_F(ForkExecv, AFailedCallIsThrownAndEndsTheChild) {
    const Which once{.times = 1, .hereOnly = true};
    failCall(Call::fork, EAGAIN, once);
    EXPECT_THROW(shell("exit 0"), ExSystemError<11>);
    failCall(Call::fork, ENOMEM, once);
    expectThrown("forkExecvPipes: fork() failed", ENOMEM, "exit 0");
    failCall(Call::select, EBADF, once);
    expectThrown("forkExecvGetOutErr: select() failed", EBADF, "exec sleep 60");
    failCall(Call::read, EIO, once);
    expectThrown("readToCallback failed", EIO, "echo out; exec sleep 60");
    failCall(Call::write, EIO, once);
    expectThrown("writeFromCallback failed", EIO, "exec sleep 60", "input");
}

TEST_F(ForkExecv, AnInterruptedCallIsRepeatedAndTheWaitAlsoAfterEchild) {
    for (const auto& [call, reason] : {std::pair{Call::select, EINTR},
                                       {Call::read, EINTR},
                                       {Call::write, EINTR},
                                       {Call::waitpid, EINTR},
                                       {Call::waitpid, ECHILD}}) {
        failCall(call, reason, {.times = 3, .hereOnly = true});
        EXPECT_EQ(shell("cat; exit 4", "input"), 4);
        EXPECT_GT(callsOf(call), 3);
        EXPECT_EQ(output, "input");
    }
}

TEST_F(ForkExecv, MemoryThatCannotBeHadAfterTheForkEndsTheChild) {
    const ArgVector arguments{"sh", "-c", "exec sleep 60"};
    for (int granted = 0; granted < 5; ++granted) { // three buffers, and the two sets of the selector
        const LimitedNew memory(granted);
        EXPECT_THROW(forkExecvGetOutErr(output, error, "/bin/sh", arguments.get()), std::bad_alloc);
    }
}

TEST_F(ForkExecv, AnyOtherFailureOfTheWaitOrAWaitThatReturnsNobodyGivesMinusOne) {
    failCall(Call::waitpid, EINVAL, {.times = 1, .hereOnly = true});
    EXPECT_EQ(shell("exit 0"), -1);
    EXPECT_NE(::waitpid(-1, nullptr, 0), -1);
    conditions().waitAnswer = {0, 0};
    EXPECT_EQ(shell("exit 0"), -1);
    EXPECT_NE(::waitpid(-1, nullptr, 0), -1);
}

TEST_F(ForkExecv, ACommandThatThrewKeepsItsExitCode) {
    const auto failFork = [] { failCall(Call::fork, EAGAIN, {.times = 1, .hereOnly = true}); };
    ExecCmd command("/bin/sh");
    command.addArg("-c").addArg("exit 3");
    failFork();
    EXPECT_THROW(command.execute(), SystemError);
    EXPECT_TRUE(command.executed());
    EXPECT_EQ(command.exitCode(), -1);
    failFork();
    EXPECT_EQ(command.runNoThrow(), -1);
    EXPECT_EQ(command.runNoThrow(), 3);
    failFork();
    EXPECT_EQ(command.runNoThrow(), 3);
    failFork();
    EXPECT_THROW(command.run(), ExSystemError<11>);
    EXPECT_EQ(command.exitCode(), 3);
}

} // namespace

} // namespace quelm::test

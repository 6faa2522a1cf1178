#include "lib/process/lib/ForkExecv.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "base/FatalMessage.h"
#include "lib/process/lib/CmdLine.h"
#include "lib/process/lib/Exceptions.h"
#include "lib/process/lib/ExecCmd.h"
#include "tests/support/Faults.h"
#include "tests/support/InChild.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TempDir.h"

namespace {

using quelm::ArgVector;
using quelm::forkExecvGetOutErr;

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

class ForkExecv : public testing::Test {
protected:
    int shell(const std::string& input, const std::string& script) {
        return forkExecvGetOutErr(input, &output, &error, "/bin/sh", ArgVector{"sh", "-c", script}.get());
    }
    void TearDown() override {
        EXPECT_EQ(quelm::test::openDescriptors(), before);
        EXPECT_FALSE(quelm::test::hasChildren());
    }

    std::string output;
    std::string error;
    const std::set<std::string> before = quelm::test::openDescriptors();
};

TEST_F(ForkExecv, CollectsBothStreamsApartAndTheExitStatus) {
    EXPECT_EQ(shell("", "echo out; echo err >&2; exit 7"), 7);
    EXPECT_EQ(output, "out\n");
    EXPECT_EQ(error, "err\n");
}

TEST_F(ForkExecv, ExitStatusesUpTo255) {
    EXPECT_EQ(shell("", "exit 0"), 0);
    EXPECT_EQ(shell("", "exit 255"), 255);
}

TEST_F(ForkExecv, AppendsToTheStrings) {
    output = "before ";
    error = "earlier ";
    EXPECT_EQ(shell("", "printf out; printf err >&2"), 0);
    EXPECT_EQ(output, "before out");
    EXPECT_EQ(error, "earlier err");
}

TEST_F(ForkExecv, TheShortestFormHasAnEmptyInput) {
    EXPECT_EQ(forkExecvGetOutErr(output, error, "/bin/sh", ArgVector{"sh", "-c", "cat; echo end"}.get()), 0);
    EXPECT_EQ(output, "end\n");
}

TEST_F(ForkExecv, TheFormWithAUserInheritsTheEnvironment) {
    ::setenv("TAMRIX_TEST_INHERITED", "yes", 1);
    EXPECT_EQ(forkExecvGetOutErr("in", &output, &error, "/bin/sh",
                                 ArgVector{"sh", "-c", "cat; echo $TAMRIX_TEST_INHERITED"}.get(), "", true),
              0);
    EXPECT_EQ(output, "inyes\n");
}

TEST_F(ForkExecv, ANullStringDropsItsStream) {
    EXPECT_EQ(forkExecvGetOutErr("", nullptr, &error, "/bin/sh",
                                 ArgVector{"sh", "-c", "head -c 200000 /dev/zero; echo err >&2"}.get()),
              0);
    EXPECT_EQ(error, "err\n");
    EXPECT_EQ(forkExecvGetOutErr("", &output, nullptr, "/bin/sh",
                                 ArgVector{"sh", "-c", "head -c 200000 /dev/zero >&2; echo out"}.get()),
              0);
    EXPECT_EQ(output, "out\n");
}

TEST_F(ForkExecv, OneMegabyteBothWays) {
    const std::string text = pattern(megabyte);
    EXPECT_EQ(forkExecvGetOutErr(text, &output, &error, "cat", ArgVector{"cat"}.get()), 0);
    EXPECT_TRUE(output == text);
    EXPECT_EQ(error, "");
}

TEST_F(ForkExecv, OneMegabyteInAndOutOnBothStreamsAtOnce) {
    const std::string text = pattern(megabyte);
    EXPECT_EQ(shell(text, "tee /dev/stderr"), 0);
    EXPECT_TRUE(output == text);
    EXPECT_TRUE(error == text);
}

TEST_F(ForkExecv, MoreThanABufferOnBothStreamsDoesNotDeadlock) {
    EXPECT_EQ(shell("", "head -c 300000 /dev/zero >&2; head -c 300000 /dev/zero"), 0);
    EXPECT_EQ(output.size(), 300000u);
    EXPECT_EQ(error.size(), 300000u);
}

TEST_F(ForkExecv, AnEmptyInputIsClosedSoThatReadersEnd) {
    EXPECT_EQ(forkExecvGetOutErr("", &output, &error, "cat", ArgVector{"cat"}.get()), 0);
    EXPECT_EQ(output, "");
}

TEST_F(ForkExecv, AChildThatNeverReadsLosesTheInputWithoutAnError) {
    EXPECT_EQ(shell(pattern(megabyte), "sleep 0.2; echo out; echo err >&2; exit 5"), 5);
    EXPECT_EQ(output, "out\n");
    EXPECT_EQ(error, "err\n");
}

TEST_F(ForkExecv, AChildThatClosesItsInputGoesOnBeingCollected) {
    EXPECT_EQ(shell(pattern(megabyte), "exec <&-; sleep 0.2; echo late; exit 4"), 4);
    EXPECT_EQ(output, "late\n");
}

TEST_F(ForkExecv, AChildThatClosesItsOutputsIsWaitedFor) {
    EXPECT_EQ(shell("", "exec >&- 2>&-; sleep 0.3; exit 7"), 7);
}

TEST_F(ForkExecv, InputIsStillFedAfterBothOutputsClosed) {
    EXPECT_EQ(shell(pattern(megabyte), "exec >&- 2>&-; [ $(wc -c) = 1048576 ]"), 0);
}

TEST_F(ForkExecv, AKilledChildGivesMinusOne) {
    EXPECT_EQ(shell("", "echo out; kill -KILL $$"), -1);
    EXPECT_EQ(output, "out\n");
    EXPECT_EQ(shell("", "kill -TERM $$"), -1);
}

TEST_F(ForkExecv, OutputMayHoldNulBytes) {
    EXPECT_EQ(shell("", "printf 'a\\000b'"), 0);
    EXPECT_EQ(output, std::string("a\0b", 3));
}

TEST_F(ForkExecv, EagainStaysInErrnoAfterARunThatWaited) {
    errno = 0;
    EXPECT_EQ(shell("", "echo out; sleep 0.3"), 0);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(ForkExecv, ErrnoStaysZeroAfterARunWithoutOutput) {
    errno = 0;
    EXPECT_EQ(shell("", "exit 3"), 3);
    EXPECT_EQ(errno, 0);
}

TEST_F(ForkExecv, SurvivesInterruptingSignals) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 5000}, {0, 5000}};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    const int status = shell(pattern(megabyte), "sleep 0.3; cat; exec >&- 2>&-; sleep 0.3; exit 6");
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
    Record record;
    const int status = forkExecvGetOutErr(givePiece, recordOutput, recordError, "/bin/sh",
                                          ArgVector{"sh", "-c", "cat | tee /dev/stderr"}.get(), "", true, {},
                                          &record, 10, 5, 3);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(record.output, "piece piece piece ");
    EXPECT_EQ(record.error, "piece piece piece ");
    EXPECT_EQ(record.largestOutput, 5u);
    EXPECT_EQ(record.largestError, 3u);
    EXPECT_THAT(record.capacities, testing::ElementsAre(10u, 10u, 10u, 10u));
}

TEST_F(ForkExecv, BlocksAreOf4096BytesUnlessToldOtherwise) {
    Record record;
    EXPECT_EQ(forkExecvGetOutErr(
                  givePiece, recordOutput, recordError, "/bin/sh",
                  ArgVector{"sh", "-c", "cat >/dev/null; head -c 100000 /dev/zero | tee /dev/stderr"}.get(),
                  "", true, {}, &record),
              0);
    EXPECT_EQ(record.output.size(), 100000u);
    EXPECT_EQ(record.largestOutput, 4096u);
    EXPECT_EQ(record.error.size(), 100000u);
    EXPECT_EQ(record.largestError, 4096u);
    EXPECT_THAT(record.capacities, testing::Each(4096u));
}

TEST_F(ForkExecv, NullCallbacksGiveNothingAndDropEverything) {
    EXPECT_EQ(forkExecvGetOutErr(nullptr, nullptr, nullptr, "/bin/sh",
                                 ArgVector{"sh", "-c", "cat; head -c 100000 /dev/zero; exit 2"}.get(), "",
                                 true, {}, nullptr),
              2);
}

using quelm::SinkCallback;
using quelm::SourceCallback;
using quelm::test::inChild;

class ForkExecvTrouble : public testing::Test {
protected:
    int shell(SourceCallback source, SinkCallback outputSink, SinkCallback errorSink,
              const std::string& script) {
        return forkExecvGetOutErr(source, outputSink, errorSink, "/bin/sh",
                                  ArgVector{"sh", "-c", script}.get(), "", true, {}, nullptr);
    }
    // However it ends, nothing may be left.
    void TearDown() override {
        EXPECT_EQ(quelm::test::openDescriptors(), before);
        EXPECT_FALSE(quelm::test::hasChildren());
        EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
    }

    const std::set<std::string> before = quelm::test::openDescriptors();
};

void throwNumber(const char* /*bytes*/, std::size_t /*count*/, void* /*context*/) {
    throw 7;
}

std::size_t throwText(char* /*buffer*/, std::size_t /*capacity*/, void* /*context*/) {
    throw std::runtime_error("no input");
}

TEST_F(ForkExecvTrouble, AThrowingOutputSinkEndsTheChildAndItsExceptionArrives) {
    EXPECT_THROW(shell(nullptr, throwNumber, nullptr, "echo x; exec sleep 60"), int);
}

TEST_F(ForkExecvTrouble, AThrowingErrorSinkEndsTheChildAndItsExceptionArrives) {
    EXPECT_THROW(shell(nullptr, nullptr, throwNumber, "echo x >&2; exec sleep 60"), int);
}

TEST_F(ForkExecvTrouble, AThrowingSourceEndsTheChildAndItsExceptionArrives) {
    try {
        shell(throwText, nullptr, nullptr, "exec sleep 60");
        FAIL();
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "no input");
    }
}

TEST_F(ForkExecvTrouble, TheChildIsAskedWithSigtermAndWaitedFor) {
    const quelm::test::TempDir directory;
    const std::string mark = directory.path("mark");
    EXPECT_THROW(shell(nullptr, throwNumber, nullptr,
                       "trap 'sleep 0.2; : > " + mark + "; exit 0' TERM; echo x; while :; do :; done"),
                 int);
    EXPECT_TRUE(std::filesystem::exists(mark));
}

std::size_t giveForEver(char* buffer, std::size_t capacity, void* /*context*/) {
    return std::string(capacity, 'x').copy(buffer, capacity);
}

TEST_F(ForkExecvTrouble, ThePipesAreClosedBeforeTheWaitSoThatAChildDeafToSigtermSeesTheEnd) {
    EXPECT_THROW(shell(giveForEver, throwNumber, nullptr, "trap '' TERM; echo x; cat >/dev/null"), int);
}

TEST_F(ForkExecvTrouble, NeitherDescriptorsNorChildrenPileUp) {
    for (int i = 0; i < 50; ++i) {
        std::string output;
        std::string error;
        EXPECT_EQ(forkExecvGetOutErr(output, error, "/nonexistent/tool", ArgVector{"tool"}.get()), 1);
        EXPECT_EQ(forkExecvGetOutErr(output, error, "/bin/true", ArgVector{"true"}.get()), 0);
    }
    EXPECT_EQ(quelm::test::openDescriptors(), before);
}

TEST_F(ForkExecvTrouble, WorksUnderAnIgnoredSigchld) {
    std::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(shell(nullptr, nullptr, nullptr, "exit 3"), 3);
}

void (*dispositionSeen)(int) = SIG_DFL;

void lookAtSigpipe(const char* /*bytes*/, std::size_t /*count*/, void* /*context*/) {
    struct sigaction now {};
    ::sigaction(SIGPIPE, nullptr, &now);
    dispositionSeen = now.sa_handler;
}

TEST_F(ForkExecvTrouble, SigpipeIsIgnoredDuringTheRunAndThenAsItWas) {
    const auto handler = [](int) {};
    struct sigaction mine {};
    mine.sa_handler = handler;
    ::sigaction(SIGPIPE, &mine, nullptr);
    EXPECT_EQ(shell(nullptr, lookAtSigpipe, nullptr, "echo x"), 0);
    EXPECT_EQ(dispositionSeen, SIG_IGN);
    EXPECT_THROW(shell(nullptr, throwNumber, nullptr, "echo x"), int);
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), static_cast<void (*)(int)>(handler));
}

TEST_F(ForkExecvTrouble, WorksWith1500OpenDescriptors) {
    const auto outcome = inChild([] {
        rlimit limit{};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 4096;
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            ::_exit(99);
        }
        int highest = 0;
        for (int i = 0; i < 1500; ++i) {
            highest = ::dup(STDIN_FILENO);
        }
        std::string output;
        std::string error;
        const std::string text(100000, 'x');
        const int status =
            forkExecvGetOutErr(text, &output, &error, "/usr/bin/tee", ArgVector{"tee", "/dev/stderr"}.get());
        ::_exit(highest > 1024 && status == 0 && output == text && error == text ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

TEST_F(ForkExecvTrouble, WorksWithEveryCombinationOfClosedStandardDescriptors) {
    for (int closed = 0; closed < 8; ++closed) {
        const auto outcome = inChild([closed] {
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                if ((closed & (1 << descriptor)) != 0) {
                    ::close(descriptor);
                }
            }
            std::string output;
            std::string error;
            const int status =
                forkExecvGetOutErr("in", &output, &error, "/bin/sh",
                                   ArgVector{"sh", "-c", "cat; echo out; echo err >&2; exit 5"}.get());
            ::_exit(status == 5 && output == "inout\n" && error == "err\n" ? 42 : 1);
        });
        EXPECT_EQ(outcome.exitStatus(), 42) << "closed: " << closed;
    }
}

TEST_F(ForkExecvTrouble, ExhaustedDescriptorsEndTheUtility) {
    for (const rlim_t room : {0u, 2u, 5u}) {
        const auto outcome = inChild([room] {
            // No exit handlers: a sanitizer's leak check needs descriptors of its own.
            quelm::markForkedChild();
            const int lowestFree = ::dup(STDIN_FILENO);
            ::close(lowestFree);
            for (int number = lowestFree; number < 64; ++number) {
                ::close(number);
            }
            const auto limit = static_cast<rlim_t>(lowestFree) + room;
            const rlimit tight{limit, limit};
            ::setrlimit(RLIMIT_NOFILE, &tight);
            std::string output;
            std::string error;
            forkExecvGetOutErr(output, error, "/bin/true", ArgVector{"true"}.get());
        });
        EXPECT_EQ(outcome.exitStatus(), 1);
        EXPECT_EQ(outcome.error, "forkExecvGetOutErr: pipe() failed\nSystem error 24: Too many open files\n");
        EXPECT_EQ(outcome.output, outcome.error);
    }
}

using quelm::ExecCmd;
using quelm::SystemError;
using quelm::test::Call;
using quelm::test::callsOf;
using quelm::test::failCall;

class ForkExecvFailure : public testing::Test {
protected:
    int shell(const std::string& script, const std::string& input = "", const std::string& user = "") {
        return forkExecvGetOutErr(input, &output, &error, "/bin/sh", ArgVector{"sh", "-c", script}.get(),
                                  user, false);
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
        EXPECT_EQ(quelm::test::openDescriptors(), before);
        EXPECT_FALSE(quelm::test::hasChildren());
    }

    std::string output;
    std::string error;
    const std::set<std::string> before = quelm::test::openDescriptors();
};

TEST_F(ForkExecvFailure, AFailedForkIsThrownByItsType) {
    failCall(Call::fork, EAGAIN, {.times = 1, .hereOnly = true});
    EXPECT_THROW(shell("exit 0"), quelm::ExSystemError<11>);
    failCall(Call::fork, ENOMEM, {.times = 1, .hereOnly = true});
    expectThrown("forkExecvPipes: fork() failed", ENOMEM, "exit 0");
}

// Each of the three ends has its flags read and then set.
TEST_F(ForkExecvFailure, AFailedFcntlOnAnyEndEndsTheUtility) {
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

TEST_F(ForkExecvFailure, AFailedSelectIsThrownAndEndsTheChild) {
    failCall(Call::select, EBADF, {.times = 1, .hereOnly = true});
    expectThrown("forkExecvGetOutErr: select() failed", EBADF, "exec sleep 60");
}

TEST_F(ForkExecvFailure, SigtermIsSentBeforeThePipesAreClosed) {
    std::size_t openThen = 0;
    quelm::test::watchCall(Call::kill, [&] { openThen = quelm::test::openDescriptors().size(); });
    failCall(Call::select, EBADF, {.times = 1, .hereOnly = true});
    expectThrown("forkExecvGetOutErr: select() failed", EBADF, "exec sleep 60");
    quelm::test::watchCall(Call::kill, {});
    EXPECT_EQ(openThen, before.size() + 3);
}

std::string passed;

std::size_t passInput(char* /*bytes*/, std::size_t /*capacity*/, void* /*context*/) {
    passed += "input ";
    return 0;
}

void passOutput(const char* /*bytes*/, std::size_t /*count*/, void* /*context*/) {
    passed += "output ";
}

void passError(const char* /*bytes*/, std::size_t /*count*/, void* /*context*/) {
    passed += "error ";
}

// The first pass begins when the child has written on both streams and left its input unread.
TEST_F(ForkExecvFailure, InputOutputAndErrorAreServedInThisOrder) {
    const quelm::test::TempDir directory;
    const std::string mark = directory.path("mark");
    quelm::test::watchCall(Call::select, [&mark] {
        while (!std::filesystem::exists(mark)) {
            ::usleep(1000);
        }
    });
    const ArgVector arguments{"sh", "-c", "echo err >&2; echo out; : >" + mark + "; cat"};
    EXPECT_EQ(forkExecvGetOutErr(passInput, passOutput, passError, "/bin/sh", arguments.get(), "", false, {},
                                 nullptr),
              0);
    quelm::test::watchCall(Call::select, {});
    EXPECT_EQ(passed, "input output error ");
}

TEST_F(ForkExecvFailure, AnInterruptedSelectIsRepeated) {
    failCall(Call::select, EINTR, {.times = 3, .hereOnly = true});
    EXPECT_EQ(shell("echo out; exit 4"), 4);
    EXPECT_GT(callsOf(Call::select), 3);
    EXPECT_EQ(output, "out\n");
}

TEST_F(ForkExecvFailure, AFailedReadIsThrownAndEndsTheChild) {
    failCall(Call::read, EIO, {.times = 1, .hereOnly = true});
    expectThrown("readToCallback failed", EIO, "echo out; exec sleep 60");
}

TEST_F(ForkExecvFailure, AnInterruptedReadIsRepeated) {
    failCall(Call::read, EINTR, {.times = 2, .hereOnly = true});
    EXPECT_EQ(shell("echo out"), 0);
    EXPECT_GT(callsOf(Call::read), 2);
    EXPECT_EQ(output, "out\n");
}

TEST_F(ForkExecvFailure, AFailedWriteIsThrownAndEndsTheChild) {
    failCall(Call::write, EIO, {.times = 1, .hereOnly = true});
    expectThrown("writeFromCallback failed", EIO, "exec sleep 60", "input");
}

TEST_F(ForkExecvFailure, AnInterruptedWriteIsRepeated) {
    failCall(Call::write, EINTR, {.times = 2, .hereOnly = true});
    EXPECT_EQ(shell("cat", "input"), 0);
    EXPECT_GT(callsOf(Call::write), 2);
    EXPECT_EQ(output, "input");
}

TEST_F(ForkExecvFailure, MemoryThatCannotBeHadAfterTheForkEndsTheChild) {
    const ArgVector arguments{"sh", "-c", "exec sleep 60"};
    for (int granted = 0; granted < 5; ++granted) { // three buffers, and the two sets of the selector
        const quelm::test::LimitedNew memory(granted);
        EXPECT_THROW(forkExecvGetOutErr(output, error, "/bin/sh", arguments.get()), std::bad_alloc);
    }
}

TEST_F(ForkExecvFailure, TheWaitIsRepeatedAfterEintrAndEchild) {
    failCall(Call::waitpid, ECHILD, {.times = 3, .hereOnly = true});
    EXPECT_EQ(shell("exit 4"), 4);
    EXPECT_GT(callsOf(Call::waitpid), 3);
    failCall(Call::waitpid, EINTR, {.times = 3, .hereOnly = true});
    EXPECT_EQ(shell("exit 4"), 4);
    EXPECT_GT(callsOf(Call::waitpid), 3);
}

TEST_F(ForkExecvFailure, AnyOtherFailureOfTheWaitGivesMinusOne) {
    failCall(Call::waitpid, EINVAL, {.times = 1, .hereOnly = true});
    EXPECT_EQ(shell("exit 0"), -1);
    EXPECT_NE(::waitpid(-1, nullptr, 0), -1);
}

TEST_F(ForkExecvFailure, AWaitThatReturnsNobodyGivesMinusOne) {
    quelm::test::answerWaitpid(0, 0);
    EXPECT_EQ(shell("exit 0"), -1);
    EXPECT_NE(::waitpid(-1, nullptr, 0), -1);
}

TEST_F(ForkExecvFailure, ACommandThatThrewKeepsItsExitCode) {
    ExecCmd command("/bin/sh");
    command.addArg("-c").addArg("exit 3");
    failCall(Call::fork, EAGAIN, {.times = 1, .hereOnly = true});
    EXPECT_THROW(command.execute(), SystemError);
    EXPECT_TRUE(command.executed());
    EXPECT_EQ(command.exitCode(), -1);
    failCall(Call::fork, EAGAIN, {.times = 1, .hereOnly = true});
    EXPECT_EQ(command.runNoThrow(), -1);
    EXPECT_EQ(command.runNoThrow(), 3);
    failCall(Call::fork, EAGAIN, {.times = 1, .hereOnly = true});
    EXPECT_EQ(command.runNoThrow(), 3);
    failCall(Call::fork, EAGAIN, {.times = 1, .hereOnly = true});
    EXPECT_THROW(command.run(), quelm::ExSystemError<11>);
    EXPECT_EQ(command.exitCode(), 3);
}

} // namespace

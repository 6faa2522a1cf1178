// What goes in and what comes out of forkExecvGetOutErr.
#include "lib/process/lib/ForkExecv.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/time.h>
#include <unistd.h>

#include "lib/process/lib/ArgVector.h"
#include "tests/support/ProcessState.h"

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

} // namespace

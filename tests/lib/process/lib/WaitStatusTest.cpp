#include "lib/process/lib/WaitStatus.h"

#include <csignal>
#include <ostream>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using quelm::decodeWaitStatus;
using quelm::Ending;

struct Case {
    const char* name;
    int status;
    Ending ending;
    int value;
    int exitCode;
};

void PrintTo(const Case& row, std::ostream* stream) {
    *stream << row.name;
}

class WaitStatusTable : public testing::TestWithParam<Case> {};

TEST_P(WaitStatusTable, IsDecoded) {
    const auto decoded = decodeWaitStatus(GetParam().status);
    EXPECT_EQ(decoded.ending, GetParam().ending);
    EXPECT_EQ(decoded.value, GetParam().value);
    EXPECT_EQ(decoded.exitCode(), GetParam().exitCode);
}

// The layout of the kernel: low seven bits 0 = exited, 0x7f = stopped, 0xffff = continued, else killed;
// bit 7 tells of a core file.
INSTANTIATE_TEST_SUITE_P(Endings, WaitStatusTable,
                         testing::Values(Case{"Exited0", 0x0000, Ending::exited, 0, 0},
                                         Case{"Exited1", 0x0100, Ending::exited, 1, 1},
                                         Case{"Exited255", 0xff00, Ending::exited, 255, 255},
                                         Case{"Killed9", 0x0009, Ending::killed, 9, -1},
                                         Case{"Killed11WithCore", 0x008b, Ending::killed, 11, -1},
                                         Case{"Stopped19", 0x137f, Ending::stopped, 19, -1},
                                         Case{"Continued", 0xffff, Ending::continued, 0, -1}),
                         [](const auto& instance) { return instance.param.name; });

TEST(WaitStatus, StoppedContinuedAndKilledAsTheKernelReallyTellsThem) {
    const pid_t child = ::fork();
    if (child == 0) {
        for (;;) {
            ::pause();
        }
    }
    int status = 0;
    ::kill(child, SIGSTOP);
    ASSERT_EQ(::waitpid(child, &status, WUNTRACED), child);
    EXPECT_EQ(decodeWaitStatus(status).ending, Ending::stopped);
    EXPECT_EQ(decodeWaitStatus(status).value, SIGSTOP);
    ::kill(child, SIGCONT);
    ASSERT_EQ(::waitpid(child, &status, WCONTINUED), child);
    EXPECT_EQ(decodeWaitStatus(status).ending, Ending::continued);
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(decodeWaitStatus(status).ending, Ending::killed);
    EXPECT_EQ(decodeWaitStatus(status).value, SIGKILL);
}

} // namespace

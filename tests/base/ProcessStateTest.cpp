#include "base/ProcessState.h"

#include <cerrno>
#include <csignal>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"
#include "tests/support/ProcessState.h"

namespace quelm::test {

namespace {

TEST(ProcessStart, EveryClosedStandardDescriptorIsOpenedOnTheNullDeviceAndNothingElse) {
    for (int closed = 0; closed < 8; ++closed) {
        EXPECT_TRUE(holdsInChild([closed] {
            ::dup2(STDOUT_FILENO, STDIN_FILENO); // which may be the null device already
            const std::vector<int> before = openDescriptors();
            closeStandard(closed);
            prepareProcess();
            bool right = openDescriptors() == before;
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                right = right && isNullDevice(descriptor) == ((closed >> descriptor & 1) != 0);
            }
            return right;
        })) << closed;
    }
}

TEST(ProcessStart, AnIgnoredChildSignalGoesBackToItsDefault) {
    EXPECT_TRUE(holdsInChild([] {
        std::signal(SIGCHLD, SIG_IGN);
        std::signal(SIGPIPE, SIG_IGN);
        prepareProcess();
        return std::signal(SIGCHLD, SIG_DFL) == SIG_DFL && std::signal(SIGPIPE, SIG_DFL) == SIG_IGN;
    }));
}

// The disposition that a signal has now.
void (*handlerOf(int signal))(int) {
    struct sigaction present {};
    ::sigaction(signal, nullptr, &present);
    return present.sa_handler;
}

void ownHandler(int /*signal*/) {}

TEST(ScopedSignal, HoldsForTheBlockAndThenPutsBackWhatWas) {
    std::signal(SIGUSR1, ownHandler);
    {
        const ScopedSignal ignored(SIGUSR1, SIG_IGN);
        EXPECT_EQ(handlerOf(SIGUSR1), SIG_IGN);
        {
            const ScopedSignal ordinary(SIGUSR1, SIG_DFL);
            EXPECT_EQ(handlerOf(SIGUSR1), SIG_DFL);
        }
        EXPECT_EQ(handlerOf(SIGUSR1), SIG_IGN);
    }
    EXPECT_EQ(handlerOf(SIGUSR1), ownHandler);
}

TEST(ScopedSignal, LeavesErrnoOfTheBlock) {
    errno = 0;
    {
        const ScopedSignal ignored(SIGUSR1, SIG_IGN);
        errno = EXDEV;
    }
    EXPECT_EQ(errno, EXDEV);
}

} // namespace

} // namespace quelm::test

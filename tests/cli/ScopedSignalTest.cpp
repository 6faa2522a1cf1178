#include "cli/ScopedSignal.h"

#include <cerrno>
#include <csignal>

#include <gtest/gtest.h>

namespace {

using quelm::ScopedSignal;

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

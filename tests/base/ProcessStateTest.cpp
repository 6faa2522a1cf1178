#include "base/ProcessState.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"

namespace {

using quelm::prepareProcess;
using quelm::test::inChild;

bool isNullDevice(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3) &&
           (::fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDWR;
}

TEST(ProcessStart, EveryClosedStandardDescriptorIsOpenedOnTheNullDevice) {
    for (int closed = 0; closed < 8; ++closed) {
        const auto outcome = inChild([closed] {
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                if ((closed >> descriptor & 1) != 0) {
                    ::close(descriptor);
                }
            }
            prepareProcess();
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                if (isNullDevice(descriptor) != ((closed >> descriptor & 1) != 0)) {
                    ::_exit(1 + descriptor);
                }
            }
            ::_exit(0);
        });
        EXPECT_EQ(outcome.exitStatus(), 0) << "closed set " << closed;
    }
}

TEST(ProcessStart, NothingIsOpenedWhenNothingIsClosed) {
    const auto outcome = inChild([] {
        const int before = ::dup(0);
        ::close(before);
        prepareProcess();
        const int after = ::dup(0);
        std::exit(before == after ? 0 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 0);
}

TEST(ProcessStart, AnIgnoredChildSignalGoesBackToItsDefault) {
    const auto outcome = inChild([] {
        std::signal(SIGCHLD, SIG_IGN);
        std::signal(SIGPIPE, SIG_IGN);
        prepareProcess();
        const bool childDefault = std::signal(SIGCHLD, SIG_DFL) == SIG_DFL;
        const bool pipeUntouched = std::signal(SIGPIPE, SIG_DFL) == SIG_IGN;
        std::exit(childDefault && pipeUntouched ? 0 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 0);
}

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

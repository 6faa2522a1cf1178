#include "lib/process/lib/ChildSetup.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "cli/FatalMessage.h"
#include "cli/UtilityErrorStream.h"
#include "tests/support/InChild.h"

namespace {

using quelm::placeDescriptor;
using quelm::test::inChild;

bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) != -1;
}

bool isNullDevice(int descriptor) {
    struct stat info {};
    return ::fstat(descriptor, &info) == 0 && info.st_rdev == makedev(1, 3);
}

TEST(PrepareFork, FlushesEveryStandardStream) {
    const auto outcome = inChild([] {
        std::setvbuf(stdout, nullptr, _IOFBF, 4096);
        std::setvbuf(stderr, nullptr, _IOFBF, 4096);
        std::ios::sync_with_stdio(false);
        std::printf("printf ");
        std::fprintf(stderr, "stdio ");
        std::cout << "cout ";
        quelm::errorStream << "stream ";
        quelm::prepareFork();
        ::_exit(0);
    });
    EXPECT_EQ(outcome.output, "cout stream printf ");
    EXPECT_EQ(outcome.error, "stream stdio ");
}

TEST(PrepareFork, KeepsErrnoAlsoWhenAStreamCannotBeWritten) {
    const auto outcome = inChild([] {
        std::printf("lost");
        ::close(STDOUT_FILENO);
        errno = EAGAIN;
        quelm::prepareFork();
        ::_exit(errno == EAGAIN ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

TEST(PrepareFork, EndsAnIgnoredSigchld) {
    std::signal(SIGCHLD, SIG_IGN);
    quelm::prepareFork();
    EXPECT_EQ(std::signal(SIGCHLD, SIG_DFL), SIG_DFL);
}

TEST(EnterChild, PutsDispositionsAndMaskToWhatAnOrdinaryProgramExpects) {
    const auto outcome = inChild([] {
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_IGN);
        sigset_t mask;
        ::sigfillset(&mask);
        ::sigprocmask(SIG_SETMASK, &mask, nullptr);
        quelm::enterChild();
        ::sigprocmask(SIG_SETMASK, nullptr, &mask);
        const bool blocked = ::sigismember(&mask, SIGTERM) != 0 || ::sigismember(&mask, SIGPIPE) != 0;
        const bool defaults =
            std::signal(SIGPIPE, SIG_DFL) == SIG_DFL && std::signal(SIGCHLD, SIG_DFL) == SIG_DFL;
        ::_exit(!blocked && defaults ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

TEST(EnterChild, FatalMessageNoLongerRunsTheExitHandlers) {
    const auto outcome = inChild([] {
        std::atexit([] { std::fputs("handler", stderr); });
        quelm::enterChild();
        errno = 0;
        quelm::fatal_message(7, 0, "end");
    });
    EXPECT_EQ(outcome.exitStatus(), 7);
    EXPECT_EQ(outcome.error, "end\n");
}

TEST(LeaveChild, FlushesButRunsNoExitHandlers) {
    const auto outcome = inChild([] {
        std::atexit([] { std::fputs("handler", stderr); });
        std::printf("text");
        quelm::leaveChild(9);
    });
    EXPECT_EQ(outcome.exitStatus(), 9);
    EXPECT_EQ(outcome.output, "text");
    EXPECT_EQ(outcome.error, "");
}

TEST(PlaceDescriptor, ADescriptorInItsPlaceIsLeftAlone) {
    const auto outcome = inChild([] {
        ::fcntl(0, F_SETFD, FD_CLOEXEC);
        const bool placed = placeDescriptor(0, 0);
        ::_exit(placed && ::fcntl(0, F_GETFD) == FD_CLOEXEC ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

TEST(PlaceDescriptor, AnotherOneIsCopiedAndClosed) {
    const auto outcome = inChild([] {
        const int source = ::open("/dev/null", O_RDWR);
        const bool placed = placeDescriptor(source, 1);
        ::_exit(placed && isNullDevice(1) && !isOpen(source) ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

TEST(PlaceDescriptor, NoneMeansTheNullDeviceForReadingAndWriting) {
    const auto outcome = inChild([] {
        const int next = ::dup(0);
        ::close(next);
        const bool placed = placeDescriptor(-1, 0);
        const bool both = (::fcntl(0, F_GETFL) & O_ACCMODE) == O_RDWR;
        ::_exit(placed && isNullDevice(0) && both && !isOpen(next) ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

TEST(PlaceDescriptor, TheNullDeviceThatLandsOnAClosedSlotStaysOpen) {
    const auto outcome = inChild([] {
        ::close(0);
        const bool placed = placeDescriptor(-1, 0);
        ::_exit(placed && isNullDevice(0) ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

TEST(PlaceDescriptor, FailuresTellTheReason) {
    const auto outcome = inChild([] {
        const bool copied = placeDescriptor(1000, 1) || errno != EBADF;
        const rlimit none{3, 3};
        ::setrlimit(RLIMIT_NOFILE, &none);
        const bool opened = placeDescriptor(-1, 1) || errno != EMFILE;
        ::_exit(copied || opened ? 1 : 42);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

} // namespace

#include "lib/process/lib/ChildSetup.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "base/FatalMessage.h"
#include "base/UtilityErrorStream.h"
#include "tests/support/DescriptorTable.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"
#include "tests/support/InChild.h"

namespace {

using quelm::placeDescriptor;
using quelm::test::inChild;
using testing::AllOf;
using testing::HasSubstr;

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
    // In an order that depends on whether the streams were used before.
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("cout "), HasSubstr("stream "), HasSubstr("printf ")));
    EXPECT_THAT(outcome.error, AllOf(HasSubstr("stream "), HasSubstr("stdio ")));
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

namespace quelm::test {

namespace {

constexpr int good = 42;

// In a forked child, because closing takes the test's own descriptors too.
int statusOf(const std::function<int()>& body) {
    return runForked(body).exitStatus();
}

bool closesFast(int lowest) {
    const auto begin = std::chrono::steady_clock::now();
    quelm::closefrom(lowest);
    return std::chrono::steady_clock::now() - begin < std::chrono::seconds(1);
}

TEST(CloseFrom, ClosesFromTheLowestUpAndNothingBelow) {
    EXPECT_EQ(statusOf([] {
                  openMore(10);
                  const bool below = isOpen(0) && isOpen(1) && isOpen(2) && isOpen(3);
                  quelm::closefrom(4);
                  return below && isOpen(0) && isOpen(1) && isOpen(2) && isOpen(3) &&
                                 openDescriptors(4, 1024).empty()
                             ? good
                             : 1;
              }),
              good);
}

TEST(CloseFrom, ANegativeLowestClosesAll) {
    EXPECT_EQ(statusOf([] {
                  quelm::closefrom(-7);
                  return openDescriptors(0, 1024).empty() ? good : 1;
              }),
              good);
}

TEST(CloseFrom, FewDescriptorsAreWalkedAndNoRangeIsClosed) {
    EXPECT_EQ(statusOf([] {
                  openMore(20);
                  countCalls(Call::close_range);
                  quelm::closefrom(3);
                  return callsOf(Call::close_range) == 0 && openDescriptors(3, 1024).empty() ? good : 1;
              }),
              good);
}

// 100 entries, the walk's own among them, are looked at under a table of fewer than 1000.
TEST(CloseFrom, TheWalkLooksAtOneHundredEntries) {
    EXPECT_EQ(statusOf([] {
                  quelm::closefrom(3);
                  setDescriptorLimit(900);
                  openMore(96); // with 0, 1, 2 and the walk's own: 100
                  countCalls(Call::close_range);
                  quelm::closefrom(3);
                  const bool walked = callsOf(Call::close_range) == 0;
                  openMore(97);
                  quelm::closefrom(3);
                  return walked && callsOf(Call::close_range) == 1 && openDescriptors(3, 900).empty() ? good
                                                                                                      : 1;
              }),
              good);
}

TEST(CloseFrom, TheWalkLooksAtATenthOfALargeTable) {
    EXPECT_EQ(statusOf([] {
                  quelm::closefrom(3);
                  answerTableSize(5000);
                  setDescriptorLimit(5000);
                  openMore(496);
                  countCalls(Call::close_range);
                  quelm::closefrom(3);
                  const bool walked = callsOf(Call::close_range) == 0;
                  openMore(497);
                  quelm::closefrom(3);
                  return walked && callsOf(Call::close_range) == 1 && openDescriptors(3, 5000).empty() ? good
                                                                                                       : 1;
              }),
              good);
}

TEST(CloseFrom, ThousandsOfDescriptorsFallBackToTheRange) {
    EXPECT_EQ(statusOf([] {
                  if (!setDescriptorLimit(20000)) {
                      return 2;
                  }
                  openMore(5000);
                  countCalls(Call::close_range);
                  quelm::closefrom(3);
                  return callsOf(Call::close_range) == 1 && openDescriptors(3, 20000).empty() ? good : 1;
              }),
              good);
}

TEST(CloseFrom, DescriptorsBeyondALoweredLimitAreClosed) {
    EXPECT_EQ(statusOf([] {
                  if (!setDescriptorLimit(20000)) {
                      return 2;
                  }
                  openMore(5000);
                  setDescriptorLimit(1024);
                  quelm::closefrom(3);
                  return openDescriptors(3, 20000).empty() ? good : 1;
              }),
              good);
}

// What closefrom does with the only descriptor beyond the standard ones under this table size: 1 for closing
// the range, 0 for having walked.
int rangesClosedFor(int descriptor, int tableSize) {
    quelm::closefrom(3);
    (void)::dup2(STDIN_FILENO, descriptor);
    answerTableSize(tableSize);
    countCalls(Call::close_range);
    quelm::closefrom(3);
    return isOpen(descriptor) ? -1 : callsOf(Call::close_range);
}

TEST(CloseFrom, ANumberNotBelowTheTableSizeAbandonsTheWalk) {
    EXPECT_EQ(statusOf([] {
                  return rangesClosedFor(50, 51) == 0 && rangesClosedFor(50, 50) == 1 &&
                                 rangesClosedFor(51, 50) == 1
                             ? good
                             : 1;
              }),
              good);
}

TEST(CloseFrom, ANameThatIsNoNumberAbandonsTheWalk) {
    for (const char* name : {"x", "4x", "-4", "+4", " 4", "4 ", "0x4", "99999999999"}) {
        EXPECT_EQ(statusOf([name] {
                      openMore(5);
                      addDirectoryEntry(name);
                      countCalls(Call::close_range);
                      quelm::closefrom(3);
                      return callsOf(Call::close_range) == 1 && openDescriptors(3, 1024).empty() ? good : 1;
                  }),
                  good)
            << name;
    }
}

TEST(CloseFrom, AWalkThatDidNotMeetItsOwnDescriptorIsNotDone) {
    EXPECT_EQ(statusOf([] {
                  quelm::closefrom(3);
                  openMore(5);
                  hideDirectoryEntry("8"); // the lowest free number
                  countCalls(Call::close_range);
                  quelm::closefrom(3);
                  return callsOf(Call::close_range) == 1 && openDescriptors(3, 1024).empty() ? good : 1;
              }),
              good);
}

// The walk's own descriptor, 3, comes before those of which it does not hear.
TEST(CloseFrom, AWalkThatDidNotReachTheEndIsNotDone) {
    EXPECT_EQ(statusOf([] {
                  quelm::closefrom(3);
                  openMore(5);
                  ::close(3);
                  countCalls(Call::close_range);
                  failCall(Call::readdir, EIO, {.skip = 6}); // ".", "..", 0, 1, 2, 3
                  quelm::closefrom(3);
                  return callsOf(Call::close_range) == 1 && openDescriptors(3, 1024).empty() ? good : 1;
              }),
              good);
}

TEST(CloseFrom, ADirectoryThatCannotBeOpenedFallsBack) {
    EXPECT_EQ(statusOf([] {
                  openMore(20);
                  failCall(Call::opendir, ENOENT);
                  quelm::closefrom(5);
                  return isOpen(4) && openDescriptors(5, 1024).empty() ? good : 1;
              }),
              good);
}

TEST(CloseFrom, WhereNoRangeCanBeClosedEveryNumberIs) {
    for (const int refusal : {ENOSYS, EPERM}) { // an old kernel, a filter of system calls
        EXPECT_EQ(statusOf([&] {
                      setDescriptorLimit(1024);
                      openMore(20);
                      failCall(Call::opendir, ENOENT);
                      failCall(Call::close_range, refusal);
                      quelm::closefrom(5);
                      return isOpen(4) && openDescriptors(5, 1024).empty() ? good : 1;
                  }),
                  good)
            << refusal;
    }
}

TEST(CloseFrom, AHugeTableTakesLessThanASecondOnBothRoads) {
    EXPECT_EQ(statusOf([] {
                  answerTableSize(1073741816);
                  openMore(20);
                  const bool walk = closesFast(3);
                  openMore(20);
                  failCall(Call::opendir, ENOENT);
                  const bool range = closesFast(3);
                  return walk && range && openDescriptors(3, 1024).empty() ? good : 1;
              }),
              good);
}

TEST(CloseFrom, ErrnoIsKeptOnBothRoads) {
    EXPECT_EQ(statusOf([] {
                  openMore(5);
                  errno = ERANGE;
                  quelm::closefrom(3);
                  const bool walk = errno == ERANGE;
                  failCall(Call::opendir, ENOENT);
                  errno = ERANGE;
                  quelm::closefrom(3);
                  const bool range = errno == ERANGE;
                  setDescriptorLimit(1024);
                  failCall(Call::close_range, ENOSYS);
                  errno = ERANGE;
                  quelm::closefrom(3);
                  return walk && range && errno == ERANGE ? good : 1;
              }),
              good);
}

} // namespace

} // namespace quelm::test

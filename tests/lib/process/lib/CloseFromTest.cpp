#include "lib/process/lib/CloseFrom.h"

#include <cerrno>
#include <chrono>
#include <functional>

#include <gtest/gtest.h>

#include "tests/support/DescriptorTable.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"

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
                  countCalls(Call::closeRange);
                  quelm::closefrom(3);
                  return callsOf(Call::closeRange) == 0 && openDescriptors(3, 1024).empty() ? good : 1;
              }),
              good);
}

// 100 entries, the walk's own among them, are looked at under a table of fewer than 1000.
TEST(CloseFrom, TheWalkLooksAtOneHundredEntries) {
    EXPECT_EQ(statusOf([] {
                  quelm::closefrom(3);
                  setDescriptorLimit(900);
                  openMore(96); // with 0, 1, 2 and the walk's own: 100
                  countCalls(Call::closeRange);
                  quelm::closefrom(3);
                  const bool walked = callsOf(Call::closeRange) == 0;
                  openMore(97);
                  quelm::closefrom(3);
                  return walked && callsOf(Call::closeRange) == 1 && openDescriptors(3, 900).empty() ? good
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
                  countCalls(Call::closeRange);
                  quelm::closefrom(3);
                  const bool walked = callsOf(Call::closeRange) == 0;
                  openMore(497);
                  quelm::closefrom(3);
                  return walked && callsOf(Call::closeRange) == 1 && openDescriptors(3, 5000).empty() ? good
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
                  countCalls(Call::closeRange);
                  quelm::closefrom(3);
                  return callsOf(Call::closeRange) == 1 && openDescriptors(3, 20000).empty() ? good : 1;
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
    countCalls(Call::closeRange);
    quelm::closefrom(3);
    return isOpen(descriptor) ? -1 : callsOf(Call::closeRange);
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
                      countCalls(Call::closeRange);
                      quelm::closefrom(3);
                      return callsOf(Call::closeRange) == 1 && openDescriptors(3, 1024).empty() ? good : 1;
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
                  countCalls(Call::closeRange);
                  quelm::closefrom(3);
                  return callsOf(Call::closeRange) == 1 && openDescriptors(3, 1024).empty() ? good : 1;
              }),
              good);
}

// The walk's own descriptor, 3, comes before those of which it does not hear.
TEST(CloseFrom, AWalkThatDidNotReachTheEndIsNotDone) {
    EXPECT_EQ(statusOf([] {
                  quelm::closefrom(3);
                  openMore(5);
                  ::close(3);
                  countCalls(Call::closeRange);
                  failCall(Call::readdir, EIO, 6); // ".", "..", 0, 1, 2, 3
                  quelm::closefrom(3);
                  return callsOf(Call::closeRange) == 1 && openDescriptors(3, 1024).empty() ? good : 1;
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
                      failCall(Call::closeRange, refusal);
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
                  failCall(Call::closeRange, ENOSYS);
                  errno = ERANGE;
                  quelm::closefrom(3);
                  return walk && range && errno == ERANGE ? good : 1;
              }),
              good);
}

} // namespace

} // namespace quelm::test

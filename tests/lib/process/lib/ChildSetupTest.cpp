#include "lib/process/lib/ChildSetup.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "base/FatalMessage.h"
#include "base/UtilityErrorStream.h"
#include "tests/support/Captured.h"
#include "tests/support/Faults.h"
#include "tests/support/ProcessState.h"

namespace quelm::test {

namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST(PrepareFork, FlushesEveryStandardStream) {
    const auto outcome = inChild([] {
        std::setvbuf(stdout, nullptr, _IOFBF, 4096);
        std::setvbuf(stderr, nullptr, _IOFBF, 4096);
        std::ios::sync_with_stdio(false);
        std::printf("printf ");
        std::fprintf(stderr, "stdio ");
        std::cout << "cout ";
        errorStream << "stream ";
        prepareFork();
        ::_exit(0);
    });
    // In an order that depends on whether the streams were used before.
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("cout "), HasSubstr("stream "), HasSubstr("printf ")));
    EXPECT_THAT(outcome.error, AllOf(HasSubstr("stream "), HasSubstr("stdio ")));
}

TEST(PrepareFork, KeepsErrnoAlsoWhenAStreamCannotBeWritten) {
    EXPECT_TRUE(holdsInChild([] {
        std::printf("lost");
        ::close(STDOUT_FILENO);
        errno = EAGAIN;
        prepareFork();
        return errno == EAGAIN;
    }));
}

TEST(PrepareFork, EndsAnIgnoredSigchld) {
    std::signal(SIGCHLD, SIG_IGN);
    prepareFork();
    EXPECT_EQ(std::signal(SIGCHLD, SIG_DFL), SIG_DFL);
}

TEST(EnterChild, PutsDispositionsAndMaskToWhatAnOrdinaryProgramExpects) {
    EXPECT_TRUE(holdsInChild([] {
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_IGN);
        sigset_t mask;
        ::sigfillset(&mask);
        ::sigprocmask(SIG_SETMASK, &mask, nullptr);
        enterChild();
        ::sigprocmask(SIG_SETMASK, nullptr, &mask);
        return ::sigismember(&mask, SIGTERM) == 0 && ::sigismember(&mask, SIGPIPE) == 0 &&
               std::signal(SIGPIPE, SIG_DFL) == SIG_DFL && std::signal(SIGCHLD, SIG_DFL) == SIG_DFL;
    }));
}

TEST(EnterChild, FatalMessageAndLeaveChildFlushButRunNoExitHandlers) {
    const auto fatal = inChild([] {
        std::atexit([] { std::fputs("handler", stderr); });
        enterChild();
        errno = 0;
        fatal_message(7, 0, "end");
    });
    EXPECT_EQ(fatal.exitStatus(), 7);
    EXPECT_EQ(fatal.error, "end\n");
    const auto left = inChild([] {
        std::atexit([] { std::fputs("handler", stderr); });
        std::setvbuf(stderr, nullptr, _IOFBF, 4096);
        std::printf("text");
        std::fputs("more", stderr);
        leaveChild(9);
    });
    EXPECT_EQ(left.exitStatus(), 9);
    EXPECT_EQ(left.output, "text");
    EXPECT_EQ(left.error, "more");
}

TEST(PlaceDescriptor, ADescriptorInItsPlaceIsLeftAlone) {
    EXPECT_TRUE(holdsInChild([] {
        ::fcntl(0, F_SETFD, FD_CLOEXEC);
        return placeDescriptor(0, 0) && ::fcntl(0, F_GETFD) == FD_CLOEXEC;
    }));
}

TEST(PlaceDescriptor, AnotherOneIsCopiedAndClosed) {
    EXPECT_TRUE(holdsInChild([] {
        const int source = ::open("/dev/null", O_RDWR);
        return placeDescriptor(source, 1) && isNullDevice(1) && !isOpen(source);
    }));
}

TEST(PlaceDescriptor, NoneMeansTheNullDeviceForReadingAndWriting) {
    for (const bool slotIsClosed : {false, true}) {
        EXPECT_TRUE(holdsInChild([slotIsClosed] {
            const int next = ::dup(0);
            ::close(next);
            closeStandard(slotIsClosed ? 1 : 0);
            return placeDescriptor(-1, 0) && isNullDevice(0) && !isOpen(next);
        }));
    }
}

TEST(PlaceDescriptor, FailuresTellTheReason) {
    EXPECT_TRUE(holdsInChild([] {
        const bool refused = !placeDescriptor(1000, 1) && errno == EBADF;
        const rlimit none{3, 3};
        ::setrlimit(RLIMIT_NOFILE, &none);
        return refused && !placeDescriptor(-1, 1) && errno == EMFILE;
    }));
}

constexpr int walked = 0;
constexpr int rangeClosed = 1;

struct Table {
    int more = 20; // descriptors beyond 2
    int size = -1;
    rlim_t limit = 1024;
    int alone = -1; // opened too
    const char* added = "";
    const char* hidden = "";
    Call failing = Call::count;
    int skip = 0;
    int closed = -1; // again
};

// How closefrom goes about it: the number of ranges that it closes, or -1 when it leaves one of its
// descriptors open or closes another. In a forked child, because closing takes the test's own descriptors
// too.
int closing(const Table& table, int lowest = 3) {
    const auto body = [&] {
        closefrom(3);
        setDescriptorLimit(20000);
        openMore(table.more);
        if (table.alone != -1) {
            (void)::dup2(STDIN_FILENO, table.alone);
        }
        ::close(table.closed);
        setDescriptorLimit(table.limit);
        conditions().tableSize = table.size;
        conditions().addedEntry = table.added;
        conditions().hiddenEntry = table.hidden;
        if (table.failing != Call::count) {
            failCall(table.failing, EIO, {.skip = table.skip});
        }
        countCalls(Call::close_range);
        const std::vector<int> kept = openDescriptors(0, std::max(lowest, 0));
        closefrom(lowest);
        return openDescriptors(0, 20000) == kept ? callsOf(Call::close_range) : -1;
    };
    return inChild(body).exitStatus();
}

TEST(CloseFrom, ClosesFromTheLowestUpAndNothingBelow) {
    for (const int lowest : {4, 3, 0, -7}) {
        EXPECT_EQ(closing({}, lowest), walked) << lowest;
    }
}

// The entries are looked at up to the hundredth, or a tenth of a larger table: 0, 1, 2 and the walk's own are
// among them.
TEST(CloseFrom, ManyDescriptorsOrNumbersBeyondTheTableAreClosedAsARange) {
    EXPECT_EQ(closing({.more = 96, .size = 900}), walked);
    EXPECT_EQ(closing({.more = 97, .size = 900}), rangeClosed);
    EXPECT_EQ(closing({.more = 496, .size = 5000}), walked);
    EXPECT_EQ(closing({.more = 497, .size = 5000}), rangeClosed);
    EXPECT_EQ(closing({.more = 0, .size = 51, .alone = 50}), walked);
    EXPECT_EQ(closing({.more = 0, .size = 50, .alone = 50}), rangeClosed);
    EXPECT_EQ(closing({.more = 0, .size = 50, .alone = 51}), rangeClosed);
    EXPECT_EQ(closing({.more = 5000}), rangeClosed); // under a lowered limit
}

TEST(CloseFrom, AWalkThatCannotBeTrustedIsAbandoned) {
    for (const char* name : {"x", "4x", "-4", "+4", " 4", "4 ", "0x4", "99999999999"}) {
        EXPECT_EQ(closing({.added = name}), rangeClosed) << name;
    }
    // It does not meet its own descriptor, the lowest free number.
    EXPECT_EQ(closing({.more = 5, .hidden = "8"}), rangeClosed);
    // It ends behind ".", "..", 0, 1, 2 and its own descriptor.
    EXPECT_EQ(closing({.failing = Call::readdir, .skip = 6, .closed = 3}), rangeClosed);
    EXPECT_EQ(closing({.failing = Call::opendir}, 5), rangeClosed);
}

TEST(CloseFrom, WhereNoRangeCanBeClosedEveryNumberIs) {
    for (const int refusal : {ENOSYS, EPERM}) { // an old kernel, a filter of system calls
        EXPECT_TRUE(holdsInChild([refusal] {
            setDescriptorLimit(1024);
            openMore(20);
            failCall(Call::opendir, ENOENT);
            failCall(Call::close_range, refusal);
            closefrom(5);
            return isOpen(4) && openDescriptors(5).empty();
        })) << refusal;
    }
}

bool closesFast(int lowest) {
    const auto begin = std::chrono::steady_clock::now();
    closefrom(lowest);
    return std::chrono::steady_clock::now() - begin < std::chrono::seconds(1);
}

TEST(CloseFrom, AHugeTableTakesLessThanASecondAndErrnoIsKeptInEveryWay) {
    EXPECT_TRUE(holdsInChild([] {
        conditions().tableSize = 1073741816;
        errno = ERANGE;
        const bool walk = closesFast(3) && errno == ERANGE;
        openMore(20);
        failCall(Call::opendir, ENOENT);
        errno = ERANGE;
        const bool range = closesFast(3) && errno == ERANGE && openDescriptors(3).empty();
        conditions().tableSize = 1024;
        failCall(Call::close_range, ENOSYS);
        errno = ERANGE;
        return walk && range && closesFast(3) && errno == ERANGE;
    }));
}

} // namespace

} // namespace quelm::test

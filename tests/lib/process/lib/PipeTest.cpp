#include "lib/process/lib/Pipe.h"

#include <cerrno>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "tests/support/InChild.h"

namespace {

using quelm::openPipe;
using quelm::Pipe;
using quelm::setNonBlocking;
using quelm::test::inChild;

TEST(Pipe, CarriesBytesFromItsWriteEndToItsReadEnd) {
    const auto pipe = openPipe();
    ASSERT_TRUE(pipe);
    ASSERT_EQ(::write(pipe->writeEnd.get(), "x", 1), 1);
    char byte = 0;
    ASSERT_EQ(::read(pipe->readEnd.get(), &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
}

TEST(Pipe, ExhaustionGivesNothingAndTheReason) {
    const auto outcome = inChild([] {
        const rlimit none{3, 3};
        ::setrlimit(RLIMIT_NOFILE, &none);
        ::_exit(!openPipe() && errno == EMFILE ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

bool isBeyondStandard(const Pipe& pipe) {
    return pipe.readEnd.get() > 2 && pipe.writeEnd.get() > 2;
}

TEST(Pipe, NeitherEndTakesTheSlotOfAClosedStandardDescriptor) {
    for (int closed = 0; closed < 8; ++closed) {
        const auto outcome = inChild([closed] {
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                if ((closed & (1 << descriptor)) != 0) {
                    ::close(descriptor);
                }
            }
            const auto pipe = openPipe();
            int stillClosed = 0;
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                stillClosed |= ::fcntl(descriptor, F_GETFD) == -1 ? 1 << descriptor : 0;
            }
            char byte = 0;
            ::_exit(pipe && isBeyondStandard(*pipe) && stillClosed == closed &&
                            ::write(pipe->writeEnd.get(), "x", 1) == 1 &&
                            ::read(pipe->readEnd.get(), &byte, 1) == 1
                        ? 42
                        : 1);
        });
        EXPECT_EQ(outcome.exitStatus(), 42) << closed;
    }
}

// The two ends find room in the standard slots alone, but must not stay there.
TEST(Pipe, AnEndThatCannotBeMovedIsNoPipe) {
    const auto outcome = inChild([] {
        ::close(0);
        ::close(1);
        const rlimit standardOnly{3, 3};
        ::setrlimit(RLIMIT_NOFILE, &standardOnly);
        const bool refused = !openPipe() && errno != 0;
        ::_exit(refused && ::fcntl(0, F_GETFD) == -1 && ::fcntl(1, F_GETFD) == -1 ? 42 : 1);
    });
    EXPECT_EQ(outcome.exitStatus(), 42);
}

TEST(Pipe, NonBlockingIsAddedToTheOtherFlags) {
    const auto pipe = openPipe();
    ASSERT_TRUE(pipe);
    ASSERT_EQ(::fcntl(pipe->writeEnd.get(), F_SETFL, O_APPEND), 0);
    EXPECT_TRUE(setNonBlocking(pipe->writeEnd.get()));
    const int flags = ::fcntl(pipe->writeEnd.get(), F_GETFL);
    EXPECT_EQ(flags & (O_NONBLOCK | O_APPEND), O_NONBLOCK | O_APPEND);
}

TEST(Pipe, NonBlockingOnAClosedDescriptorFailsWithTheReason) {
    EXPECT_FALSE(setNonBlocking(-1));
    EXPECT_EQ(errno, EBADF);
}

} // namespace

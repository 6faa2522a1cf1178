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

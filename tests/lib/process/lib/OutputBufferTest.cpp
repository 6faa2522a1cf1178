#include "lib/process/lib/OutputBuffer.h"

#include <cerrno>
#include <optional>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/process/lib/Pipe.h"
#include "tests/support/CapturedStreams.h"
#include "tests/support/Faults.h"
#include "tests/support/ForkedResult.h"

namespace quelm::test {

namespace {

class OutputBufferTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pipe);
        ASSERT_TRUE(setNonBlocking(pipe->readEnd.get()));
    }

    void put(std::size_t count) {
        const std::string text(count, 'x');
        ASSERT_EQ(::write(pipe->writeEnd.get(), text.data(), count), static_cast<ssize_t>(count));
    }

    void readOnce() { buffer.readOnce(pipe->readEnd); }

    std::optional<Pipe> pipe = openPipe();
    OutputBuffer buffer;
};

TEST_F(OutputBufferTest, StartsWithoutABlock) {
    EXPECT_EQ(buffer.capacity(), 0U);
    EXPECT_EQ(buffer.release(), nullptr);
}

TEST_F(OutputBufferTest, AnEmptyOutputHasATerminatedBlock) {
    pipe->writeEnd.close();
    readOnce();
    EXPECT_FALSE(pipe->readEnd.isOpen());
    const CText text(buffer.release());
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text.get(), "");
}

TEST_F(OutputBufferTest, OneReadTakesAllButTheTerminatorsByte) {
    put(10000);
    readOnce();
    EXPECT_EQ(buffer.length(), 4095U);
    EXPECT_EQ(buffer.capacity(), 4096U);
    readOnce();
    EXPECT_EQ(buffer.length(), 8191U);
    EXPECT_EQ(buffer.capacity(), 8192U);
    readOnce();
    EXPECT_EQ(buffer.length(), 10000U);
    EXPECT_EQ(buffer.capacity(), 16384U);
}

TEST_F(OutputBufferTest, GrowsWhenNoMoreThan2048BytesAreFree) {
    put(2047);
    readOnce();
    put(1);
    readOnce();
    EXPECT_EQ(buffer.capacity(), 4096U);
    readOnce();
    EXPECT_EQ(buffer.capacity(), 8192U);
}

TEST_F(OutputBufferTest, KeepsNulBytesAndTerminatesBehindThem) {
    ASSERT_EQ(::write(pipe->writeEnd.get(), "a\0b", 3), 3);
    readOnce();
    EXPECT_EQ(buffer.length(), 3U);
    const CText text(buffer.release());
    EXPECT_EQ(std::string(text.get(), 4), std::string("a\0b\0", 4));
}

TEST_F(OutputBufferTest, WhatComesAfterTheReleaseHasABlockOfItsOwn) {
    put(3);
    readOnce();
    const CText first(buffer.release());
    EXPECT_EQ(buffer.length(), 0U);
    EXPECT_EQ(buffer.capacity(), 0U);
    put(2);
    readOnce();
    EXPECT_EQ(buffer.length(), 2U);
    const CText second(buffer.release());
    EXPECT_STREQ(first.get(), "xxx");
    EXPECT_STREQ(second.get(), "xx");
}

TEST_F(OutputBufferTest, NothingToReadYetIsNoFailure) {
    const CapturedStreams captured;
    readOnce();
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_TRUE(pipe->readEnd.isOpen());
    EXPECT_EQ(captured.error(), "");
}

TEST_F(OutputBufferTest, AFailedReadIsPrintedAndClosesTheEnd) {
    const CapturedStreams captured;
    const FailedCall failing(Call::read, EIO);
    readOnce();
    EXPECT_EQ(errno, 0);
    EXPECT_FALSE(pipe->readEnd.isOpen());
    EXPECT_EQ(captured.error(), "fork_exec*: read(pipe) failed: Input/output error\n");
    EXPECT_EQ(captured.output(), "");
}

TEST_F(OutputBufferTest, AnInterruptedReadCountsAsFailed) {
    put(3);
    const CapturedStreams captured;
    const FailedCall failing(Call::read, EINTR);
    readOnce();
    EXPECT_EQ(callsOf(Call::read), 1);
    EXPECT_EQ(errno, 0);
    EXPECT_FALSE(pipe->readEnd.isOpen());
    EXPECT_EQ(captured.error(), "fork_exec*: read(pipe) failed: Interrupted system call\n");
}

// fatal_message too takes its buffer from realloc; it is let through.
TEST_F(OutputBufferTest, NoMemoryEndsTheProcess) {
    const ChildOutcome result = runForked([this] {
        failCallOnce(Call::realloc, ENOMEM);
        readOnce();
        return 0;
    });
    EXPECT_EQ(result.exitStatus(), 1);
    EXPECT_EQ(result.error, "Cannot allocate memory\nSystem error 12: Cannot allocate memory\n");
    EXPECT_EQ(result.output, result.error);
}

} // namespace

} // namespace quelm::test

#include "lib/process/lib/Pipe.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "lib/process/lib/Exceptions.h"
#include "tests/support/Captured.h"
#include "tests/support/ProcessState.h"

namespace quelm::test {

namespace {

using testing::ElementsAre;

bool carriesBytes(const Pipe& pipe) {
    char byte = 0;
    return ::write(pipe.writeEnd.get(), "x", 1) == 1 && ::read(pipe.readEnd.get(), &byte, 1) == 1 &&
           byte == 'x';
}

TEST(Pipe, NeitherEndTakesTheSlotOfAClosedStandardDescriptor) {
    for (int closed = 0; closed < 8; ++closed) {
        EXPECT_TRUE(holdsInChild([closed] {
            closeStandard(closed);
            const std::vector<int> standard = openDescriptors(0, 3);
            const auto pipe = openPipe();
            return pipe && pipe->readEnd.get() > 2 && pipe->writeEnd.get() > 2 &&
                   openDescriptors(0, 3) == standard && carriesBytes(*pipe);
        })) << closed;
    }
}

// In the second case the two ends find room in the standard slots alone, but must not stay there.
TEST(Pipe, ExhaustionGivesNothingAndTheReason) {
    for (const int closed : {0, 3}) {
        EXPECT_TRUE(holdsInChild([closed] {
            closeStandard(closed);
            const std::vector<int> standard = openDescriptors(0, 3);
            const rlimit none{3, 3};
            ::setrlimit(RLIMIT_NOFILE, &none);
            return !openPipe() && errno == (closed == 0 ? EMFILE : EINVAL) &&
                   openDescriptors(0, 3) == standard;
        })) << closed;
    }
}

TEST(Pipe, NonBlockingIsAddedToTheOtherFlags) {
    const auto pipe = openPipe();
    ASSERT_TRUE(pipe);
    ASSERT_EQ(::fcntl(pipe->writeEnd.get(), F_SETFL, O_APPEND), 0);
    EXPECT_TRUE(setNonBlocking(pipe->writeEnd.get()));
    const int flags = ::fcntl(pipe->writeEnd.get(), F_GETFL);
    EXPECT_EQ(flags & (O_NONBLOCK | O_APPEND), O_NONBLOCK | O_APPEND);
    EXPECT_FALSE(setNonBlocking(-1));
    EXPECT_EQ(errno, EBADF);
}

class PipeTransfer : public testing::Test {
protected:
    PipeTransfer() {
        std::signal(SIGPIPE, SIG_IGN);
        setNonBlocking(pipe.readEnd.get());
        setNonBlocking(pipe.writeEnd.get());
    }
    ~PipeTransfer() override { std::signal(SIGPIPE, SIG_DFL); }

    Transfer read() {
        return readToCallback(pipe.readEnd.get(), keepBlock, &blocks, buffer.data(), buffer.size());
    }
    Transfer write() {
        return writeFromCallback(pipe.writeEnd.get(), buffer.data(), buffer.size(), pending, nextPiece,
                                 &pieces);
    }

    static void keepBlock(const char* bytes, std::size_t count, void* context) {
        static_cast<std::vector<std::string>*>(context)->emplace_back(bytes, count);
    }
    static std::size_t nextPiece(char* bytes, std::size_t capacity, void* context) {
        auto& left = *static_cast<std::vector<std::string>*>(context);
        if (left.empty()) {
            return 0;
        }
        const std::size_t count = left.front().copy(bytes, capacity);
        left.erase(left.begin());
        return count;
    }
    void fillPipe() {
        const std::string block(4096, 'f');
        while (::write(pipe.writeEnd.get(), block.data(), block.size()) > 0) {
        }
    }
    std::string drainPipe() {
        std::string all;
        std::array<char, 4096> block;
        for (;;) {
            const ssize_t count = ::read(pipe.readEnd.get(), block.data(), block.size());
            if (count <= 0) {
                return all;
            }
            all.append(block.data(), static_cast<std::size_t>(count));
        }
    }

    Pipe pipe = std::move(*openPipe());
    std::vector<char> buffer = std::vector<char>(8);
    std::size_t pending = 0;
    std::vector<std::string> blocks;
    std::vector<std::string> pieces;
};

TEST_F(PipeTransfer, ReadsBlockByBlockUntilThePipeIsEmpty) {
    ASSERT_EQ(::write(pipe.writeEnd.get(), "0123456789abc", 13), 13);
    EXPECT_EQ(read(), Transfer::keepOpen);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_THAT(blocks, ElementsAre("01234567", "89abc"));
}

TEST_F(PipeTransfer, ReadingEndsAtEndOfFileAndWithoutASinkTheDataIsDropped) {
    ASSERT_EQ(::write(pipe.writeEnd.get(), "0123456789", 10), 10);
    EXPECT_EQ(readToCallback(pipe.readEnd.get(), nullptr, nullptr, buffer.data(), buffer.size()),
              Transfer::keepOpen);
    ASSERT_EQ(::write(pipe.writeEnd.get(), "end", 3), 3);
    pipe.writeEnd.close();
    EXPECT_EQ(read(), Transfer::finished);
    EXPECT_THAT(blocks, ElementsAre("end"));
}

TEST_F(PipeTransfer, WritesPieceAfterPieceUntilTheSourceEnds) {
    pieces = {"one ", "two ", "three"};
    EXPECT_EQ(write(), Transfer::finished);
    EXPECT_EQ(drainPipe(), "one two three");
    EXPECT_EQ(writeFromCallback(pipe.writeEnd.get(), buffer.data(), buffer.size(), pending, nullptr, nullptr),
              Transfer::finished);
}

TEST_F(PipeTransfer, AFullPipeLeavesThePieceForTheNextPass) {
    fillPipe();
    pieces = {"kept", "next"};
    EXPECT_EQ(write(), Transfer::keepOpen);
    EXPECT_EQ(pending, 4u);
    EXPECT_THAT(pieces, ElementsAre("next"));
    drainPipe();
    EXPECT_EQ(write(), Transfer::finished);
    EXPECT_EQ(drainPipe(), "keptnext");
}

// A write of more than PIPE_BUF bytes may be partial; one byte more than fits is so for sure.
TEST_F(PipeTransfer, APartialWriteKeepsTheRestAtTheFront) {
    const auto size = static_cast<std::size_t>(::fcntl(pipe.writeEnd.get(), F_GETPIPE_SZ));
    std::string large(size + 3, 'a');
    large.replace(size, 3, "xyz");
    buffer.resize(size + 3);
    pieces = {large};
    EXPECT_EQ(write(), Transfer::keepOpen);
    ASSERT_EQ(pending, 3u);
    EXPECT_EQ(std::string(buffer.data(), 3), "xyz");
    EXPECT_EQ(drainPipe(), std::string(size, 'a'));
    EXPECT_EQ(write(), Transfer::finished);
    EXPECT_EQ(drainPipe(), "xyz");
}

TEST_F(PipeTransfer, ThatNobodyReadsFinishesWithoutAnError) {
    pipe.readEnd.close();
    pieces = {"dropped", "never asked for"};
    EXPECT_EQ(write(), Transfer::finished);
    EXPECT_THAT(pieces, ElementsAre("never asked for"));
}

TEST_F(PipeTransfer, FailuresAreThrown) {
    pieces = {"x"};
    EXPECT_THAT(
        [&] { readToCallback(-1, nullptr, nullptr, buffer.data(), buffer.size()); },
        testing::Throws<SystemError>(testing::Property(&SystemError::message, "readToCallback failed")));
    EXPECT_THAT([&] { writeFromCallback(-1, buffer.data(), buffer.size(), pending, nextPiece, &pieces); },
                testing::Throws<SystemError>(testing::Property(&SystemError::code, EBADF)));
}

} // namespace

} // namespace quelm::test

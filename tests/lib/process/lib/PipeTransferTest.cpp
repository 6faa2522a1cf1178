#include "lib/process/lib/PipeTransfer.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include "lib/process/lib/Pipe.h"
#include "lib/process/lib/SystemError.h"

namespace {

using quelm::Pipe;
using quelm::readToCallback;
using quelm::SystemError;
using quelm::Transfer;
using quelm::TransferBuffer;
using quelm::writeFromCallback;
using testing::ElementsAre;

class PipeTransfer : public testing::Test {
protected:
    PipeTransfer() {
        std::signal(SIGPIPE, SIG_IGN);
        quelm::setNonBlocking(pipe.readEnd.get());
        quelm::setNonBlocking(pipe.writeEnd.get());
    }
    ~PipeTransfer() override { std::signal(SIGPIPE, SIG_DFL); }

    Transfer read() { return readToCallback(pipe.readEnd.get(), buffer, keepBlock, &blocks); }
    Transfer write() { return writeFromCallback(pipe.writeEnd.get(), buffer, nextPiece, &pieces); }

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

    Pipe pipe = std::move(*quelm::openPipe());
    std::array<char, 8> bytes{};
    TransferBuffer buffer{bytes.data(), bytes.size()};
    std::vector<std::string> blocks;
    std::vector<std::string> pieces;
};

TEST_F(PipeTransfer, ReadsBlockByBlockUntilThePipeIsEmpty) {
    ASSERT_EQ(::write(pipe.writeEnd.get(), "0123456789abc", 13), 13);
    EXPECT_EQ(read(), Transfer::keepOpen);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_THAT(blocks, ElementsAre("01234567", "89abc"));
}

TEST_F(PipeTransfer, ReadingEndsAtEndOfFile) {
    ASSERT_EQ(::write(pipe.writeEnd.get(), "end", 3), 3);
    pipe.writeEnd.close();
    EXPECT_EQ(read(), Transfer::finished);
    EXPECT_THAT(blocks, ElementsAre("end"));
}

TEST_F(PipeTransfer, WithoutASinkTheDataIsDropped) {
    ASSERT_EQ(::write(pipe.writeEnd.get(), "0123456789", 10), 10);
    EXPECT_EQ(readToCallback(pipe.readEnd.get(), buffer, nullptr, nullptr), Transfer::keepOpen);
    EXPECT_EQ(drainPipe(), "");
}

TEST_F(PipeTransfer, ReadFailureIsThrown) {
    try {
        readToCallback(-1, buffer, nullptr, nullptr);
        FAIL();
    } catch (const SystemError& failure) {
        EXPECT_EQ(failure.message(), "readToCallback failed");
        EXPECT_EQ(failure.code(), EBADF);
    }
}

TEST_F(PipeTransfer, WritesPieceAfterPieceUntilTheSourceEnds) {
    pieces = {"one ", "two ", "three"};
    EXPECT_EQ(write(), Transfer::finished);
    EXPECT_EQ(drainPipe(), "one two three");
}

TEST_F(PipeTransfer, ASourceThatGivesNothingAtAllFinishesAtOnce) {
    EXPECT_EQ(write(), Transfer::finished);
    EXPECT_EQ(writeFromCallback(pipe.writeEnd.get(), buffer, nullptr, nullptr), Transfer::finished);
}

TEST_F(PipeTransfer, AFullPipeLeavesThePieceForTheNextPass) {
    fillPipe();
    pieces = {"kept", "next"};
    EXPECT_EQ(write(), Transfer::keepOpen);
    EXPECT_EQ(buffer.pending, 4u);
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
    std::vector<char> room(size + 3);
    buffer = TransferBuffer{room.data(), room.size()};
    pieces = {large};
    EXPECT_EQ(write(), Transfer::keepOpen);
    ASSERT_EQ(buffer.pending, 3u);
    EXPECT_EQ(std::string(room.data(), 3), "xyz");
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

TEST_F(PipeTransfer, WriteFailureIsThrown) {
    pieces = {"x"};
    try {
        writeFromCallback(-1, buffer, nextPiece, &pieces);
        FAIL();
    } catch (const SystemError& failure) {
        EXPECT_EQ(failure.message(), "writeFromCallback failed");
        EXPECT_EQ(failure.code(), EBADF);
    }
}

} // namespace

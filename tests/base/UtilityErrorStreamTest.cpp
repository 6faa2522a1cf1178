#include "base/UtilityErrorStream.h"

#include <iostream>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/Captured.h"

namespace {

using quelm::errorStream;

class UtilityErrorStream : public testing::Test {
protected:
    ~UtilityErrorStream() override {
        std::cerr.rdbuf(previousError_);
        std::cout.rdbuf(previousOutput_);
    }
    std::ostringstream error_;
    std::ostringstream output_;

private:
    std::streambuf* previousError_ = std::cerr.rdbuf(error_.rdbuf());
    std::streambuf* previousOutput_ = std::cout.rdbuf(output_.rdbuf());
};

class OpenBuffer : public quelm::UtilityErrorStreamBuf {
public:
    using UtilityErrorStreamBuf::overflow;
    using UtilityErrorStreamBuf::sync;
};

TEST_F(UtilityErrorStream, ShowsTextOnStandardErrorAtOnceAndWholeOnStandardOutputAtTheFlush) {
    errorStream << "broken " << 7;
    EXPECT_EQ(error_.str(), "broken 7");
    EXPECT_EQ(output_.str(), "");
    errorStream << std::endl;
    EXPECT_EQ(error_.str(), "broken 7\n");
    EXPECT_EQ(output_.str(), "broken 7\n");
}

TEST_F(UtilityErrorStream, PassesEveryByteAndForgetsWhatItHasFlushed) {
    std::string bytes;
    for (int value = 0; value < 256; ++value) {
        bytes.push_back(static_cast<char>(value));
    }
    errorStream << bytes << std::flush << "two" << std::endl << std::flush;
    EXPECT_EQ(error_.str(), bytes + "two\n");
    EXPECT_EQ(output_.str(), bytes + "two\n");
}

TEST_F(UtilityErrorStream, EndOfFileIsReturnedUnchangedAndNotWritten) {
    OpenBuffer buffer;
    EXPECT_EQ(buffer.overflow(std::char_traits<char>::eof()), std::char_traits<char>::eof());
    EXPECT_EQ(buffer.overflow('x'), 'x');
    EXPECT_EQ(buffer.sync(), 0);
    EXPECT_EQ(error_.str(), "x");
    EXPECT_EQ(output_.str(), "x");
}

TEST_F(UtilityErrorStream, AFlushReachesBothStreams) {
    quelm::test::FlushedText error;
    quelm::test::FlushedText output;
    std::cerr.rdbuf(&error);
    std::cout.rdbuf(&output);
    std::cerr << std::nounitbuf;
    errorStream << "x";
    EXPECT_EQ(error.flushed + output.flushed, "");
    errorStream << std::flush;
    std::cerr << std::unitbuf;
    EXPECT_EQ(error.flushed, "x");
    EXPECT_EQ(output.flushed, "x");
}

TEST(UtilityErrorStreamAtExit, TextThatIsNeverFlushedReachesStandardErrorOnly) {
    const auto outcome = quelm::test::inChild([] {
        errorStream << "lost";
        std::exit(0);
    });
    EXPECT_EQ(outcome.error, "lost");
    EXPECT_EQ(outcome.output, "");
}

} // namespace

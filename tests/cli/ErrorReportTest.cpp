#include "cli/ErrorReport.h"

#include <iostream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "base/QuelmUtilException.h"
#include "base/Traceback.h"
#include "tests/support/Captured.h"

namespace {

class NullText : public std::exception {
public:
    const char* what() const noexcept override { return nullptr; }
};

class Traced : public std::runtime_error, public quelm::Traceback {
public:
    Traced() : std::runtime_error("with a trace"), quelm::Traceback(0) {}
};

class TracedWithoutFrames : public std::runtime_error, public quelm::Traceback {
public:
    TracedWithoutFrames() : std::runtime_error("bare"), quelm::Traceback(50) {}
};

struct Report {
    int status;
    std::string output;
    std::string error;
};

template <class Thrown>
Report report(const Thrown& thrown) {
    const auto outcome =
        quelm::test::inChild([&] { std::exit(quelm::reportException(std::make_exception_ptr(thrown))); });
    return {outcome.exitStatus(), outcome.output, outcome.error};
}

TEST(ErrorReport, AnExpectedFailurePrintsItsTextOnStandardErrorOnlyAndGivesOne) {
    const Report result = report(quelm::QuelmUtilException("x"));
    EXPECT_EQ(result.error, "x\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.status, 1);
}

TEST(ErrorReport, AnExpectedFailureIsFlushed) {
    quelm::test::FlushedText text;
    std::streambuf* const before = std::cerr.rdbuf(&text);
    std::cerr << std::nounitbuf;
    quelm::reportException(std::make_exception_ptr(quelm::QuelmUtilException("x")));
    std::cerr << std::unitbuf;
    std::cerr.rdbuf(before);
    EXPECT_EQ(text.flushed, "x\n");
}

TEST(ErrorReport, AnotherStandardExceptionIsFatalOnBothStreamsAndGivesOne) {
    const Report result = report(std::runtime_error("y"));
    EXPECT_EQ(result.error, "Fatal error: std::runtime_error(y)\n");
    EXPECT_EQ(result.output, "Fatal error: std::runtime_error(y)\n");
    EXPECT_EQ(result.status, 1);
}

TEST(ErrorReport, TheDynamicTypeIsNamed) {
    EXPECT_EQ(report(std::out_of_range("z")).error, "Fatal error: std::out_of_range(z)\n");
}

TEST(ErrorReport, AnExceptionOfNoStandardTypeIsUnspecifiedOnBothStreamsAndGivesTwo) {
    const Report result = report(42);
    EXPECT_EQ(result.error, "UNSPECIFIED ERROR OCCURED\n");
    EXPECT_EQ(result.output, "UNSPECIFIED ERROR OCCURED\n");
    EXPECT_EQ(result.status, 2);
}

TEST(ErrorReport, ANullTextPrintsNothingBehindTheBracketAndNeverReachesStandardOutput) {
    const Report result = report(NullText());
    EXPECT_EQ(result.error, "Fatal error: (anonymous namespace)::NullText(");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.status, 1);
}

TEST(ErrorReport, AnExceptionThatIsATracebackPrintsItsTraceOnBothStreams) {
    const Report result = report(Traced());
    EXPECT_TRUE(
        result.error.starts_with("Fatal error: (anonymous namespace)::Traced(with a trace)\nTraceback:\n\t"))
        << result.error;
    EXPECT_EQ(result.output, result.error);
}

TEST(ErrorReport, ATraceWithoutFramesPrintsOnlyItsHeader) {
    EXPECT_EQ(report(TracedWithoutFrames()).output,
              "Fatal error: (anonymous namespace)::TracedWithoutFrames(bare)\nTraceback addresses:\n");
}

} // namespace

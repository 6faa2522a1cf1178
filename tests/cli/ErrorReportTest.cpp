#include "cli/ErrorReport.h"

#include <iostream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "base/QuelmUtilException.h"
#include "base/Traceback.h"
#include "tests/support/Captured.h"

namespace quelm::test {

namespace {

class NullText : public std::exception {
public:
    const char* what() const noexcept override { return nullptr; }
};

class Traced : public std::runtime_error, public Traceback {
public:
    Traced() : std::runtime_error("with a trace"), Traceback(0) {}
};

class TracedWithoutFrames : public std::runtime_error, public Traceback {
public:
    TracedWithoutFrames() : std::runtime_error("bare"), Traceback(50) {}
};

struct Report {
    int status;
    std::string output;
    std::string error;

    bool operator==(const Report&) const = default;
};

template <class Thrown>
Report report(const Thrown& thrown) {
    const auto outcome = inChild([&] { std::exit(reportException(std::make_exception_ptr(thrown))); });
    return {outcome.exitStatus(), outcome.output, outcome.error};
}

TEST(ErrorReport, TheKindOfExceptionDecidesTextStreamsAndStatus) {
    const std::string fatal = "Fatal error: std::runtime_error(y)\n";
    const std::string dynamicType = "Fatal error: std::out_of_range(z)\n";
    const std::string unknown = "UNSPECIFIED ERROR OCCURED\n";
    EXPECT_EQ(report(QuelmUtilException("x")), (Report{1, "", "x\n"}));
    EXPECT_EQ(report(std::runtime_error("y")), (Report{1, fatal, fatal}));
    EXPECT_EQ(report(std::out_of_range("z")), (Report{1, dynamicType, dynamicType}));
    EXPECT_EQ(report(42), (Report{2, unknown, unknown}));
    // A null text prints nothing behind the bracket and never reaches standard output.
    EXPECT_EQ(report(NullText()),
              (Report{1, "", "Fatal error: quelm::test::(anonymous namespace)::NullText("}));
}

TEST(ErrorReport, AnExpectedFailureIsFlushed) {
    FlushedText text;
    std::streambuf* const before = std::cerr.rdbuf(&text);
    std::cerr << std::nounitbuf;
    reportException(std::make_exception_ptr(QuelmUtilException("x")));
    std::cerr << std::unitbuf;
    std::cerr.rdbuf(before);
    EXPECT_EQ(text.flushed, "x\n");
}

TEST(ErrorReport, AnExceptionThatIsATracebackPrintsItsTraceOnBothStreams) {
    const Report result = report(Traced());
    EXPECT_TRUE(result.error.starts_with(
        "Fatal error: quelm::test::(anonymous namespace)::Traced(with a trace)\nTraceback:\n\t"))
        << result.error;
    EXPECT_EQ(result.output, result.error);
}

TEST(ErrorReport, ATraceWithoutFramesPrintsOnlyItsHeader) {
    EXPECT_EQ(
        report(TracedWithoutFrames()).output,
        "Fatal error: quelm::test::(anonymous namespace)::TracedWithoutFrames(bare)\nTraceback addresses:\n");
}

} // namespace

} // namespace quelm::test

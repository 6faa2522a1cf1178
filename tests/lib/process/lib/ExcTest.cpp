#include "lib/process/lib/Exceptions.h"

#include <algorithm>
#include <iostream>
#include <sstream>
#include <typeinfo>

#include <gtest/gtest.h>

#include "base/Traceback.h"
#include "cli/ErrorReport.h"
#include "lib/process/lib/ExecCmd.h"
#include "tests/support/InChild.h"

namespace {

using quelm::ExDefault;
using quelm::ExecCmd;
using Failure = quelm::Exc<&ExecCmd::Failed, ExDefault>;

Failure makeFailure() {
    return Failure("the tag", "the message", {"void f()", "some/file", 12});
}

TEST(Exc, CarriesTagMessageAndThrowPoint) {
    const Failure failure = makeFailure();
    EXPECT_EQ(failure.tag(), "the tag");
    EXPECT_STREQ(failure.what(), "the message");
    EXPECT_EQ(failure.message(), "the message");
    EXPECT_STREQ(failure.function(), "void f()");
    EXPECT_STREQ(failure.file(), "some/file");
    EXPECT_EQ(failure.line(), 12);
}

TEST(Exc, TheWholeMessageIsKeptBehindANulByte) {
    const std::string whole("Stdout is\na\0b\n", 14);
    const Failure failure("the tag", whole, {"void f()", "some/file", 12});
    EXPECT_EQ(failure.message(), whole);
    EXPECT_STREQ(failure.what(), "Stdout is\na");
}

template <class Base>
bool isCaughtAs() {
    try {
        throw makeFailure();
    } catch (const Base&) {
        return true;
    } catch (...) {
        return false;
    }
}

TEST(Exc, IsCaughtByEveryClassOfTheFamily) {
    EXPECT_TRUE(isCaughtAs<std::exception>());
    EXPECT_TRUE(isCaughtAs<quelm::ExVisitable>());
    EXPECT_TRUE(isCaughtAs<quelm::IExTraceable>());
    EXPECT_TRUE(isCaughtAs<quelm::ExTraceableBase<ExDefault>>());
    EXPECT_TRUE(isCaughtAs<quelm::ExTaggedIncludableBase<ExDefault>>());
    EXPECT_TRUE(isCaughtAs<quelm::Traceback>());
    EXPECT_TRUE(isCaughtAs<Failure>());
    EXPECT_FALSE(isCaughtAs<std::runtime_error>());
}

TEST(Exc, AStandardExceptionCanBeCastToItsTrace) {
    const Failure failure = makeFailure();
    const std::exception& standard = failure;
    const auto* trace = dynamic_cast<const quelm::Traceback*>(&standard);
    ASSERT_NE(trace, nullptr);
    std::ostringstream text;
    trace->print(text);
    EXPECT_EQ(text.str().rfind("Traceback:\n\t", 0), 0u);
}

// Eleven frames are captured, and a test lies deeper than that.
TEST(Exc, ItsTraceLeavesOutTheOneFrameThatCapturesIt) {
    std::ostringstream text;
    makeFailure().print(text);
    const std::string lines = text.str();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\t'), 10) << lines;
}

TEST(Exc, ItsTypeReadsInFull) {
    EXPECT_EQ(quelm::readableTypeName(typeid(Failure).name()),
              "quelm::Exc<&quelm::ExecCmd::Failed, quelm::ExDefault>");
}

TEST(Exc, ACopyPrintsItsOwnTrace) {
    const Failure original = makeFailure();
    std::ostringstream first;
    original.print(first);
    const Failure copy(original);
    std::ostringstream second;
    copy.print(second);
    EXPECT_EQ(first.str(), second.str());
    EXPECT_STREQ(copy.what(), "the message");
}

TEST(Exc, TheEntryPointReportsTypeMessageAndTrace) {
    const auto outcome =
        quelm::test::inChild([] { ::_exit(quelm::reportException(std::make_exception_ptr(makeFailure()))); });
    EXPECT_EQ(outcome.exitStatus(), 1);
    const std::string head =
        "Fatal error: quelm::Exc<&quelm::ExecCmd::Failed, quelm::ExDefault>(the message)\nTraceback:\n\t";
    EXPECT_EQ(outcome.error.rfind(head, 0), 0u) << outcome.error;
    EXPECT_EQ(outcome.output, outcome.error);
}

} // namespace

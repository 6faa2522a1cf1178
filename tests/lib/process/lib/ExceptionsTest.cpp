#include "lib/process/lib/Exceptions.h"

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <typeinfo>

#include <gtest/gtest.h>

#include "base/Traceback.h"
#include "lib/process/lib/ExecCmd.h"

namespace quelm::test {

namespace {

using Failure = Exc<&ExecCmd::Failed, ExDefault>;

Failure makeFailure() {
    return Failure("the tag", "the message", {"void f()", "some/file", 12});
}

TEST(Exc, CarriesTypeTagMessageAndThrowPoint) {
    const Failure failure = makeFailure();
    EXPECT_EQ(readableTypeName(typeid(failure).name()),
              "quelm::Exc<&quelm::ExecCmd::Failed, quelm::ExDefault>");
    EXPECT_EQ(failure.tag(), "the tag");
    EXPECT_STREQ(failure.what(), "the message");
    EXPECT_EQ(failure.message(), "the message");
    EXPECT_STREQ(failure.function(), "void f()");
    EXPECT_STREQ(failure.file(), "some/file");
    EXPECT_EQ(failure.line(), 12);
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
    EXPECT_TRUE(isCaughtAs<ExVisitable>());
    EXPECT_TRUE(isCaughtAs<IExTraceable>());
    EXPECT_TRUE(isCaughtAs<ExTraceableBase<ExDefault>>());
    EXPECT_TRUE(isCaughtAs<ExTaggedIncludableBase<ExDefault>>());
    EXPECT_TRUE(isCaughtAs<Traceback>());
    EXPECT_TRUE(isCaughtAs<Failure>());
    EXPECT_FALSE(isCaughtAs<std::runtime_error>());
}

// Eleven frames are captured, and a test lies deeper than that.
TEST(Exc, AStandardExceptionCanBeCastToItsTraceWithoutTheFrameThatCapturesIt) {
    const Failure failure = makeFailure();
    const std::exception& standard = failure;
    std::ostringstream stream;
    dynamic_cast<const Traceback&>(standard).print(stream);
    const std::string text = stream.str();
    EXPECT_TRUE(text.starts_with("Traceback:\n\t")) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\t'), 10) << text;
}

TEST(SystemError, FiveErrorsHaveTypesOfTheirOwn) {
    for (const auto& [error, type] : {std::pair{EPERM, "quelm::ExSystemError<1>"},
                                      {ENOENT, "quelm::ExSystemError<2>"},
                                      {EINTR, "quelm::ExSystemError<4>"},
                                      {ECHILD, "quelm::ExSystemError<10>"},
                                      {EAGAIN, "quelm::ExSystemError<11>"},
                                      {EACCES, "quelm::SystemError"}}) {
        try {
            throwSystemError("m", error);
        } catch (const SystemError& failure) {
            EXPECT_EQ(failure.code(), error);
            EXPECT_EQ(readableTypeName(typeid(failure).name()), type);
        }
    }
}

TEST(SystemError, IsAStandardErrorWithMessageAndReason) {
    try {
        throwSystemError("readToCallback failed", EIO);
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "readToCallback failed: Input/output error");
        const SystemError copy(dynamic_cast<const SystemError&>(failure));
        EXPECT_EQ(copy.message(), "readToCallback failed");
        EXPECT_EQ(copy.code(), EIO);
    }
}

TEST(SystemError, ZeroMeansTheCurrentErrnoBeforeTheTypeIsChosen) {
    errno = ENOENT;
    EXPECT_THROW(throwSystemError("m", 0), ExSystemError<2>);
    errno = EPERM;
    EXPECT_EQ(SystemError("m", 0).code(), EPERM);
    EXPECT_EQ(SystemError("m", EIO).code(), EIO);
}

} // namespace

} // namespace quelm::test

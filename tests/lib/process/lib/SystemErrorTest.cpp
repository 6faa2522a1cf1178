#include "lib/process/lib/Exceptions.h"

#include <cerrno>
#include <typeinfo>

#include <gtest/gtest.h>

#include "base/Traceback.h"

namespace {

using quelm::ExSystemError;
using quelm::SystemError;
using quelm::throwSystemError;

std::string typeThrownFor(int error) {
    try {
        throwSystemError("m", error);
    } catch (const SystemError& failure) {
        EXPECT_EQ(failure.code(), error);
        return quelm::readableTypeName(typeid(failure).name());
    }
}

TEST(SystemError, FiveErrorsHaveTypesOfTheirOwn) {
    EXPECT_EQ(typeThrownFor(EPERM), "quelm::ExSystemError<1>");
    EXPECT_EQ(typeThrownFor(ENOENT), "quelm::ExSystemError<2>");
    EXPECT_EQ(typeThrownFor(EINTR), "quelm::ExSystemError<4>");
    EXPECT_EQ(typeThrownFor(ECHILD), "quelm::ExSystemError<10>");
    EXPECT_EQ(typeThrownFor(EAGAIN), "quelm::ExSystemError<11>");
    EXPECT_EQ(typeThrownFor(EACCES), "quelm::SystemError");
}

TEST(SystemError, IsAStandardErrorWithMessageAndReason) {
    try {
        throwSystemError("readToCallback failed", EIO);
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "readToCallback failed: Input/output error");
        const auto& error = dynamic_cast<const SystemError&>(failure);
        EXPECT_EQ(error.message(), "readToCallback failed");
        EXPECT_EQ(error.code(), EIO);
    }
}

TEST(SystemError, ZeroMeansTheCurrentErrnoBeforeTheTypeIsChosen) {
    errno = ENOENT;
    EXPECT_THROW(throwSystemError("m", 0), ExSystemError<2>);
    errno = EPERM;
    EXPECT_EQ(SystemError("m", 0).code(), EPERM);
}

TEST(SystemError, AGivenNumberBeatsErrno) {
    errno = ENOENT;
    EXPECT_EQ(SystemError("m", EIO).code(), EIO);
}

TEST(SystemError, ACopyKeepsEverything) {
    const SystemError original("fork() failed", EAGAIN);
    const SystemError copy(original);
    EXPECT_EQ(copy.message(), "fork() failed");
    EXPECT_EQ(copy.code(), EAGAIN);
}

} // namespace

#include "base/File.h"

#include <cerrno>
#include <type_traits>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/ProcessState.h"

namespace {

using quelm::UniqueFd;
using quelm::test::isOpen;

static_assert(!std::is_copy_constructible_v<UniqueFd> && !std::is_copy_assignable_v<UniqueFd>);

int openNull() {
    return ::open("/dev/null", O_RDONLY);
}

TEST(UniqueFd, ClosesAtTheEndOfItsLifeOrAtOnceOrNotAfterARelease) {
    const int descriptor = openNull();
    {
        const UniqueFd owner(descriptor);
        EXPECT_TRUE(isOpen(descriptor));
    }
    EXPECT_FALSE(isOpen(descriptor));
    UniqueFd closed(openNull());
    closed.close();
    EXPECT_FALSE(closed.isOpen());
    EXPECT_FALSE(isOpen(descriptor));
    UniqueFd released(openNull());
    EXPECT_EQ(released.release(), descriptor);
    EXPECT_FALSE(released.isOpen());
    EXPECT_TRUE(isOpen(descriptor));
    ::close(descriptor);
    EXPECT_EQ(UniqueFd().get(), -1);
}

TEST(UniqueFd, MovingOntoItselfKeepsTheDescriptorOpen) {
    UniqueFd owner(openNull());
    const int descriptor = owner.get();
    UniqueFd& same = owner;
    owner = std::move(same);
    EXPECT_EQ(owner.get(), descriptor);
    EXPECT_TRUE(isOpen(descriptor));
}

TEST(UniqueFd, MovingLeavesTheSourceEmptyAndClosesTheOldOne) {
    UniqueFd first(openNull());
    UniqueFd second(openNull());
    const int kept = first.get();
    const int replaced = second.get();
    second = std::move(first);
    EXPECT_EQ(second.get(), kept);
    EXPECT_FALSE(first.isOpen());
    EXPECT_FALSE(isOpen(replaced));
    const UniqueFd third(std::move(second));
    EXPECT_EQ(third.get(), kept);
    EXPECT_TRUE(isOpen(kept));
}

TEST(UniqueFd, ClosingKeepsErrnoAlsoWhenItFails) {
    UniqueFd owner(openNull());
    ::close(owner.get());
    errno = EAGAIN;
    owner.close();
    EXPECT_EQ(errno, EAGAIN);
}

} // namespace

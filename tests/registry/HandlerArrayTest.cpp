#include "registry/HandlerArray.h"

#include <cstddef>
#include <utility>

#include <gtest/gtest.h>

namespace quelm {

namespace {

HandlerArray arrayOf(std::size_t count) {
    HandlerArray array(1);
    for (std::size_t number = 0; number < count; ++number) {
        array.append();
        array.back().nameSize = number;
    }
    return array;
}

void expectNumbered(const HandlerArray& array, std::size_t count) {
    ASSERT_EQ(array.size(), count);
    for (std::size_t number = 0; number < count; ++number) {
        EXPECT_EQ(array[number].nameSize, number);
    }
}

} // namespace

TEST(HandlerArray, KeepsItsHandlersWhileItGrows) {
    expectNumbered(arrayOf(100), 100);
}

TEST(HandlerArray, AnAppendedHandlerIsEmpty) {
    HandlerArray array = arrayOf(3);
    array.shrink(0);
    array.append();
    EXPECT_EQ(array.size(), 1u);
    EXPECT_EQ(array.back().nameSize, 0u);
    EXPECT_STREQ(array.back().id, "");
    EXPECT_FALSE(array.back().system);
}

TEST(HandlerArray, OneThatBeginsWithoutRoomGrowsToo) {
    HandlerArray array;
    EXPECT_EQ(array.size(), 0u);
    EXPECT_EQ(array.begin(), array.end());
    array.append();
    array.append();
    EXPECT_EQ(array.size(), 2u);
}

TEST(HandlerArray, AMoveLeavesAnEmptyOneThatCanBeUsedAgain) {
    HandlerArray array = arrayOf(5);
    HandlerArray moved(std::move(array));
    expectNumbered(moved, 5);
    // NOLINTNEXTLINE(bugprone-use-after-move): that is what is tested
    EXPECT_EQ(array.size(), 0u);
    EXPECT_EQ(array.capacity(), 0u);
    array.append();
    EXPECT_EQ(array.size(), 1u);
    array = std::move(moved);
    expectNumbered(array, 5);
    EXPECT_EQ(moved.size(), 0u);
    EXPECT_EQ(moved.capacity(), 0u);
    moved.append();
    EXPECT_EQ(moved.size(), 1u);
}

} // namespace quelm

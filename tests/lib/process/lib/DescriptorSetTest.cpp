#include "lib/process/lib/DescriptorSet.h"

#include <gtest/gtest.h>

#include "lib/process/lib/Pipe.h"

namespace {

using quelm::DescriptorSet;

TEST(DescriptorSet, HoldsWhatWasAdded) {
    DescriptorSet set(5000);
    for (const int descriptor : {0, 63, 64, 1023, 1024, 4999}) {
        EXPECT_FALSE(set.has(descriptor));
        set.add(descriptor);
        EXPECT_TRUE(set.has(descriptor));
    }
    EXPECT_FALSE(set.has(65));
    set.clear();
    EXPECT_FALSE(set.has(4999));
}

TEST(DescriptorSet, HasTheLayoutOfSelect) {
    DescriptorSet set(64);
    set.add(3);
    set.add(63);
    EXPECT_TRUE(FD_ISSET(3, set.data()));
    EXPECT_TRUE(FD_ISSET(63, set.data()));
    EXPECT_FALSE(FD_ISSET(4, set.data()));
}

TEST(DescriptorSet, SelectAnswersInIt) {
    const auto pipe = quelm::openPipe();
    ASSERT_TRUE(pipe);
    const int width = pipe->writeEnd.get() + 1;
    DescriptorSet reading(width);
    DescriptorSet writing(width);
    reading.add(pipe->readEnd.get());
    writing.add(pipe->writeEnd.get());
    ASSERT_EQ(::select(width, reading.data(), writing.data(), nullptr, nullptr), 1);
    EXPECT_FALSE(reading.has(pipe->readEnd.get()));
    EXPECT_TRUE(writing.has(pipe->writeEnd.get()));
}

} // namespace

#include "plumbing/FrameAccumulator.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/Records.h"

namespace kest {
namespace {

TEST(FrameAccumulator, AddsWholeOrNothingAndDropsFromTheFront) {
    CFrameAccumulator accumulator(16);
    auto Holds = [&](std::size_t n, std::uint8_t nFirst) {
        return std::ranges::equal(accumulator.GetBytes(), Counting(n, nFirst));
    };
    EXPECT_EQ(accumulator.Append(Counting(10)), 1);
    EXPECT_EQ(accumulator.Append(Counting(7, 100)), 0);
    for (auto n : {7u, 0xFFFFFFFFu, 0xFFFFFFF6u})
        EXPECT_FALSE(accumulator.Reserve(n).data());  // the sum wraps
    std::ranges::copy(Counting(6, 10), accumulator.Reserve(6).begin());
    EXPECT_TRUE(Holds(16, 0));
    for (auto n : {17, -1}) EXPECT_EQ(accumulator.Consume(n), 0);
    for (auto n : {0, 1, 9}) EXPECT_EQ(accumulator.Consume(n), 1);
    EXPECT_TRUE(Holds(6, 10));
    EXPECT_EQ(accumulator.Consume(6), 1);
    EXPECT_EQ(accumulator.Append(Counting(16, 3)), 1);
    EXPECT_TRUE(Holds(16, 3));
}

}  // namespace
}  // namespace kest

#include "plumbing/FrameAccumulator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "support/Records.h"

namespace kest {
namespace {

std::vector<std::uint8_t> Held(const CFrameAccumulator& accumulator) {
    const auto bytes = accumulator.GetBytes();
    return {bytes.begin(), bytes.end()};
}

TEST(FrameAccumulator, RefusesWholeWhatDoesNotFit) {
    CFrameAccumulator accumulator(16);
    EXPECT_EQ(accumulator.Append(Counting(10)), 1);
    EXPECT_EQ(accumulator.Append(Counting(7, 100)), 0);
    EXPECT_EQ(accumulator.Reserve(7).data(), nullptr);
    // A fill and a request whose sum wraps around 32 bits.
    EXPECT_EQ(accumulator.Reserve(std::numeric_limits<std::uint32_t>::max()).data(), nullptr);
    EXPECT_EQ(accumulator.Reserve(std::numeric_limits<std::uint32_t>::max() - 9).data(), nullptr);
    EXPECT_EQ(Held(accumulator), Counting(10));
    EXPECT_EQ(accumulator.Append(Counting(6, 10)), 1);
    EXPECT_EQ(Held(accumulator), Counting(16));
    EXPECT_EQ(accumulator.Append({}), 1);
    EXPECT_NE(accumulator.Reserve(0).data(), nullptr);
    EXPECT_EQ(accumulator.GetFill(), 16u);
}

TEST(FrameAccumulator, ReserveGivesTheRoomBehindTheHeldBytes) {
    CFrameAccumulator accumulator(16);
    accumulator.Append(Counting(4));
    EXPECT_EQ(accumulator.Reserve(0).data(), accumulator.GetBytes().data() + 4);
    const auto room = accumulator.Reserve(12);
    std::ranges::copy(Counting(12, 4), room.begin());
    EXPECT_EQ(Held(accumulator), Counting(16));
}

TEST(FrameAccumulator, ConsumeMovesTheRestDown) {
    CFrameAccumulator accumulator(8);
    const auto* const pBlock = accumulator.GetBytes().data();
    accumulator.Append(Counting(8, 1));
    EXPECT_EQ(accumulator.Consume(9), 0);
    EXPECT_EQ(accumulator.Consume(-1), 0);
    EXPECT_EQ(accumulator.Consume(0), 1);
    EXPECT_EQ(Held(accumulator), Counting(8, 1));
    EXPECT_EQ(accumulator.Consume(4), 1);
    EXPECT_EQ(Held(accumulator), Counting(4, 5));
    EXPECT_EQ(accumulator.Consume(1), 1);  // source and destination overlap
    EXPECT_EQ(Held(accumulator), Counting(3, 6));
    EXPECT_EQ(accumulator.Consume(3), 1);
    EXPECT_EQ(accumulator.GetFill(), 0u);
    EXPECT_EQ(accumulator.Append(Counting(8)), 1);
    EXPECT_EQ(accumulator.Reset(), 1);
    EXPECT_EQ(accumulator.GetFill(), 0u);
    EXPECT_EQ(accumulator.GetBytes().data(), pBlock);
}

}  // namespace
}  // namespace kest

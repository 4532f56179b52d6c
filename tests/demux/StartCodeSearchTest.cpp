#include "demux/StartCodeSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace kest {
namespace {

/// Where one of the patterns first stands, found the plain way.
std::optional<std::size_t> FindPlainly(Bytes bytes, const std::vector<std::vector<std::uint8_t>>& patterns) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (const auto& pattern : patterns) {
            const Bytes rest = bytes.subspan(i);
            if (rest.size() >= pattern.size() && std::equal(pattern.begin(), pattern.end(), rest.begin()))
                return i;
        }
    }
    return std::nullopt;
}

// Would catch a code that is missed, or found too late, where it lies across the blocks that are tested at a time,
// at either end, or behind bytes that resemble it; and a read beyond the end.
TEST(StartCodeSearch, FindsTheFirstWhereverItLies) {
    constexpr std::uint8_t kPlain = 0x55;
    constexpr std::uint8_t kBytes[] = {0x00, 0x01, 0xB3, 0xB8, 0x05};
    std::mt19937 random(1);
    for (int nRound = 0; nRound < 20000; ++nRound) {
        std::vector<std::uint8_t> bytes(random() % 210, kPlain);
        for (std::size_t n = bytes.empty() ? 0 : random() % 24, i = random() % 200; n > 0; --n, ++i) {
            bytes[i % bytes.size()] = kBytes[random() % std::size(kBytes)];
        }
        bytes.shrink_to_fit();
        EXPECT_EQ(FindStartCodePrefix(bytes), FindPlainly(bytes, {{0, 0, 1}}));
        EXPECT_EQ(FindStartCode(bytes, 0x000001B3), FindPlainly(bytes, {{0, 0, 1, 0xB3}}));
        EXPECT_EQ(FindAnyStartCode(bytes, {0x00, 0xB3, 0xB8}),
                  FindPlainly(bytes, {{0, 0, 1, 0x00}, {0, 0, 1, 0xB3}, {0, 0, 1, 0xB8}}));
        if (HasFailure()) return;
    }
}

}  // namespace
}  // namespace kest

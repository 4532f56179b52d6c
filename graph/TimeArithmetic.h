// 64-bit arithmetic for times, positions and lengths that may come from anywhere: exact where the result can
// be counted, else the nearest number that can.
#pragma once

#include <cstdint>
#include <limits>

namespace kest {

constexpr std::int64_t SaturatedAdd(std::int64_t a, std::int64_t b) {
    using Limits = std::numeric_limits<std::int64_t>;
    if (b > 0 && a > Limits::max() - b) return Limits::max();
    if (b < 0 && a < Limits::min() - b) return Limits::min();
    return a + b;
}

constexpr std::int64_t SaturatedSubtract(std::int64_t a, std::int64_t b) {
    using Limits = std::numeric_limits<std::int64_t>;
    if (b < 0 && a > Limits::max() + b) return Limits::max();
    if (b > 0 && a < Limits::min() + b) return Limits::min();
    return a - b;
}

/// a × b / c, rounded towards zero; the product need not fit. c must not be 0.
constexpr std::int64_t MulDiv(std::int64_t a, std::int64_t b, std::int64_t c) {
    using Limits = std::numeric_limits<std::int64_t>;
    __extension__ using Wide = __int128;
    const Wide result = static_cast<Wide>(a) * b / c;
    if (result > Limits::max()) return Limits::max();
    if (result < Limits::min()) return Limits::min();
    return static_cast<std::int64_t>(result);
}

}  // namespace kest

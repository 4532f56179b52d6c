// Arithmetic of timestamps: 33-bit counts of a 90 kHz clock that begin anew at 0.
#pragma once

#include <cstdint>

namespace kest {

constexpr std::int64_t kTicksPerSecond = 90000;
/// Values of the counter.
constexpr std::int64_t kTimestampRange = std::int64_t{1} << 33;

/// From llFrom to llTo the shorter way round the counter, in ticks: -2^32 to 2^32 - 1.
inline std::int64_t SubtractTimestamps(std::int64_t llTo, std::int64_t llFrom) {
    constexpr std::int64_t kHalf = kTimestampRange / 2;
    return ((llTo - llFrom + kHalf) & (kTimestampRange - 1)) - kHalf;
}

/// Where the counter is llTicks after a timestamp.
inline std::int64_t AddTimestamp(std::int64_t llTimestamp, std::int64_t llTicks) {
    return (llTimestamp + llTicks) & (kTimestampRange - 1);
}

}  // namespace kest

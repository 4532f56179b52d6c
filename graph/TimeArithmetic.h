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
    std::int64_t nProduct = 0;
    if (c > 0 && !__builtin_mul_overflow(a, b, &nProduct)) return nProduct / c;

    using Limits = std::numeric_limits<std::int64_t>;
    constexpr auto Magnitude = [](std::int64_t n) {
        return n < 0 ? -static_cast<std::uint64_t>(n) : static_cast<std::uint64_t>(n);
    };
    const bool bNegative = (a < 0) ^ (b < 0) ^ (c < 0);
    const std::uint64_t nMost = Magnitude(bNegative ? Limits::min() : Limits::max());
    const std::uint64_t nFactor = Magnitude(b), nDivisor = Magnitude(c);
    const std::uint64_t nWhole = Magnitude(a) / nDivisor, nRest = Magnitude(a) % nDivisor;

    // nRest × nFactor / nDivisor, a bit of the factor at a time; it is less than the factor.
    std::uint64_t nFraction = 0, nRemainder = 0;
    const auto Add = [&](std::uint64_t n) {
        const bool bCarry = nRemainder >= nDivisor - n;
        nRemainder = bCarry ? nRemainder - (nDivisor - n) : nRemainder + n;
        nFraction += bCarry;
    };
    for (int nBit = 63; nBit >= 0; --nBit) {
        nFraction *= 2;
        Add(nRemainder);
        if ((nFactor >> nBit) & 1) Add(nRest);
    }
    std::uint64_t nResult = 0;
    if (__builtin_mul_overflow(nWhole, nFactor, &nResult) ||
        __builtin_add_overflow(nResult, nFraction, &nResult) || nResult > nMost) {
        return bNegative ? Limits::min() : Limits::max();
    }
    return static_cast<std::int64_t>(bNegative ? -nResult : nResult);
}

}  // namespace kest

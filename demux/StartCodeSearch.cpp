#include "demux/StartCodeSearch.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace kest {
namespace {

/// Index of the first byte with this value at nFrom or behind, at most nEnd.
std::size_t FindByte(Bytes bytes, std::size_t nFrom, std::size_t nEnd, std::uint8_t nValue) {
    const Bytes range = bytes.subspan(nFrom, nEnd - nFrom);
    const void* p = std::memchr(range.data(), nValue, range.size());
    return p ? static_cast<std::size_t>(static_cast<const std::uint8_t*>(p) - bytes.data()) : nEnd;
}

constexpr std::size_t kBlock = 64;    // bytes that are tested at a time
constexpr std::size_t kSubBlock = 8;  // and within a block that has the pair

/// Whether one of the bytes p[0] to p[kSize - 1] and the byte behind it are such a pair. In one go, without a
/// decision on the way, so that the compiler can use wide registers.
template <std::size_t kSize, class Differ>
bool HasPair(const std::uint8_t* p, Differ differ) {
    std::uint8_t nLeast = 0xFF;
    for (std::size_t k = 0; k < kSize; ++k) {
        const std::uint8_t nDifference = differ(p[k], p[k + 1]);
        nLeast = nDifference < nLeast ? nDifference : nLeast;
    }
    return nLeast == 0;
}

/// Whether a prefix 00 00 01 may end in the kBlock bytes from p[1] on. Cut into words of two bytes, one of them is 00 00
/// or 00 01, wherever the prefix begins.
bool MayHavePrefix(const std::uint8_t* p) {
    constexpr std::array<std::uint8_t, 2> kSame = {0xFF, 0xFE};  // bits that the two words share
    const auto nSame = std::bit_cast<std::uint16_t>(kSame);
    std::uint16_t nFound = 0;
    for (std::size_t k = 0; k < kBlock; k += 2) {
        std::uint16_t nWord;
        std::memcpy(&nWord, p + k, sizeof(nWord));
        nFound |= (nWord & nSame) == 0 ? 0xFFFF : 0;
    }
    return nFound != 0;
}

/// Index of the first of the nSize bytes that are searched for.
/// @param mayEnd   whether they may end in the kBlock bytes behind a pointer; costs less than differ.
/// @param differ   gives 0 for what their last two bytes may be, which are rare.
/// @param matches  whether they begin at a pointer, once their last two are right.
template <class MayEnd, class Differ, class Matches>
std::optional<std::size_t> Find(Bytes bytes, std::size_t nSize, MayEnd mayEnd, Differ differ,
                                Matches matches) {
    const std::size_t nLast = nSize - 1;
    // Where they end, from i on and before nEnd; nEnd: nowhere.
    const auto FindEnd = [&](std::size_t i, std::size_t nEnd) {
        while (i < nEnd && (differ(bytes[i - 1], bytes[i]) != 0 || !matches(&bytes[i - nLast]))) ++i;
        return i;
    };
    std::size_t i = nLast;
    for (; i + kBlock <= bytes.size(); i += kBlock) {
        const std::uint8_t* const pBefore = &bytes[i - 1];
        if (!mayEnd(pBefore) || !HasPair<kBlock>(pBefore, differ)) continue;
        for (std::size_t j = i; j < i + kBlock; j += kSubBlock) {
            if (!HasPair<kSubBlock>(&bytes[j - 1], differ)) continue;
            if (const std::size_t nEnd = FindEnd(j, j + kSubBlock); nEnd < j + kSubBlock) return nEnd - nLast;
        }
    }
    if (const std::size_t nEnd = FindEnd(i, bytes.size()); nEnd < bytes.size()) return nEnd - nLast;
    return std::nullopt;
}

/// The bytes of a code in stream order.
std::array<std::uint8_t, 4> GetCodeBytes(std::uint32_t nCode) {
    return {static_cast<std::uint8_t>(nCode >> 24), static_cast<std::uint8_t>(nCode >> 16),
            static_cast<std::uint8_t>(nCode >> 8), static_cast<std::uint8_t>(nCode)};
}

}  // namespace

std::optional<std::size_t> FindPattern(Bytes bytes, Bytes pattern) {
    const std::uint8_t nFirst = pattern[pattern.size() - 2], nSecond = pattern.back();
    return Find(
        bytes, pattern.size(), [](const std::uint8_t*) { return true; },
        [=](std::uint8_t a, std::uint8_t b) {
            return static_cast<std::uint8_t>((a ^ nFirst) | (b ^ nSecond));
        },
        [=](const std::uint8_t* p) { return std::equal(pattern.begin(), pattern.end(), p); });
}

std::optional<std::size_t> FindAnyStartCode(Bytes bytes, const ThreeCodes& codes) {
    return Find(
        bytes, 4, [](const std::uint8_t* pBefore) { return MayHavePrefix(pBefore - 1); },
        [=](std::uint8_t a, std::uint8_t b) {
            const auto Differ = [=](std::size_t i) { return static_cast<std::uint8_t>(b ^ codes[i]); };
            const std::uint8_t nLeast = std::min(std::min(Differ(0), Differ(1)), Differ(2));
            return static_cast<std::uint8_t>((a ^ 1) | nLeast);
        },
        [](const std::uint8_t* p) { return p[0] == 0 && p[1] == 0; });
}

std::optional<std::size_t> FindStartCodePrefix(Bytes bytes) {
    static constexpr std::array<std::uint8_t, 3> kPrefix = {0, 0, 1};
    if (bytes.size() >= 3 && std::equal(kPrefix.begin(), kPrefix.end(), bytes.begin())) return 0;
    return FindPattern(bytes, kPrefix);
}

std::optional<std::size_t> FindStartCode(Bytes bytes, std::uint32_t nCode) {
    return FindPattern(bytes, GetCodeBytes(nCode));
}

std::optional<std::size_t> FindLastStartCode(Bytes bytes, std::uint32_t nCode) {
    const auto abCode = GetCodeBytes(nCode);
    const auto found = std::search(bytes.rbegin(), bytes.rend(), abCode.rbegin(), abCode.rend());
    if (found == bytes.rend()) return std::nullopt;
    return static_cast<std::size_t>(bytes.rend() - found) - abCode.size();
}

std::optional<std::size_t> FindPatPacket(Bytes bytes) {
    if (bytes.size() < 3) return std::nullopt;
    const std::size_t nEnd = bytes.size() - 2;
    for (std::size_t i = 0; i < nEnd; ++i) {
        i = FindByte(bytes, i, nEnd, 0x47);
        if (i < nEnd && (bytes[i + 1] & 0x5F) == 0x40 && bytes[i + 2] == 0) return i;
    }
    return std::nullopt;
}

}  // namespace kest

#include "demux/StartCodeSearch.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace kest {
namespace {

/// Index of the first byte with this value at nFrom or behind, at most nEnd.
std::size_t FindByte(Bytes bytes, std::size_t nFrom, std::size_t nEnd, std::uint8_t nValue) {
    const Bytes range = bytes.subspan(nFrom, nEnd - nFrom);
    const void* p = std::memchr(range.data(), nValue, range.size());
    return p ? static_cast<std::size_t>(static_cast<const std::uint8_t*>(p) - bytes.data()) : nEnd;
}

}  // namespace

std::optional<std::size_t> FindPattern(Bytes bytes, Bytes pattern) {
    constexpr std::size_t kRarest = 2;  // index in the pattern
    if (bytes.size() < pattern.size()) return std::nullopt;
    const std::size_t nEnd = bytes.size() - pattern.size() + kRarest + 1;
    for (std::size_t i = kRarest; i < nEnd; ++i) {
        i = FindByte(bytes, i, nEnd, pattern[kRarest]);
        if (i == nEnd || bytes[i - 1] != pattern[1]) continue;  // mostly, and without a call
        if (std::equal(pattern.begin(), pattern.end(), bytes.data() + (i - kRarest))) return i - kRarest;
    }
    return std::nullopt;
}

std::optional<std::size_t> FindStartCodePrefix(Bytes bytes) {
    static constexpr std::array<std::uint8_t, 3> kPrefix = {0, 0, 1};
    if (bytes.size() >= 3 && std::equal(kPrefix.begin(), kPrefix.end(), bytes.begin())) return 0;
    return FindPattern(bytes, kPrefix);
}

std::optional<std::size_t> FindStartCode(Bytes bytes, std::uint32_t nCode) {
    const std::array<std::uint8_t, 4> abCode = {
        static_cast<std::uint8_t>(nCode >> 24), static_cast<std::uint8_t>(nCode >> 16),
        static_cast<std::uint8_t>(nCode >> 8), static_cast<std::uint8_t>(nCode)};
    return FindPattern(bytes, abCode);
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

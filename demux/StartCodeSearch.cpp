#include "demux/StartCodeSearch.h"

#include <cstring>

namespace kest {
namespace {

/// Index of the first byte of this value in bytes[nFrom..nEnd), else nEnd.
std::size_t FindByte(std::span<const std::uint8_t> bytes, std::size_t nFrom, std::size_t nEnd,
                     std::uint8_t nValue) {
    const auto range = bytes.subspan(nFrom, nEnd - nFrom);
    const void* p = std::memchr(range.data(), nValue, range.size());
    return p ? static_cast<std::size_t>(static_cast<const std::uint8_t*>(p) - bytes.data()) : nEnd;
}

}  // namespace

// Both look for the rarer byte of their pattern first, at the speed of memchr.

std::optional<std::size_t> FindStartCodePrefix(std::span<const std::uint8_t> bytes) {
    for (std::size_t i = 2; i < bytes.size(); ++i) {
        i = FindByte(bytes, i, bytes.size(), 0x01);
        if (i < bytes.size() && bytes[i - 1] == 0 && bytes[i - 2] == 0) return i;
    }
    return std::nullopt;
}

std::optional<std::size_t> FindPatPacket(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < 3) return std::nullopt;
    const std::size_t nEnd = bytes.size() - 2;
    for (std::size_t i = 0; i < nEnd; ++i) {
        i = FindByte(bytes, i, nEnd, 0x47);
        if (i < nEnd && (bytes[i + 1] & 0x5F) == 0x40 && bytes[i + 2] == 0) return i + 2;
    }
    return std::nullopt;
}

}  // namespace kest

// Searches in stream bytes, many bytes at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "demux/BigEndian.h"

namespace kest {

constexpr std::size_t kStartCodePrefixSize = 3;
constexpr std::size_t kStartCodeSize = 4;

/// The start code that ends with this byte.
constexpr std::uint32_t MakeStartCode(std::uint8_t nLast) { return 0x100U | nLast; }

/// Index of the first byte of the first place where `pattern` stands: two bytes or more, of which the last two
/// are rare, as in start codes.
std::optional<std::size_t> FindPattern(Bytes bytes, Bytes pattern);

/// Index of the first byte of the first start code prefix, 00 00 01 (ISO/IEC 13818-1 2.4.4.5).
std::optional<std::size_t> FindStartCodePrefix(Bytes bytes);

/// The last bytes of three start codes.
using ThreeCodes = std::array<std::uint8_t, 3>;

/// Index of the first byte of the first of these start codes. Where others are frequent, such as those of slices, it is
/// several times as fast as a search of all.
std::optional<std::size_t> FindAnyStartCode(Bytes bytes, const ThreeCodes& codes);

/// Calls `take` with the index and the last byte of each start code that `find` finds and that is there whole,
/// until it returns false.
template <class Find, class Take>
void ForEachFound(Bytes bytes, Find find, Take take) {
    std::size_t nIndex = 0;
    while (const auto nFound = find(bytes.subspan(nIndex))) {
        nIndex += *nFound;
        if (nIndex + 3 >= bytes.size() || !take(nIndex, bytes[nIndex + 3])) return;
        nIndex += 3;  // the code's last byte may begin the next prefix
    }
}

/// The same for every start code.
template <class Take>
void ForEachStartCode(Bytes bytes, Take take) {
    ForEachFound(bytes, FindStartCodePrefix, take);
}

/// The same for three of them.
template <class Take>
void ForEachStartCodeOf(Bytes bytes, const ThreeCodes& codes, Take take) {
    ForEachFound(
        bytes, [&](Bytes rest) { return FindAnyStartCode(rest, codes); }, take);
}

/// Index of the first byte of the first place where this 32-bit code stands, most significant byte first.
std::optional<std::size_t> FindStartCode(Bytes bytes, std::uint32_t nCode);

/// The same for the last place.
std::optional<std::size_t> FindLastStartCode(Bytes bytes, std::uint32_t nCode);

/// Index of the first byte of the first transport packet that starts a PAT: the sync byte 0x47, then
/// payload_unit_start_indicator set and PID 0 (the bits 7 and 5 of that byte may be anything).
std::optional<std::size_t> FindPatPacket(Bytes bytes);

}  // namespace kest

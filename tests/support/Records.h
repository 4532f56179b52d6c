// Bytes by which a reader knows whether what it got is whole and in order.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace kest {

/// Byte i of the record with this sequence number, which itself makes the first eight.
inline std::uint8_t RecordByte(std::uint64_t nSequence, std::size_t i) {
    if (i < 8) return static_cast<std::uint8_t>(nSequence >> (8 * i));
    return static_cast<std::uint8_t>((nSequence * 0x9E3779B97F4A7C15u >> (8 * (i % 8))) + i);
}

inline void FillRecord(std::span<std::uint8_t> record, std::uint64_t nSequence) {
    for (std::size_t i = 0; i < record.size(); ++i) record[i] = RecordByte(nSequence, i);
}

/// The record's sequence number, or 0 when its bytes are not of one record. At least eight bytes.
inline std::uint64_t CheckRecord(std::span<const std::uint8_t> record) {
    std::uint64_t nSequence = 0;
    for (std::size_t i = 8; i-- > 0;) nSequence = nSequence << 8 | record[i];
    for (std::size_t i = 8; i < record.size(); ++i) {
        if (record[i] != RecordByte(nSequence, i)) return 0;
    }
    return nSequence;
}

/// The bytes first, first + 1, ...
inline std::vector<std::uint8_t> Counting(std::size_t n, std::uint8_t nFirst = 0) {
    std::vector<std::uint8_t> bytes(n);
    for (std::size_t i = 0; i < n; ++i) bytes[i] = static_cast<std::uint8_t>(nFirst + i);
    return bytes;
}

}  // namespace kest

// Searches for what a program stream can be resynchronised on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace kest {

/// Index of the last byte of the first start code prefix, 00 00 01 (ISO/IEC 13818-1 2.4.4.5).
std::optional<std::size_t> FindStartCodePrefix(std::span<const std::uint8_t> bytes);

/// Index of the third byte of the first transport packet that starts a PAT: the sync byte 0x47, then
/// payload_unit_start_indicator set and PID 0 (the bits 7 and 5 of that byte may be anything).
std::optional<std::size_t> FindPatPacket(std::span<const std::uint8_t> bytes);

}  // namespace kest

// The header of a transport packet, ISO/IEC 13818-1 2.4.3.2. `packet` is a whole one, kTsPacketSize bytes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "demux/BigEndian.h"

namespace kest {

constexpr std::uint32_t kTsPacketSize = 188;
constexpr std::uint8_t kTsSyncByte = 0x47;
constexpr std::uint16_t kNullPid = 0x1FFF;

/// The PID, 13 bits.
inline std::uint16_t GetTsPid(Bytes packet) { return Read16(packet, 1) & 0x1FFF; }

/// payload_unit_start_indicator.
inline bool HasTsUnitStart(Bytes packet) { return packet[1] & 0x40; }

/// adaptation_field_control: 1 = payload alone, 2 = adaptation field alone, 3 = both.
inline unsigned GetTsAdaptation(Bytes packet) { return packet[3] >> 4 & 0x03; }

/// Bytes of the header with the adaptation field; up to 260, for the field's length is not examined.
inline std::size_t GetTsHeaderSize(Bytes packet) {
    return GetTsAdaptation(packet) >= 2 ? std::size_t{5} + packet[4] : 4;
}

/// What follows the header; the last byte at least.
inline Bytes GetTsPayload(Bytes packet) {
    return packet.subspan(std::min<std::size_t>(GetTsHeaderSize(packet), kTsPacketSize - 1));
}

/// What follows the header of a packet that has a payload by its adaptation_field_control.
inline Bytes GetTsTruePayload(Bytes packet) {
    return GetTsAdaptation(packet) & 1 ? BytesFrom(packet, GetTsHeaderSize(packet)) : Bytes{};
}

}  // namespace kest

#pragma once

#include <cstdint>
#include <optional>

#include "demux/BigEndian.h"
#include "demux/FrameInfo.h"

namespace kest {

/// Bytes of a PES header up to PES_header_data_length: start code, PES_packet_length, flags, header length.
constexpr std::uint32_t kPesFixedHeader = 9;

/// The timestamps of one PES packet: 33-bit counts of the 90 kHz clock.
struct PesTimestamps {
    std::int64_t llPts;
    std::int64_t llDts;  // the PTS when the packet carries no DTS
};

/// Those of a frame without times.
constexpr PesTimestamps kNoTimestamps = {.llPts = kNoFrameTime, .llDts = kNoFrameTime};

/// Reads the timestamps of a PES header (ISO/IEC 13818-1 2.4.3.6).
/// @param nPtsDtsFlags  PTS_DTS_flags: 2 = PTS, 3 = PTS and DTS, else none.
/// @param header        the PES_header_data_length bytes behind that length field.
/// @return none when the packet carries no timestamps or the header is too short for those it announces.
///         Marker bits are not examined.
std::optional<PesTimestamps> ParsePtsDts(unsigned nPtsDtsFlags, Bytes header);

}  // namespace kest

#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace kest {

/// The time stamps of one PES packet: 33-bit counts of the 90 kHz clock.
struct PesStamps {
    std::int64_t llPts;
    std::int64_t llDts;  // the PTS when the packet carries no DTS
};

/// Reads the stamps of a PES header (ISO/IEC 13818-1 2.4.3.6).
/// @param nPtsDtsFlags  PTS_DTS_flags: 2 = PTS, 3 = PTS and DTS, else none.
/// @param header        the PES_header_data_length bytes behind that length field.
/// @return none when the packet carries no stamps or the header is too short for those it announces. Marker
///         bits are not examined.
std::optional<PesStamps> ParsePtsDts(unsigned nPtsDtsFlags, std::span<const std::uint8_t> header);

}  // namespace kest

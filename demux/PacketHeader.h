#pragma once

#include <optional>

#include "demux/PesHeader.h"

namespace kest {

/// A PES packet, or a packet of an MPEG-1 system stream, without its header.
struct PacketContent {
    std::optional<PesTimestamps> timestamps;
    Bytes payload;
};

/// Reads the header of a packet that is in memory (ISO/IEC 13818-1 2.4.3.6, ISO/IEC 11172-1 2.4.3.3).
/// @param packet  what follows PES_packet_length; it may be cut short.
/// @return nothing when the header is not there whole, or is none.
std::optional<PacketContent> ParsePacket(Bytes packet);

}  // namespace kest

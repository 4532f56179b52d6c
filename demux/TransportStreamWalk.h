#pragma once

#include <cstdint>
#include <functional>

#include "demux/BigEndian.h"

namespace kest {

/// Calls `take` with each packet of a transport stream in memory, wherever it begins. A packet counts when the sync
/// byte of another one, or the end of the bytes, follows it; otherwise the next three in a row are searched.
void WalkTransportStream(Bytes bytes, const std::function<void(Bytes packet)>& take);

/// Calls `take` with each entry of the program map sections (ISO/IEC 13818-1 2.4.4.8) of all programs that the program
/// association section lists; a section may lie in several packets. The CRC is not examined.
void ForEachTsMapEntry(Bytes bytes,
                       const std::function<void(std::uint16_t nPid, std::uint8_t nStreamType)>& take);

/// Whether the bytes begin a transport stream: five packets in a row, of which the first begins within one packet's
/// length, or as many as there are bytes for, at least two.
bool IsTransportStream(Bytes bytes);

}  // namespace kest

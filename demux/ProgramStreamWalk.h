#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "demux/BigEndian.h"

namespace kest {

/// A structure of a program or system stream: a pack header, a system header, a program stream map or a packet.
struct SystemStructure {
    std::size_t nIndex;  // of its start code
    std::uint8_t nId;    // last byte of its start code
    Bytes bytes;         // what follows that
};

/// Which structures may be cut short by the end of the bytes.
enum class ECutOff {
    InRow,  // the last one of a row of structures without a gap
    Any,    // also one that begins behind other bytes
};

/// Calls `take` with each structure of a program or system stream in memory, wherever that begins.
///
/// A structure counts when its length leads to another start code, to zeros in front of one, or to the end of the
/// bytes. Others, and what lies between structures, are passed over to the next start code.
/// @param take  returns whether to go on.
void WalkProgramStream(Bytes bytes, ECutOff cutOff,
                       const std::function<bool(const SystemStructure& structure)>& take);

}  // namespace kest

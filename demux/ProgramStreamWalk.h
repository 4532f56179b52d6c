#pragma once

#include <functional>

#include "demux/BigEndian.h"

namespace kest {

/// Calls `take` with the last byte of the start code and the bytes behind that, for each structure of a program or
/// system stream in memory, wherever it begins: pack headers, system headers, program stream maps and packets.
///
/// A structure counts when its length leads to another start code, to zeros in front of one, or to the end of the
/// bytes. Only in a row of structures without a gap may the last one be cut short. Others, and what lies between
/// structures, are passed over to the next start code.
/// @param take  returns whether to go on.
void WalkProgramStream(Bytes bytes, const std::function<bool(std::uint8_t nId, Bytes structure)>& take);

}  // namespace kest

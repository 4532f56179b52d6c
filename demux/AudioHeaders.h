#pragma once

#include <optional>

#include "demux/BigEndian.h"
#include "demux/SourceDescription.h"

namespace kest {

/// Finds the first header of an MPEG audio frame (ISO/IEC 11172-3, 13818-3) that another one follows where it says;
/// where the bytes do not reach so far, the one that they begin with.
/// @return nothing when there is none.
std::optional<AudioFormat> FindMpegAudioHeader(Bytes bytes);

/// The same for AC-3 (ETSI TS 102 366).
std::optional<AudioFormat> FindAc3Header(Bytes bytes);

}  // namespace kest

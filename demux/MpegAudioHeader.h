#pragma once

#include <cstdint>

#include "demux/BigEndian.h"

namespace kest {

/// What the header of an MPEG-1 audio frame says (ISO/IEC 11172-3 2.4.2.3).
struct MpegAudioHeader {
    std::uint8_t nLayer = 0;          // 1 to 3; 0: the reserved layer
    std::uint32_t nBitRate = 0;       // bit/s; 0: free format, or a layer or index without a meaning
    std::uint32_t nSamplingRate = 0;  // Hz; 0: the reserved frequency

    /// Bytes of the frame without its padding slot; 0 when the rates do not say it.
    std::uint32_t GetFrameLength() const;
};

/// Reads the header of an MPEG-1 audio frame: at least 3 bytes that begin with its syncword, which is not
/// examined.
MpegAudioHeader ParseMpegAudioHeader(Bytes bytes);

}  // namespace kest

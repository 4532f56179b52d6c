#pragma once

#include <cstdint>
#include <optional>

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

/// An audio frame by its header.
struct MpegAudioFrame {
    std::uint32_t nSize;  // bytes, with the padding slot
    std::uint32_t nKind;  // bits of the header that the frames of a stream have in common
};

/// Reads any header of MPEG-1 audio or of its extension to lower sampling frequencies (ISO/IEC 13818-3): at least 3
/// bytes. @return none: there is none, or its frame has no known length.
std::optional<MpegAudioFrame> ParseAnyMpegAudioHeader(Bytes bytes);

}  // namespace kest

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
    MpegAudioHeader header;         // rates of its version
    std::uint8_t nVersion = 0;      // 1: MPEG-1; 2: MPEG-2, low sampling rates; 3: "2.5", lower ones
    std::uint32_t nSamples = 0;     // of a channel
    std::uint32_t nSize = 0;        // bytes, with the padding slot; 0: free format
    std::uint32_t nCommonBits = 0;  // those of the header that the frames of a stream have in common
};

/// Reads any header of MPEG-1 audio or of its extensions to lower sampling frequencies (ISO/IEC 13818-3, and "2.5"): at
/// least 3 bytes. @return none: there is none.
std::optional<MpegAudioFrame> ParseAnyMpegAudioHeader(Bytes bytes);

}  // namespace kest

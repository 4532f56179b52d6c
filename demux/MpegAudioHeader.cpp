#include "demux/MpegAudioHeader.h"

#include <array>

namespace kest {
namespace {

/// Bit rates of the three layers in kbit/s, by bitrate_index.
constexpr std::array<std::array<std::uint16_t, 16>, 3> kBitRates = {{
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0},
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0},
}};

/// Sampling rates in Hz, by sampling_frequency.
constexpr std::array<std::uint32_t, 4> kSamplingRates = {44100, 48000, 32000, 0};

}  // namespace

MpegAudioHeader ParseMpegAudioHeader(Bytes bytes) {
    MpegAudioHeader header;
    header.nLayer = static_cast<std::uint8_t>((4 - (bytes[1] >> 1 & 0x03)) % 4);
    if (header.nLayer > 0) header.nBitRate = kBitRates[header.nLayer - 1U][bytes[2] >> 4] * 1000U;
    header.nSamplingRate = kSamplingRates[bytes[2] >> 2 & 0x03];
    return header;
}

std::uint32_t MpegAudioHeader::GetFrameLength() const {
    const std::uint32_t nSamples = nLayer == 1 ? 384 : 1152;
    return nSamplingRate > 0 ? nSamples / 8 * nBitRate / nSamplingRate : 0;
}

}  // namespace kest

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

/// Those of the lower sampling frequencies: layer I, and the others.
constexpr std::array<std::array<std::uint16_t, 16>, 2> kLowBitRates = {{
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
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

std::optional<MpegAudioFrame> ParseAnyMpegAudioHeader(Bytes bytes) {
    if (bytes[0] != 0xFF || (bytes[1] & 0xF0) != 0xF0) return std::nullopt;
    MpegAudioHeader header = ParseMpegAudioHeader(bytes);
    const bool bLow = (bytes[1] & 0x08) == 0;  // ID
    if (bLow) {
        header.nBitRate = kLowBitRates[header.nLayer == 1 ? 0 : 1][bytes[2] >> 4] * 1000U;
        header.nSamplingRate /= 2;
    }
    if (header.nLayer == 0 || header.nBitRate == 0 || header.nSamplingRate == 0) return std::nullopt;
    const std::uint32_t nSlotSize = header.nLayer == 1 ? 4 : 1;
    const std::uint32_t nSamples = header.nLayer == 1 ? 384 : bLow && header.nLayer == 3 ? 576 : 1152;
    const std::uint32_t nPadding = bytes[2] >> 1 & 1;
    const std::uint32_t nSlots = nSamples / 8 / nSlotSize * header.nBitRate / header.nSamplingRate + nPadding;
    return MpegAudioFrame{.nSize = nSlots * nSlotSize, .nKind = (bytes[1] & 0xFEU) << 8 | (bytes[2] & 0x0CU)};
}

std::uint32_t MpegAudioHeader::GetFrameLength() const {
    const std::uint32_t nSamples = nLayer == 1 ? 384 : 1152;
    return nSamplingRate > 0 ? nSamples / 8 * nBitRate / nSamplingRate : 0;
}

}  // namespace kest

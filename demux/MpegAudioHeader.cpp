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

/// Those of the lower sampling frequencies: layer I, and the others (ISO/IEC 13818-3 2.4.2.3).
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
    constexpr unsigned kVersion25 = 0, kReservedVersion = 1, kVersion1 = 3;
    constexpr unsigned kFreeFormat = 0, kForbiddenRate = 15;
    const unsigned nVersion = bytes[1] >> 3 & 3, nRateIndex = bytes[2] >> 4;
    if (bytes[0] != 0xFF || bytes[1] >> 5 != 7 || nVersion == kReservedVersion) return std::nullopt;
    MpegAudioFrame frame{.header = ParseMpegAudioHeader(bytes)};
    auto& [nLayer, nBitRate, nSamplingRate] = frame.header;
    if (nLayer == 0 || nSamplingRate == 0 || nRateIndex == kForbiddenRate) return std::nullopt;

    const bool bLow = nVersion != kVersion1;
    frame.nVersion = static_cast<std::uint8_t>(!bLow ? 1 : nVersion == kVersion25 ? 3 : 2);
    if (bLow) nBitRate = kLowBitRates[nLayer > 1][nRateIndex] * 1000U;
    nSamplingRate >>= frame.nVersion - 1;
    frame.nSamples = nLayer == 1 ? 384 : nLayer == 3 && bLow ? 576 : 1152;
    frame.nCommonBits = (bytes[1] & 0xFEU) << 8 | (bytes[2] & 0x0CU);
    if (nRateIndex == kFreeFormat) return frame;
    const std::uint32_t nSlotSize = nLayer == 1 ? 4 : 1, nPadding = bytes[2] >> 1 & 1;
    frame.nSize = (frame.nSamples / 8 / nSlotSize * nBitRate / nSamplingRate + nPadding) * nSlotSize;
    return frame;
}

std::uint32_t MpegAudioHeader::GetFrameLength() const {
    const std::uint32_t nSamples = nLayer == 1 ? 384 : 1152;
    return nSamplingRate > 0 ? nSamples / 8 * nBitRate / nSamplingRate : 0;
}

}  // namespace kest

#include "demux/AudioHeaders.h"

#include <array>

#include "demux/MpegAudioHeader.h"

namespace kest {
namespace {

/// A header with the length of its frame.
struct Header {
    AudioFormat format;
    std::size_t nFrameSize = 0;  // bytes; 0: free format
};

// ---------------- MPEG audio

constexpr std::size_t kMpegHeaderSize = 4;

/// kbit/s by bitrate_index of MPEG-2's low sampling rates, layer I and the two others, ISO/IEC 13818-3 2.4.2.3.
constexpr std::array<std::array<std::uint16_t, 16>, 2> kLowBitRates = {{
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
}};

/// @param bytes  kMpegHeaderSize at least. @return nothing for what is no header.
std::optional<Header> ParseMpegHeader(Bytes bytes) {
    constexpr unsigned kVersion25 = 0, kReservedVersion = 1, kVersion1 = 3, kFreeFormat = 0,
                       kSingleChannel = 3;
    const unsigned nVersionBits = bytes[1] >> 3 & 3, nRateIndex = bytes[2] >> 4;
    if (bytes[0] != 0xFF || (bytes[1] & 0xE0) != 0xE0 || nVersionBits == kReservedVersion)
        return std::nullopt;
    const MpegAudioHeader base = ParseMpegAudioHeader(bytes);
    if (base.nLayer == 0 || base.nSamplingRate == 0 || nRateIndex == 15) return std::nullopt;

    Header header;
    AudioFormat& format = header.format;
    const bool bLow = nVersionBits != kVersion1;
    format.nLayer = base.nLayer;
    format.nVersion = static_cast<std::uint8_t>(!bLow ? 1 : nVersionBits == kVersion25 ? 3 : 2);
    format.nSamplingRate = base.nSamplingRate >> (format.nVersion - 1);
    format.nBitRate = bLow ? kLowBitRates[base.nLayer > 1][nRateIndex] * 1000U : base.nBitRate;
    format.nFrameSamples = base.nLayer == 1 ? 384 : base.nLayer == 3 && bLow ? 576 : 1152;
    format.nMode = bytes[3] >> 6;
    format.nModeExtension = bytes[3] >> 4 & 3;
    format.nChannels = format.nMode == kSingleChannel ? 1 : 2;
    format.nEmphasis = bytes[3] & 3;
    format.bProtected = !(bytes[1] & 1);
    format.bPrivate = bytes[2] & 1;
    format.bCopyright = bytes[3] & 8;
    format.bOriginal = bytes[3] & 4;
    if (nRateIndex != kFreeFormat) {
        const std::size_t nSlotSize = base.nLayer == 1 ? 4 : 1;
        const std::size_t nSlots =
            format.nFrameSamples / 8 / nSlotSize * format.nBitRate / format.nSamplingRate;
        header.nFrameSize = (nSlots + (bytes[2] >> 1 & 1)) * nSlotSize;
    }
    return header;
}

/// Two headers can belong to one stream.
bool MatchMpeg(const AudioFormat& a, const AudioFormat& b) {
    return a.nVersion == b.nVersion && a.nLayer == b.nLayer && a.nSamplingRate == b.nSamplingRate;
}

// ---------------- AC-3

constexpr std::size_t kAc3HeaderSize = 8;

/// @param bytes  kAc3HeaderSize at least. @return nothing for what is no header.
std::optional<Header> ParseAc3Header(Bytes bytes) {
    static constexpr std::array<std::uint32_t, 3> kSamplingRates = {48000, 44100, 32000};  // by fscod
    static constexpr std::array<std::uint8_t, 8> kChannels = {2, 1, 2, 3, 3, 4, 4, 5};     // by acmod
    static constexpr std::array<std::uint16_t, 19> kBitRates = {
        32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 448, 512, 576, 640};
    constexpr unsigned kLastAc3Id = 10;  // bsid of what is AC-3
    const unsigned nRate = bytes[4] >> 6, nSizeCode = bytes[4] & 0x3F, nMode = bytes[6] >> 5;
    if (bytes[0] != 0x0B || bytes[1] != 0x77 || nRate >= kSamplingRates.size() ||
        nSizeCode / 2 >= kBitRates.size() || bytes[5] >> 3 > kLastAc3Id) {
        return std::nullopt;
    }
    Header header;
    AudioFormat& format = header.format;
    format.nSamplingRate = kSamplingRates[nRate];
    format.nBitRate = kBitRates[nSizeCode / 2] * 1000U;
    format.nChannels = kChannels[nMode];
    format.nFrameSamples = 1536;
    const bool bCentreMix = (nMode & 1) && nMode != 1, bSurroundMix = nMode & 4, bSurroundMode = nMode == 2;
    const int nMixBits = 2 * (bCentreMix + bSurroundMix + bSurroundMode);
    format.bLowFrequency = Read16(bytes, 6) >> (12 - nMixBits) & 1;
    const std::size_t nWords =
        std::size_t{format.nFrameSamples} / 16 * format.nBitRate / format.nSamplingRate;
    header.nFrameSize = 2 * (nWords + (nRate == 1 && nSizeCode & 1));
    return header;
}

bool MatchAc3(const AudioFormat& a, const AudioFormat& b) { return a.nSamplingRate == b.nSamplingRate; }

/// @param nSize  bytes that `parse` needs.
template <class Parse, class Match>
std::optional<AudioFormat> FindHeader(Bytes bytes, std::size_t nSize, Parse parse, Match match) {
    for (std::size_t i = 0; i + nSize <= bytes.size(); ++i) {
        const auto header = parse(bytes.subspan(i));
        if (!header) continue;
        const Bytes next = BytesFrom(bytes, i + header->nFrameSize);
        if (header->nFrameSize == 0 || next.size() < nSize) {
            if (i == 0) return header->format;
            continue;
        }
        const auto follower = parse(next);
        if (follower && match(header->format, follower->format)) return header->format;
    }
    return std::nullopt;
}

}  // namespace

std::optional<AudioFormat> FindMpegAudioHeader(Bytes bytes) {
    return FindHeader(bytes, kMpegHeaderSize, ParseMpegHeader, MatchMpeg);
}

std::optional<AudioFormat> FindAc3Header(Bytes bytes) {
    return FindHeader(bytes, kAc3HeaderSize, ParseAc3Header, MatchAc3);
}

}  // namespace kest

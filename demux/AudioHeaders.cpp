#include "demux/AudioHeaders.h"

#include <array>

#include "demux/MpegAudioHeader.h"

namespace kest {
namespace {

/// A header with the length of its frame.
struct Header {
    AudioFormat format;
    std::size_t nFrameSize = 0;     // bytes; 0: free format
    std::uint32_t nCommonBits = 0;  // what the headers of a stream have in common
};

// ---------------- MPEG audio

constexpr std::size_t kMpegHeaderSize = 4;

/// @param bytes  kMpegHeaderSize at least. @return nothing for what is no header.
std::optional<Header> ParseMpegHeader(Bytes bytes) {
    constexpr unsigned kSingleChannel = 3;
    const auto frame = ParseAnyMpegAudioHeader(bytes);
    if (!frame) return std::nullopt;
    Header header{.format = {}, .nFrameSize = frame->nSize, .nCommonBits = frame->nCommonBits};
    AudioFormat& format = header.format;
    format.nLayer = frame->header.nLayer;
    format.nVersion = frame->nVersion;
    format.nSamplingRate = frame->header.nSamplingRate;
    format.nBitRate = frame->header.nBitRate;
    format.nFrameSamples = frame->nSamples;
    format.nMode = bytes[3] >> 6;
    format.nModeExtension = bytes[3] >> 4 & 3;
    format.nChannels = format.nMode == kSingleChannel ? 1 : 2;
    format.nEmphasis = bytes[3] & 3;
    format.bProtected = !(bytes[1] & 1);
    format.bPrivate = bytes[2] & 1;
    format.bCopyright = bytes[3] & 8;
    format.bOriginal = bytes[3] & 4;
    return header;
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
    header.nCommonBits = nRate;
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

// ---------------- both

/// @param nSize  bytes that `parse` needs.
template <class Parse>
std::optional<AudioFormat> FindHeader(Bytes bytes, std::size_t nSize, Parse parse) {
    for (std::size_t i = 0; i + nSize <= bytes.size(); ++i) {
        const auto header = parse(bytes.subspan(i));
        if (!header) continue;
        const Bytes next = BytesFrom(bytes, i + header->nFrameSize);
        if (header->nFrameSize == 0 || next.size() < nSize) {
            if (i == 0) return header->format;
            continue;
        }
        const auto follower = parse(next);
        if (follower && follower->nCommonBits == header->nCommonBits) return header->format;
    }
    return std::nullopt;
}

}  // namespace

std::optional<AudioFormat> FindMpegAudioHeader(Bytes bytes) {
    return FindHeader(bytes, kMpegHeaderSize, ParseMpegHeader);
}

std::optional<AudioFormat> FindAc3Header(Bytes bytes) {
    return FindHeader(bytes, kAc3HeaderSize, ParseAc3Header);
}

}  // namespace kest

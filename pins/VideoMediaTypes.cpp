#include "pins/VideoMediaTypes.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <vector>

#include "demux/Mpeg1SequenceHeader.h"

namespace kest {
namespace {

constexpr REFERENCE_TIME kFrameTime = 333667;  // 100 ns of a frame at 30000/1001 a second
constexpr DWORD kBitmapHeaderSize = 40;

/// Sets a format block whose sequence header stands where the record ends in an array of one element, at nOffset.
template <class Record>
void SetFormat(CMediaType& type, const Record& record, std::size_t nOffset, std::span<const BYTE> header) {
    std::vector<BYTE> block(std::max(sizeof record, nOffset + header.size()));
    std::memcpy(block.data(), &record, sizeof record);
    std::copy(header.begin(), header.end(), block.begin() + static_cast<std::ptrdiff_t>(nOffset));
    type.SetFormat(std::span<const BYTE>(block));
}

// ---------------- what the stream's own headers say

REFERENCE_TIME GetFrameTime(const VideoFormat& video) {
    constexpr REFERENCE_TIME kSecond = 10000000;
    const REFERENCE_TIME rtRate = video.frameRate.nNumerator;
    return rtRate == 0 ? kFrameTime : (kSecond * video.frameRate.nDenominator + rtRate / 2) / rtRate;
}

/// Fills in what VIDEOINFOHEADER and VIDEOINFOHEADER2 share.
template <class Header>
void SetHeader(Header& header, const VideoFormat& video) {
    header.rcSource = {0, 0, static_cast<LONG>(video.nWidth), static_cast<LONG>(video.nHeight)};
    header.dwBitRate = video.nBitRate;
    header.AvgTimePerFrame = GetFrameTime(video);
    header.bmiHeader.biSize = kBitmapHeaderSize;
    header.bmiHeader.biWidth = static_cast<LONG>(video.nWidth);
    header.bmiHeader.biHeight = static_cast<LONG>(video.nHeight);
}

/// AM_MPEG2Profile and AM_MPEG2Level by profile_and_level_indication (ISO/IEC 13818-2 tables 8-2 and 8-3); 0: none.
DWORD GetProfile(std::uint8_t nProfileLevel) {
    constexpr DWORD kSimple = 1;
    const DWORD nCode = nProfileLevel >> 4;  // 1 High to 5 Simple
    return nCode >= 1 && nCode <= 5 ? kSimple + 5 - nCode : 0;
}
DWORD GetLevel(std::uint8_t nProfileLevel) {
    constexpr DWORD kLow = 1;
    const DWORD nCode = nProfileLevel & 0x0F;  // 4 High, 6 High 1440, 8 Main, 10 Low
    return nCode >= 4 && nCode <= 10 && nCode % 2 == 0 ? kLow + (10 - nCode) / 2 : 0;
}

CMediaType MakeMpeg4VideoType(const VIDEOINFOHEADER& format) {
    CMediaType type(MEDIATYPE_Video, MEDIASUBTYPE_KestMpeg4Video);
    type.SetFormatType(FORMAT_VideoInfo);
    type.SetTemporalCompression(true);
    type.SetSampleSize(1);
    type.SetFormat(format);
    return type;
}

CMediaType MakeTrueMpeg2Type(const VideoFormat& video) {
    MPEG2VIDEOINFO format{};
    SetHeader(format.hdr, video);
    if (!video.bProgressive)
        format.hdr.dwInterlaceFlags = AMINTERLACE_IsInterlaced | AMINTERLACE_DisplayModeBobOrWeave;
    format.hdr.dwPictAspectRatioX = video.displayAspect.nNumerator;
    format.hdr.dwPictAspectRatioY = video.displayAspect.nDenominator;
    format.cbSequenceHeader = static_cast<DWORD>(video.abHeader.size());
    format.dwProfile = GetProfile(video.nProfileLevel);
    format.dwLevel = GetLevel(video.nProfileLevel);
    CMediaType type(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
    type.SetFormatType(FORMAT_MPEG2Video);
    SetFormat(type, format, offsetof(MPEG2VIDEOINFO, dwSequenceHeader), video.abHeader);
    return type;
}

/// The samples are the payload of the packets, and the type says so.
CMediaType MakeTrueMpeg1Type(const VideoFormat& video) {
    constexpr std::uint32_t kPelsPerMeter = 2000;
    MPEG1VIDEOINFO format{};
    SetHeader(format.hdr, video);
    const Fraction aspect = video.sampleAspect.IsKnown() ? video.sampleAspect : Fraction{1, 1};
    format.hdr.bmiHeader.biXPelsPerMeter =
        static_cast<LONG>(kPelsPerMeter * aspect.nDenominator / aspect.nNumerator);
    format.hdr.bmiHeader.biYPelsPerMeter = kPelsPerMeter;
    format.cbSequenceHeader = static_cast<DWORD>(video.abHeader.size());
    CMediaType type(MEDIATYPE_Video, MEDIASUBTYPE_MPEG1Payload);
    type.SetFormatType(FORMAT_MPEGVideo);
    SetFormat(type, format, offsetof(MPEG1VIDEOINFO, bSequenceHeader), video.abHeader);
    return type;
}

}  // namespace

std::optional<CMediaType> MakeTrueVideoType(const StreamDescription& stream) {
    const VideoFormat& video = stream.video;
    if (!video.IsKnown()) return std::nullopt;
    switch (stream.codec) {
        case ECodec::Mpeg1Video: return MakeTrueMpeg1Type(video);
        case ECodec::Mpeg2Video: return MakeTrueMpeg2Type(video);
        case ECodec::Mpeg4Video: {
            VIDEOINFOHEADER format{};
            SetHeader(format, video);
            format.bmiHeader.biPlanes = 1;
            return MakeMpeg4VideoType(format);
        }
        default: return std::nullopt;
    }
}

CMediaType MakeMpeg4VideoType(int nWidth, int nHeight) {
    VIDEOINFOHEADER format{};
    format.bmiHeader.biSize = kBitmapHeaderSize;
    format.bmiHeader.biPlanes = 1;
    format.bmiHeader.biWidth = nWidth;
    format.bmiHeader.biHeight = nHeight;
    return MakeMpeg4VideoType(format);
}

CMediaType MakeMpeg2VideoType() {
    MPEG2VIDEOINFO format{};
    static_assert(sizeof format == 136);
    format.hdr.rcSource = {0, 0, 704, 480};
    format.hdr.dwBitRate = 2000000;
    format.hdr.AvgTimePerFrame = kFrameTime;
    format.hdr.dwPictAspectRatioX = 4;
    format.hdr.dwPictAspectRatioY = 3;
    format.hdr.bmiHeader.biSize = kBitmapHeaderSize;
    format.hdr.bmiHeader.biWidth = 352;
    format.hdr.bmiHeader.biHeight = 480;
    format.hdr.bmiHeader.biXPelsPerMeter = 2000;
    format.hdr.bmiHeader.biYPelsPerMeter = 53031;
    format.dwStartTimeCode = 455832;
    format.dwProfile = 2;  // AM_MPEG2Profile_Main
    format.dwLevel = 2;    // AM_MPEG2Level_Main
    CMediaType type(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
    type.SetFormatType(FORMAT_MPEG2Video);
    type.SetFormat(format);
    return type;
}

CMediaType MakeMpeg1VideoType(const Mpeg1SequenceHeader& header) {
    const Mpeg1SequenceFields fields = ParseSequenceHeader(header);
    MPEG1VIDEOINFO format{};
    format.hdr.rcSource = {0, 0, fields.horizontal_size, fields.vertical_size};
    format.hdr.dwBitRate = fields.nBitRate;
    format.hdr.AvgTimePerFrame = kFrameTime;
    format.hdr.bmiHeader.biSize = kBitmapHeaderSize;
    format.hdr.bmiHeader.biWidth = fields.horizontal_size;
    format.hdr.bmiHeader.biHeight = fields.vertical_size;
    format.hdr.bmiHeader.biXPelsPerMeter = 1347;
    format.hdr.bmiHeader.biYPelsPerMeter = 2000;
    format.dwStartTimeCode = 4097;
    format.cbSequenceHeader = static_cast<DWORD>(header.size());

    // The sequence header stands where the record ends in a one-byte array.
    std::array<BYTE, 244> block{};
    std::memcpy(block.data(), &format, sizeof format);
    std::copy(header.begin(), header.end(), block.begin() + offsetof(MPEG1VIDEOINFO, bSequenceHeader));
    CMediaType type(MEDIATYPE_Video, MEDIASUBTYPE_MPEG1Packet);
    type.SetFormatType(FORMAT_MPEGVideo);
    type.SetFormat(block);
    return type;
}

}  // namespace kest

#include "pins/VideoMediaTypes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace kest {
namespace {

constexpr REFERENCE_TIME kFrameTime = 333667;  // 100 ns of a frame at 30000/1001 a second
constexpr DWORD kBitmapHeaderSize = 40;

/// An MPEG-1 sequence header (ISO/IEC 11172-2 2.4.2.3): 352 x 240, pel aspect ratio code 2, picture rate code
/// 4, bit rate 3750 x 400 bit/s, buffer size 20, constrained, the default intra matrix, a flat non-intra
/// matrix.
constexpr std::array<BYTE, 140> kSequenceHeader = [] {
    constexpr std::array<BYTE, 76> kHead = {
        0x00, 0x00, 0x01, 0xb3, 0x16, 0x00, 0xf0, 0x24, 0x03, 0xa9, 0xa0, 0xa6, 0x10, 0x20, 0x20, 0x26,
        0x20, 0x26, 0x2c, 0x2c, 0x2c, 0x2c, 0x2c, 0x2c, 0x34, 0x30, 0x34, 0x36, 0x36, 0x36, 0x34, 0x34,
        0x34, 0x34, 0x36, 0x36, 0x36, 0x3a, 0x3a, 0x3a, 0x44, 0x44, 0x44, 0x3a, 0x3a, 0x3a, 0x36, 0x36,
        0x3a, 0x3a, 0x40, 0x40, 0x44, 0x44, 0x4a, 0x4c, 0x4a, 0x46, 0x46, 0x44, 0x46, 0x4c, 0x4c, 0x50,
        0x50, 0x50, 0x60, 0x60, 0x5c, 0x5c, 0x70, 0x70, 0x74, 0x8a, 0x8a, 0xa7};
    std::array<BYTE, 140> header{};
    std::copy(kHead.begin(), kHead.end(), header.begin());
    std::fill(header.begin() + kHead.size(), header.end(), BYTE{0x10});
    return header;
}();

}  // namespace

CMediaType MakeMpeg4VideoType(int nWidth, int nHeight) {
    VIDEOINFOHEADER format{};
    format.bmiHeader.biSize = kBitmapHeaderSize;
    format.bmiHeader.biPlanes = 1;
    format.bmiHeader.biWidth = nWidth;
    format.bmiHeader.biHeight = nHeight;
    CMediaType type(MEDIATYPE_Video, MEDIASUBTYPE_KestMpeg4Video);
    type.SetFormatType(FORMAT_VideoInfo);
    type.SetTemporalCompression(true);
    type.SetSampleSize(1);
    type.SetFormat(format);
    return type;
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
    format.dwProfile = 2;  // AM_MPEG2Profile_Simple
    format.dwLevel = 2;    // AM_MPEG2Level_Main
    CMediaType type(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
    type.SetFormatType(FORMAT_MPEG2Video);
    type.SetFormat(format);
    return type;
}

CMediaType MakeMpeg1VideoType() {
    MPEG1VIDEOINFO format{};
    format.hdr.rcSource = {0, 0, 352, 240};
    format.hdr.dwBitRate = 1500000;
    format.hdr.AvgTimePerFrame = kFrameTime;
    format.hdr.bmiHeader.biSize = kBitmapHeaderSize;
    format.hdr.bmiHeader.biWidth = 352;
    format.hdr.bmiHeader.biHeight = 240;
    format.hdr.bmiHeader.biXPelsPerMeter = 1347;
    format.hdr.bmiHeader.biYPelsPerMeter = 2000;
    format.dwStartTimeCode = 4097;
    format.cbSequenceHeader = kSequenceHeader.size();

    // The sequence header stands where the record ends in a one-byte array.
    std::array<BYTE, 244> block{};
    std::memcpy(block.data(), &format, sizeof format);
    std::copy(kSequenceHeader.begin(), kSequenceHeader.end(),
              block.begin() + offsetof(MPEG1VIDEOINFO, bSequenceHeader));
    CMediaType type(MEDIATYPE_Video, MEDIASUBTYPE_MPEG1Packet);
    type.SetFormatType(FORMAT_MPEGVideo);
    type.SetFormat(block);
    return type;
}

}  // namespace kest

#include "pins/VideoMediaTypes.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "demux/Mpeg1SequenceHeader.h"

namespace kest {
namespace {

constexpr REFERENCE_TIME kFrameTime = 333667;  // 100 ns of a frame at 30000/1001 a second
constexpr DWORD kBitmapHeaderSize = 40;

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

#pragma once

#include <cstdint>

#include <optional>

#include "demux/Mpeg1SequenceHeader.h"
#include "demux/SourceDescription.h"
#include "graph/MediaType.h"

namespace kest {

/// MPEG-4 video, one VOP a sample.
constexpr GUID MEDIASUBTYPE_KestMpeg4Video = {
    0x03974C0B, 0x456D, 0x4550, {0x91, 0xC9, 0x68, 0xE5, 0x47, 0x62, 0x5C, 0xAF}};
/// The FOURCC subtype "MP4S".
constexpr GUID MEDIASUBTYPE_KestMp4s = {
    0x5334504D, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

/// The type that the video pin offers for MPEG-4 video.
/// @param nWidth, nHeight  picture size in pixels.
CMediaType MakeMpeg4VideoType(int nWidth, int nHeight);
/// For MPEG-1/2 video in program and transport streams.
CMediaType MakeMpeg2VideoType();
/// For MPEG-1 video in system streams, with the picture size and the bit rate that the sequence header says.
CMediaType MakeMpeg1VideoType(const Mpeg1SequenceHeader& header);

/// The type of a stream by its own headers: size, aspect, frame rate, bit rate, profile and level, sequence header.
/// @return nothing when its headers are not known, or it is none of these three.
std::optional<CMediaType> MakeTrueVideoType(const StreamDescription& stream);

}  // namespace kest

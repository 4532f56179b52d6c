#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace kest {

/// The record that travels beside every frame in a block queue, copied by value. Fields that a demuxer does
/// not set are zero.
///
/// The layout is fixed: other builds of the record share it, with the four flags at the offsets 32 to 35.
struct FRAME_INFO {
    std::int64_t llPts;      // presentation timestamp, 90 kHz, 33 bits; 0 in trick-play frames
    std::int64_t llDts;      // decoding timestamp, 90 kHz, 33 bits; the PTS when the packet has no DTS
    std::int64_t llFilePos;  // offset in the source of the PES packet that began the frame (pull operation)
    std::uint8_t abUnused[8];
    std::uint8_t bDiscontinuity;  // frames of this stream were lost before this one
    std::uint8_t bSegmentMarker;  // a trick-play frame: delivered at once, untimed
    std::uint8_t bNoVideo;        // a trick-play frame that only rebuilds the decoder's state: prerolled
    std::uint8_t bEndOfStream;    // the empty record that ends a stream
};
static_assert(sizeof(FRAME_INFO) == 40 && std::is_trivially_copyable_v<FRAME_INFO>);
static_assert(offsetof(FRAME_INFO, bDiscontinuity) == 32 && offsetof(FRAME_INFO, bSegmentMarker) == 33 &&
              offsetof(FRAME_INFO, bNoVideo) == 34 && offsetof(FRAME_INFO, bEndOfStream) == 35);

/// PTS and DTS of a frame that has no times; only when a demuxer drains.
constexpr std::int64_t kNoFrameTime = -1;

}  // namespace kest

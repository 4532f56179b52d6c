#pragma once

#include <cstdint>

namespace kest {

/// What has become of one elementary stream since the filter was connected.
struct STREAM_COUNTERS {
    std::uint64_t nPackets = 0;          // PES packets, or packets of an MPEG-1 system stream
    std::uint64_t nFramesQueued = 0;     // given to the pin's queue
    std::uint64_t nFramesDelivered = 0;  // samples that went downstream
    std::uint64_t nFramesCut = 0;        // of the queued ones, those that were longer than they may be
    std::uint64_t nFramesLost = 0;       // begun, and dropped before they were queued
    std::uint64_t llBytesCut = 0;        // payload that the cut frames lost
    std::uint64_t llBytesLost = 0;       // payload of the lost frames, and what was in no frame
    /// Of the queued ones, those that say that others before them are missing, but for the first one behind a start or
    /// a seek.
    std::uint64_t nDiscontinuities = 0;

    bool operator==(const STREAM_COUNTERS&) const = default;
};

/// What has become of the input since the filter was connected. The threads that work count, each its own numbers, which
/// can be read at any time; while they work, numbers may be of different moments.
struct COUNTERS {
    std::uint64_t llBytesRead = 0;     // bytes that the demuxer has taken from its source
    std::uint64_t nPacks = 0;          // pack headers, or transport packets
    std::uint64_t nOtherPackets = 0;   // PES packets of streams that are not taken
    std::uint64_t nResyncs = 0;        // places where bytes had to be skipped in search of the next structure
    std::uint64_t llBytesSkipped = 0;  // and those bytes
    std::uint64_t nResets = 0;         // resets carried out
    STREAM_COUNTERS video;
    STREAM_COUNTERS audio;

    bool operator==(const COUNTERS&) const = default;
};

}  // namespace kest

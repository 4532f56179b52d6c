#pragma once

#include "plumbing/Counter.h"

namespace kest {

/// What a parser has met since it was made. Counted by the thread that parses, read by any; see COUNTERS.
struct ParseCounters {
    CCounter nPacks;         // pack headers, or transport packets
    CCounter nVideoPackets;  // PES packets, or packets of an MPEG-1 system stream, of the video that is taken
    CCounter nAudioPackets;  // and of the audio
    CCounter nOtherPackets;  // and of streams that are not taken
    CCounter nResyncs;       // places where bytes had to be skipped in search of the next structure
    CCounter llBytesSkipped;  // and those bytes
};

/// What has become of the frames of one elementary stream; the same.
struct FrameCounters {
    CCounter nQueued;           // frames, without end-of-stream records
    CCounter nDiscontinuities;  // those that say that others before them were lost
    CCounter nCut;              // those that were longer than they may be
    CCounter llBytesCut;        // and what they lost
    CCounter nLost;             // frames that were begun, and dropped before they were queued
    CCounter llBytesLost;       // payload of those, and what was in no frame
};

}  // namespace kest

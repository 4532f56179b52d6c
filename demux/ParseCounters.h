#pragma once

#include "plumbing/Count.h"

namespace kest {

/// What a parser has met since it was made. Counted by the thread that parses, read by any; see COUNTERS.
struct ParseCounters {
    CCount nPacks;          // pack headers, or transport packets
    CCount nVideoPackets;   // PES packets, or packets of an MPEG-1 system stream, of the video that is taken
    CCount nAudioPackets;   // and of the audio
    CCount nOtherPackets;   // and of streams that are not taken
    CCount nResyncs;        // places where bytes had to be skipped in search of the next structure
    CCount llBytesSkipped;  // and those bytes
};

/// What has become of the frames of one elementary stream; the same.
struct FrameCounters {
    CCount nQueued;           // frames, without end-of-stream records
    CCount nDiscontinuities;  // those that say that others before them were lost
    CCount nCut;              // those that were longer than they may be
    CCount llBytesCut;        // and what they lost
    CCount nLost;             // frames that were begun, and dropped before they were queued
    CCount llBytesLost;       // payload of those, and what was in no frame
};

}  // namespace kest

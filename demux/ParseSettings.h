#pragma once

#include <cstdint>

#include "control/SwitchTable.h"

namespace kest {

/// Extensions of the demuxers. As made, none is on. See the filter's switches of the same names.
struct ParseSettings {
    bool bAssumeMap = false;  // without a program stream map, a stream is what its stream_id says
    std::int32_t nVideoStream =
        kAllStreams;  // stream_id or PID that is taken; kAllStreams, kFirstKnownStream
    std::int32_t nAudioStream = kAllStreams;  // the same
    bool bDrain = false;  // nothing is lost at either end; frames without timestamps have kNoFrameTime
    bool bAnyAudioHeader = false;       // the audio framing of MPEG-1 system streams takes any valid header
    bool bMpegKeyFrames = false;        // trick play knows key frames of MPEG-1/2 video
    std::uint32_t nVideoBlockSize = 0;  // bytes of the longest video frame; 0: the family's
};

}  // namespace kest

#pragma once

#include <cstdint>

namespace kest {

/// What the filter is set up for: the kind of stream behind its input pin. The numbers 0 to 5 are those of
/// the stream classes that the probe gives, and what hosts read in the shared status.
enum class EWorkingMode : std::uint32_t {
    Mpeg4VideoEs = 0,     // MPEG-4 video elementary stream
    TransportMpeg4 = 1,   // transport stream with MPEG-4 video
    ProgramMpeg4 = 2,     // MPEG-2 program stream with MPEG-4 video
    TransportMpeg12 = 3,  // transport stream with MPEG-1 or MPEG-2 video
    ProgramMpeg12 = 4,    // MPEG-2 program stream with MPEG-1 or MPEG-2 video
    Mpeg1System = 5,      // MPEG-1 system stream
    None = 6,             // no stream yet
};

/// Which demuxer parses the stream.
enum class ECoreFamily { None, Transport, Program, Mpeg1 };

/// Which rules of time a pin follows.
enum class ETimeline { None, Basic, ProgramStream, JumpClamping, ClockFollowing, ElementaryStream, Plain };

/// Which media type the video pin offers.
enum class EVideoType { None, Mpeg4, Mpeg2, Mpeg1 };

/// What the video pin answers to quality messages of a renderer.
enum class ELateness { NotHandled, MoveTimeBase, TraceWhenLate, AcceptWhenLate };

/// All that a working mode decides, in one place. A mode outside the table has no path: see None.
struct WorkingMode {
    EWorkingMode mode;
    const char* pszName;  // in trace texts
    ECoreFamily family;   // the demuxer; None: the path begins at the frame queues
    int nOutputPins;      // output pins that deliver: none, the video pin, or both
    ETimeline videoTimeline;
    ETimeline audioTimeline;
    EVideoType videoType;
    ELateness lateness;
    bool bFlushesVideoAtRestart;  // the video pin flushes downstream when its timing restarts
    bool bSeekable;               // the seeking hooks reach the demuxer
    bool bInputEndsWithPath;      // the filter's Stop makes the input pin inactive together with the path
};

/// The row of a mode.
const WorkingMode& FindWorkingMode(EWorkingMode mode);

}  // namespace kest

#pragma once

#include "demux/ElementaryStreamClock.h"
#include "pins/Timeline.h"

namespace kest {

/// The rules of time of the video pin. Timestamps are PTS. The time base is the audio pin's, where it has one
/// within about 310 ms; in program streams the video keeps within bounds of the audio. In a segment that was sought by
/// time both pins have the time base of the seek.
class CVideoTimeline final : public CTimeline {
public:
    /// @param mode  decides the variant.
    explicit CVideoTimeline(const WorkingMode& mode);

    Placement Map(const TimedFrame& frame, AvTimes& times) override;
    void Finish(const TimedFrame& frame, AvTimes& times, Placement& place) override;
    /// The basic variant holds a broken frame back: the timing restarts with the next.
    bool IsWithheld(const AvTimes& times) const override;

    /// The audio has not come as far as this start, by the low halves of the two times.
    static bool IsAudioBehind(const AvTimes& times, REFERENCE_TIME rtStart);

private:
    Placement MapBasic(const TimedFrame& frame, AvTimes& times);
    Placement MapProgramStream(const TimedFrame& frame, AvTimes& times);
    Placement MapJumpClamping(const TimedFrame& frame, AvTimes& times);
    Placement MapClockFollowing(const TimedFrame& frame, AvTimes& times);
    Placement MapElementaryStream(const TimedFrame& frame, AvTimes& times);

    static bool TakeTimeBase(const TimedFrame& frame, AvTimes& times);
    void CheckFirstFrame(const AvTimes& times, Placement& place);
    void RequestResetOnce(Placement& place);

    const ETimeline m_variant;
    const bool m_bFlushes;                // a restart flushes downstream (program streams with MPEG-4 video)
    std::int32_t m_nWrongTimestamps = 0;  // corrections in a row against the audio (program stream)
    CElementaryStreamClock m_clock;       // elementary stream
};

}  // namespace kest

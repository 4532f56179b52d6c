#pragma once

#include "pins/Timeline.h"

namespace kest {

/// The rules of time of the audio pin. Timestamps are DTS. In program streams it sets the time base of both
/// pins, except in a segment that was sought by time.
class CAudioTimeline final : public CTimeline {
public:
    /// @param mode   decides the variant.
    /// @param bPush  the input is live.
    CAudioTimeline(const WorkingMode& mode, bool bPush);

    Placement Map(const TimedFrame& frame, AvTimes& times) override;

private:
    Placement MapBasic(const TimedFrame& frame, AvTimes& times);
    Placement MapProgramStream(const TimedFrame& frame, AvTimes& times);
    Placement MapJumpClamping(const TimedFrame& frame, AvTimes& times);
    Placement MapClockFollowing(const TimedFrame& frame, AvTimes& times);
    Placement MapPlain(const TimedFrame& frame, AvTimes& times);

    Placement BeginAt(REFERENCE_TIME rtTimeBase, const TimedFrame& frame, PinTiming& own);

    const ETimeline m_variant;
    const bool m_bPush;
    bool m_bAdopted = false;  // the video pin's time base has been taken (clock-following)
};

}  // namespace kest

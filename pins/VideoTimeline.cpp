#include "pins/VideoTimeline.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

#include "graph/TimeArithmetic.h"

namespace kest {
namespace {

constexpr std::int64_t kFrameTicks = 3003;               // one frame at 29.97 a second, 90 kHz
constexpr REFERENCE_TIME kFrameTime = 330000;            // one frame, 100 ns
constexpr REFERENCE_TIME kJumpLimit = 5000000;           // a start further from the last is a jump
constexpr int kBaseWaits = 31;                           // for the audio pin's time base, 10 ms each
constexpr REFERENCE_TIME kFirstFrameAhead = 50000000;    // a first frame further ahead of the audio is wrong
constexpr REFERENCE_TIME kFirstFrameBehind = -10000000;  // or further behind it
constexpr REFERENCE_TIME kDriftLimit = 20000000;         // later frames either way
constexpr std::int32_t kFirstFrameTolerance = 3;         // corrections before a first frame skips ahead
constexpr std::int32_t kDriftTolerance = 5;              // and a later one

}  // namespace

CVideoTimeline::CVideoTimeline(const WorkingMode& mode)
    : CTimeline(kFrameTicks), m_variant(mode.videoTimeline), m_bFlushes(mode.bFlushesVideoAtRestart) {}

Placement CVideoTimeline::Map(const TimedFrame& frame, AvTimes& times) {
    switch (m_variant) {
        case ETimeline::Basic: return MapBasic(frame, times);
        case ETimeline::ProgramStream: return MapProgramStream(frame, times);
        case ETimeline::JumpClamping: return MapJumpClamping(frame, times);
        case ETimeline::ClockFollowing: return MapClockFollowing(frame, times);
        case ETimeline::ElementaryStream: return MapElementaryStream(frame, times);
        default: return Ask(ERequest::Drop);
    }
}

// ---------------- basic

Placement CVideoTimeline::MapBasic(const TimedFrame& frame, AvTimes& times) {
    PinTiming& own = times.video;
    Placement place;
    if (own.bFirstTime || own.bRestartPending) {
        if (!TakeTimeBase(frame, times)) return Ask(ERequest::AwaitTimeBase);
        if (!std::exchange(own.bFirstTime, false)) own.bRestartPending = false;
        place = Begin(frame, own);
        place.traces = "****** Video-1 was Broken ******\n";
    } else {
        place = Continue(frame, own);
    }
    place.rtStart = std::max<REFERENCE_TIME>(place.rtStart, 0);
    Publish(place, own);
    if (!RepairWrap(frame, own, place) && RepairBroken(frame, own, place, /*bSyncPoint=*/true)) {
        place.traces += "****** Video Broken ******\n";
        own.bFirstTime = times.audio.bFirstTime = true;
        RequestResetOnce(place);
    }
    return place;
}

bool CVideoTimeline::IsWithheld(const AvTimes& times) const {
    return m_variant == ETimeline::Basic && times.video.bFirstTime;
}

// ---------------- program stream

Placement CVideoTimeline::MapProgramStream(const TimedFrame& frame, AvTimes& times) {
    PinTiming& own = times.video;
    if (frame.bDiscontinuity) own.bFirstTime = true;
    Placement place;
    if (own.bFirstTime) {
        if (times.seekTarget) {  // the seek has flushed
            own.rtTimeBase = BaseOf(*times.seekTarget, frame.llTimestamp);
        } else {
            if (m_bFlushes && !frame.bFlushed) return Ask(ERequest::FlushOwn);
            if (!TakeTimeBase(frame, times)) return Ask(ERequest::AwaitTimeBase);
        }
        own.bFirstTime = false;
        m_bResetRequested = false;
        place = Begin(frame, own);
        place.bAnnounce = true;
        place.traces = "****** Video First Time ******\n";
        if (!times.seekTarget) CheckFirstFrame(times, place);
    } else {
        place = Continue(frame, own);
    }
    Publish(place, own);
    if (!RepairWrap(frame, own, place) && RepairBroken(frame, own, place, /*bSyncPoint=*/true)) {
        place.traces += "****** Video Broken ******\n";
        times.audio.bFirstTime = true;
        times.seekTarget.reset();
        RequestReset(place);
    }
    return place;
}

/// A first frame too far from the audio takes the audio's start time.
void CVideoTimeline::CheckFirstFrame(const AvTimes& times, Placement& place) {
    const REFERENCE_TIME rtDrift = SaturatedSubtract(place.rtStart, times.audio.rtLastStart);
    if (rtDrift <= kFirstFrameAhead && rtDrift >= kFirstFrameBehind) {
        m_nWrongTimestamps = 0;
        return;
    }
    AddTrace(place.traces, "****** Video First Time:: Wrong timestamp ****** =%" PRId64 " pts=%d\n",
             std::int64_t{rtDrift}, static_cast<int>(m_llLast));
    place.rtStart = times.audio.rtStart;
    if (++m_nWrongTimestamps > kFirstFrameTolerance) place.bSkipAhead = true;
}

/// A frame of a program stream more than two seconds from the audio takes the audio's start time, unless the segment was
/// sought by time: its times are right.
void CVideoTimeline::Finish(const TimedFrame& frame, AvTimes& times, Placement& place) {
    if (m_variant == ETimeline::ProgramStream && !times.seekTarget) {
        const REFERENCE_TIME rtDrift = SaturatedSubtract(place.rtStart, times.audio.rtLastStart);
        if (rtDrift <= kDriftLimit && rtDrift >= -kDriftLimit) {
            m_nWrongTimestamps = 0;
        } else {
            AddTrace(place.traces, "****** Video :: Wrong timestamp ****** =%" PRId64 " pts=%d\n",
                     std::int64_t{rtDrift}, static_cast<int>(m_llLast));
            place.bSyncPoint = false;
            place.rtStart = times.audio.rtStart;
            Publish(place, times.video);
            if (m_nWrongTimestamps++ > kDriftTolerance) place.bSkipAhead = true;
        }
    }
    CTimeline::Finish(frame, times, place);
}

// ---------------- jump-clamping

Placement CVideoTimeline::MapJumpClamping(const TimedFrame& frame, AvTimes& times) {
    PinTiming& own = times.video;
    Placement place;
    if (own.bFirstTime) {
        if (!TakeTimeBase(frame, times)) return Ask(ERequest::AwaitTimeBase);
        own.bFirstTime = false;
        place = Begin(frame, own);
        place.traces = "****** Video Broken -1 ******\n";
    } else {
        place = Continue(frame, own);
        ClampJump(place, own, kJumpLimit, kFrameTime);
    }
    Publish(place, own);
    if (!RepairWrap(frame, own, place) && RepairBroken(frame, own, place, /*bSyncPoint=*/false)) {
        place.traces += "****** Video Broken ******\n";
        RequestResetOnce(place);
    }
    return place;
}

// ---------------- clock-following

Placement CVideoTimeline::MapClockFollowing(const TimedFrame& frame, AvTimes& times) {
    if (!frame.rtClock) return Ask(ERequest::ReadClock);
    PinTiming& own = times.video;
    Placement place;
    if (own.bFirstTime) {
        if (!TakeTimeBase(frame, times)) return Ask(ERequest::AwaitTimeBase);
        own.bFirstTime = false;
        place = Begin(frame, own);
        place.bAwaitAudio = true;
        place.traces = "****** Video Broken -1 ******\n";
    } else {
        place = Continue(frame, own);
    }
    Publish(place, own);
    if (m_bResetRequested) {  // not shown until the reset comes
        place.bDiscontinuity = place.bPreroll = true;
        place.bSyncPoint = false;
    }
    if (!RepairWrap(frame, own, place) && RepairBroken(frame, own, place, /*bSyncPoint=*/false)) {
        place.traces += "****** Video Broken ******\n";
        RequestResetOnce(place);
    }
    return place;
}

bool CVideoTimeline::IsAudioBehind(const AvTimes& times, REFERENCE_TIME rtStart) {
    const std::uint64_t nLead =
        static_cast<std::uint64_t>(times.audio.rtLastStart) - static_cast<std::uint64_t>(rtStart);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(nLead)) < 0;
}

// ---------------- elementary stream

/// Frames have the times in the video's own headers; frames before the first VOP are dropped.
Placement CVideoTimeline::MapElementaryStream(const TimedFrame& frame, AvTimes& times) {
    PinTiming& own = times.video;
    const bool bHasVop = m_clock.ParseFrame(frame.bytes);
    Placement place;
    if (own.bFirstTime) {
        if (!bHasVop) return Ask(ERequest::Drop);
        own.bFirstTime = false;
        own.rtTimeBase = ToTime(frame.llTimestamp);
        place = Begin(frame, own);
    }
    place.rtOwn = m_clock.GetTime();
    own.rtStart = place.rtStart = place.rtFromBase = SaturatedSubtract(place.rtOwn, own.rtTimeBase);
    return place;
}

// ---------------- common

/// Takes the audio pin's time base; the frame's own time when there has been none for about 310 ms.
/// @return false: wait for it.
bool CVideoTimeline::TakeTimeBase(const TimedFrame& frame, AvTimes& times) {
    const bool bAudio = times.audio.rtTimeBase != kNoTimeBase;
    if (!bAudio && frame.nBaseWaits < kBaseWaits) return false;
    times.video.rtTimeBase = bAudio ? times.audio.rtTimeBase : ToTime(frame.llTimestamp);
    return true;
}

void CVideoTimeline::RequestResetOnce(Placement& place) {
    if (!m_bResetRequested) RequestReset(place);
}

}  // namespace kest

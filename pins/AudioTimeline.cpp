#include "pins/AudioTimeline.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

#include "graph/TimeArithmetic.h"

namespace kest {
namespace {

constexpr std::int64_t kFrameTicks = 2160;      // one frame of 24 ms, 90 kHz
constexpr REFERENCE_TIME kFrameTime = 240000;   // one frame, 100 ns
constexpr REFERENCE_TIME kJumpLimit = 2000000;  // a start further from the last is a jump

}  // namespace

CAudioTimeline::CAudioTimeline(const WorkingMode& mode, bool bPush)
    : CTimeline(kFrameTicks), m_variant(mode.audioTimeline), m_bPush(bPush) {}

Placement CAudioTimeline::Map(const TimedFrame& frame, AvTimes& times) {
    switch (m_variant) {
        case ETimeline::Basic: return MapBasic(frame, times);
        case ETimeline::ProgramStream: return MapProgramStream(frame, times);
        case ETimeline::JumpClamping: return MapJumpClamping(frame, times);
        case ETimeline::ClockFollowing: return MapClockFollowing(frame, times);
        default: return MapPlain(frame, times);
    }
}

// ---------------- basic

/// The first frame plays at the present stream time.
Placement CAudioTimeline::MapBasic(const TimedFrame& frame, AvTimes& times) {
    PinTiming& own = times.audio;
    Placement place;
    if (own.bFirstTime || own.bRestartPending) {
        if (!frame.rtClock) return Ask(ERequest::ReadClock);
        if (!own.bFirstTime) own.bRestartPending = false;
        place = BeginAt(SaturatedSubtract(ToTime(frame.llTimestamp), *frame.rtClock), frame, own);
        place.debugText = "Audio Time Base =" + std::to_string(own.rtTimeBase) + " \n";
    } else {
        place = Continue(frame, own);
    }
    place.rtStart = std::max<REFERENCE_TIME>(place.rtStart, 0);
    Publish(place, own);
    if (!RepairWrap(frame, own, place) && RepairBroken(frame, own, place, /*bSyncPoint=*/true)) {
        place.traces += "****** Audio Broken ****** \n";
        RequestReset(place);
    }
    return place;
}

// ---------------- program stream

/// A restart begins both streams anew downstream, and sets the time base of both.
Placement CAudioTimeline::MapProgramStream(const TimedFrame& frame, AvTimes& times) {
    PinTiming& own = times.audio;
    if (frame.bDiscontinuity) own.bFirstTime = true;
    Placement place;
    if (own.bFirstTime && times.seekTarget) {  // the seek has flushed; the video has the same target
        place = BeginAt(BaseOf(*times.seekTarget, frame.llTimestamp), frame, own);
        m_bResetRequested = false;
        place.bAnnounce = true;
        place.traces = "****** Audio First time ******\n";
    } else if (own.bFirstTime) {
        if (!frame.bFlushed) return Ask(ERequest::FlushBoth);
        if (m_bPush && !frame.rtClock) return Ask(ERequest::ReadClock);
        const REFERENCE_TIME rtOwn = ToTime(frame.llTimestamp);
        place = BeginAt(m_bPush ? SaturatedSubtract(rtOwn, *frame.rtClock) : rtOwn, frame, own);
        own.bFirstTime = own.bRestartPending;  // a reset came meanwhile: it wants a restart behind it
        times.video.rtTimeBase = own.rtTimeBase;
        times.video.bFirstTime = true;
        m_bResetRequested = false;
        place.bAnnounce = true;
        place.traces = "****** Audio First time ******\n";
    } else {
        place = Continue(frame, own);
    }
    Publish(place, own);
    if (!RepairWrap(frame, own, place) && RepairBroken(frame, own, place, /*bSyncPoint=*/true)) {
        place.traces += "****** Audio Broken ******\n";
        own.bFirstTime = times.video.bFirstTime = true;
        times.seekTarget.reset();
        RequestReset(place);
    }
    return place;
}

// ---------------- jump-clamping

/// A restart goes on behind the later of the two pins.
Placement CAudioTimeline::MapJumpClamping(const TimedFrame& frame, AvTimes& times) {
    PinTiming& own = times.audio;
    Placement place;
    if (own.bFirstTime) {
        const REFERENCE_TIME rtLater = std::max(times.video.rtLastStart, own.rtLastStart);
        place = BeginAt(SaturatedSubtract(ToTime(frame.llTimestamp), rtLater), frame, own);
    } else {
        place = Continue(frame, own);
        ClampJump(place, own, kJumpLimit, kFrameTime);
    }
    Publish(place, own);
    if (!RepairWrap(frame, own, place) && RepairBroken(frame, own, place, /*bSyncPoint=*/false)) {
        place.traces += "****** Audio Broken ******\n";
        RequestReset(place);
    }
    return place;
}

// ---------------- clock-following

/// Takes the video pin's time base as soon as it has one.
Placement CAudioTimeline::MapClockFollowing(const TimedFrame& frame, AvTimes& times) {
    if (!frame.rtClock) return Ask(ERequest::ReadClock);
    PinTiming& own = times.audio;
    const REFERENCE_TIME rtVideoBase = times.video.rtTimeBase;
    const bool bVideoHasBase = rtVideoBase != kNoTimeBase;
    Placement place;
    if (own.bFirstTime) {
        m_bAdopted = bVideoHasBase;
        place = BeginAt(bVideoHasBase ? rtVideoBase : ToTime(frame.llTimestamp), frame, own);
    } else {
        const bool bAdopts = !m_bAdopted && bVideoHasBase;
        if (bAdopts) own.rtTimeBase = rtVideoBase;
        m_bAdopted = m_bAdopted || bAdopts;
        place = Continue(frame, own);
        place.bDiscontinuity = bAdopts;
    }
    Publish(place, own);
    if (m_bResetRequested) {  // unlike the video's, these are rendered
        place.bDiscontinuity = true;
        place.bSyncPoint = false;
    }
    if (!RepairWrap(frame, own, place) && RepairBroken(frame, own, place, /*bSyncPoint=*/true)) {
        place.traces += "****** Audio Broken ******\n";
        RequestReset(place);
    }
    return place;
}

// ---------------- plain

/// No repairs of any kind.
Placement CAudioTimeline::MapPlain(const TimedFrame& frame, AvTimes& times) {
    PinTiming& own = times.audio;
    const Placement place =
        own.bFirstTime ? BeginAt(ToTime(frame.llTimestamp), frame, own) : Continue(frame, own);
    Publish(place, own);
    return place;
}

// ---------------- common

Placement CAudioTimeline::BeginAt(REFERENCE_TIME rtTimeBase, const TimedFrame& frame, PinTiming& own) {
    own.rtTimeBase = rtTimeBase;
    own.bFirstTime = false;
    return Begin(frame, own);
}

}  // namespace kest

#include "pins/AudioDeliveryLoop.h"

#include <algorithm>
#include <cinttypes>

#include "platform/DebugText.h"
#include "platform/Time.h"

namespace kest {
namespace {

constexpr StreamConstants kAudioConstants = {.llFrameTicks = 2160,
                                             .rtFrame = 240000,
                                             .rtClampLimit = 2000000,
                                             .pszStream = "Audio",
                                             .pszStamp = "DTS",
                                             .pszStep = "dPts",
                                             .pszAfter = "ADecod",
                                             .pszInDelivery = "dt",
                                             .dwBufferFlags = 0x100};
constexpr std::uint32_t kPauseMs = 10;  // after a dropped frame or a read that brought nothing

//                                 variant                  read   deliver flags  pending clamps repairs sync
constexpr DeliveryRules kPlain = {ETimeline::Plain, false, true, false, false, false, false, true};
constexpr DeliveryRules kClockFollowing = {
    ETimeline::ClockFollowing, false, true, false, false, false, true, true};
constexpr DeliveryRules kProgramStream = {
    ETimeline::ProgramStream, false, false, true, false, false, true, true};
constexpr DeliveryRules kJumpClamping = {
    ETimeline::JumpClamping, false, true, false, false, true, true, false};
constexpr DeliveryRules kBasic = {ETimeline::Basic, false, true, false, true, false, true, true};

}  // namespace

CAudioDeliveryLoop::CAudioDeliveryLoop(CDemuxOutputPin& pin) : CDeliveryLoop(pin, kAudioConstants) {}

const DeliveryRules& CAudioDeliveryLoop::SelectRules(const WorkingMode& mode) const {
    switch (mode.audioTimeline) {
        case ETimeline::ClockFollowing: return kClockFollowing;
        case ETimeline::ProgramStream: return kProgramStream;
        case ETimeline::JumpClamping: return kJumpClamping;
        case ETimeline::Basic: return kBasic;
        default: return kPlain;
    }
}

void CAudioDeliveryLoop::OnEnd() { Trace("\n CKestDemux2AudioOutputPin Stop!!! .\n"); }

void CAudioDeliveryLoop::TraceStep(const char* pszText) {
    if (Is(ETimeline::ProgramStream)) Trace("%s", pszText);
}

void CAudioDeliveryLoop::OnFrameDropped() { SleepMs(kPauseMs); }

void CAudioDeliveryLoop::OnNothingRead() {
    if (Is(ETimeline::ProgramStream)) SleepMs(kPauseMs);
}

CAudioDeliveryLoop::EStep CAudioDeliveryLoop::DeliverFree(Frame& frame) {
    if (GetTiming().bFirstTime.exchange(false)) frame.pSample->SetDiscontinuity(TRUE);
    DeliverBracketed(frame);
    ++GetTiming().nAccessCount;
    return EStep::NextFrame;
}

// ---------------- record flags

CAudioDeliveryLoop::EStep CAudioDeliveryLoop::HandleFlags(Frame& frame) {
    if (frame.info.bEndOfStream) {  // an end-of-stream record with bytes: they are no frame
        EndStream(frame);
        return EStep::NextFrame;
    }
    if (frame.info.bSegmentMarker) return DeliverSegmentMarker(frame);
    if (frame.info.bDiscontinuity) GetTiming().bFirstTime = true;
    return EStep::GoOn;
}

/// A trick-play frame goes out at once and untimed; the segment is announced behind it.
CAudioDeliveryLoop::EStep CAudioDeliveryLoop::DeliverSegmentMarker(Frame& frame) {
    constexpr double kMarkerRate = 2.0;
    frame.pSample->SetDiscontinuity(TRUE);
    DeliverBracketed(frame);
    Trace("** Audio **\n");
    if (GetTiming().bFirstTime.exchange(false)) m_pin.DeliverNewSegment(0, kSegmentEnd, kMarkerRate);
    return EStep::NextFrame;
}

// ---------------- stamping

CAudioDeliveryLoop::EStep CAudioDeliveryLoop::RestartTiming(Frame& frame) {
    PinTiming& timing = GetTiming();
    if (Is(ETimeline::Basic) && !timing.bFirstTime) timing.bRestartPending = false;
    if (Is(ETimeline::ProgramStream)) {  // both streams begin anew downstream
        timing.bFirstTime = false;
        m_pin.FlushDownstream();
        m_pin.GetPeer().FlushDownstream();
        GetPeerTiming().bFirstTime = true;
    }
    timing.rtTimeBase = ChooseTimeBase(ToTime(frame.llStamp));
    if (Is(ETimeline::ProgramStream)) GetPeerTiming().rtTimeBase = timing.rtTimeBase.load();
    timing.rtStart = ToStart(frame.llStamp);
    timing.bFirstTime = false;
    m_dwStartTick = TickCount();
    timing.nAccessCount = 0;
    MarkRestart(frame);
    m_llLastStamp = frame.llStamp;
    if (Is(ETimeline::ProgramStream)) {
        m_pin.DeliverNewSegment(0, kSegmentEnd, 1.0);
        Trace("****** Audio First time ******\n");
        m_bResetRequested = false;
    }
    return EStep::GoOn;
}

/// The origin of the stream time that puts a first frame where its variant wants it.
/// @param rtFrame  the frame's time, 100 ns.
REFERENCE_TIME CAudioDeliveryLoop::ChooseTimeBase(REFERENCE_TIME rtFrame) {
    switch (m_rules->variant) {
        case ETimeline::Basic: {
            const REFERENCE_TIME rtBase = ClockTimeBase(rtFrame);
            DebugText("Audio Time Base =%" PRId64 " \n", static_cast<std::int64_t>(rtBase));
            return rtBase;
        }
        case ETimeline::ProgramStream: return GetSite().IsPushSource() ? ClockTimeBase(rtFrame) : rtFrame;
        case ETimeline::JumpClamping:  // go on behind the later of the two pins
            return rtFrame - std::max(GetPeerTiming().rtLastStart.load(), GetTiming().rtLastStart.load());
        case ETimeline::ClockFollowing:
            m_bAdopted = GetPeerTiming().rtTimeBase != kNoTimeBase;
            return m_bAdopted ? GetPeerTiming().rtTimeBase.load() : rtFrame;
        default: return rtFrame;
    }
}

/// The base that lets the frame play at the present stream time; without a clock at 0.
REFERENCE_TIME CAudioDeliveryLoop::ClockTimeBase(REFERENCE_TIME rtFrame) {
    return rtFrame - GetClockStreamTime();
}

/// The clock-following variant changes to the video pin's base as soon as there is one.
void CAudioDeliveryLoop::OnNormalTiming(Frame& frame) {
    if (!Is(ETimeline::ClockFollowing) || m_bAdopted) return;
    const REFERENCE_TIME rtVideo = GetPeerTiming().rtTimeBase;
    if (rtVideo == kNoTimeBase) return;
    GetTiming().rtTimeBase = rtVideo;
    m_bAdopted = true;
    frame.pSample->SetDiscontinuity(TRUE);
}

void CAudioDeliveryLoop::AfterStamping(Frame& frame) {
    if (!Is(ETimeline::ClockFollowing)) return;
    m_rtClock = GetClockStreamTime();
    if (!m_bResetRequested) return;
    frame.pSample->SetDiscontinuity(TRUE);
    frame.pSample->SetSyncPoint(FALSE);
    frame.pSample->SetPreroll(FALSE);  // unlike the video's, these are rendered
}

void CAudioDeliveryLoop::OnBrokenStamp() {
    Trace(Is(ETimeline::Basic) ? "****** Audio Broken ****** \n" : "****** Audio Broken ******\n");
    if (Is(ETimeline::ProgramStream)) {
        GetPeerTiming().bFirstTime = true;
        GetTiming().bFirstTime = true;
    }
    RequestReset();
}

}  // namespace kest

#include "pins/VideoDeliveryLoop.h"

#include <cinttypes>

#include "pins/VideoOutputPin.h"
#include "platform/DebugText.h"
#include "platform/Time.h"

namespace kest {
namespace {

constexpr StreamConstants kVideoConstants = {.llFrameTicks = 3003,
                                             .rtFrame = 330000,
                                             .rtClampLimit = 5000000,
                                             .pszStream = "Video",
                                             .pszStamp = "PTS",
                                             .pszStep = "dPTS",
                                             .pszAfter = "Adecod",
                                             .pszInDelivery = "DT",
                                             .dwBufferFlags = 0};

//                                 variant                     read   deliver flags  pending clamps repairs
//                                 sync
constexpr DeliveryRules kNone = {ETimeline::None, true, true, false, false, false, false, false};
constexpr DeliveryRules kElementary = {
    ETimeline::ElementaryStream, true, true, false, false, false, false, true};
constexpr DeliveryRules kClockFollowing = {
    ETimeline::ClockFollowing, true, true, false, false, false, true, false};
constexpr DeliveryRules kProgramStream = {
    ETimeline::ProgramStream, false, false, true, false, false, true, true};
constexpr DeliveryRules kJumpClamping = {
    ETimeline::JumpClamping, true, true, false, false, true, true, false};
constexpr DeliveryRules kBasic = {ETimeline::Basic, false, true, false, true, false, true, true};

constexpr REFERENCE_TIME kFirstFrameAhead = 50000000;   // a first frame further ahead of the audio is wrong
constexpr REFERENCE_TIME kFirstFrameBehind = 10000000;  // or further behind it
constexpr REFERENCE_TIME kDriftLimit = 20000000;        // later frames either way
constexpr std::int32_t kFirstFrameTolerance = 3;        // corrections before a first frame skips ahead
constexpr std::int32_t kDriftTolerance = 5;             // and a later one

}  // namespace

CVideoDeliveryLoop::CVideoDeliveryLoop(CKestDemux2VideoOutputPin& pin)
    : CDeliveryLoop(pin, kVideoConstants), m_videoPin(pin) {}

const DeliveryRules& CVideoDeliveryLoop::SelectRules(const WorkingMode& mode) const {
    switch (mode.videoTimeline) {
        case ETimeline::ElementaryStream: return kElementary;
        case ETimeline::ClockFollowing: return kClockFollowing;
        case ETimeline::ProgramStream: return kProgramStream;
        case ETimeline::JumpClamping: return kJumpClamping;
        case ETimeline::Basic: return kBasic;
        default: return kNone;
    }
}

void CVideoDeliveryLoop::OnEnd() { Trace("CKestDemux2VideoOutputPin Stop!!! .\n"); }

void CVideoDeliveryLoop::PassEnd() {
    m_pin.DeliverEndOfStream();
    Trace(" $$$$ END OF FILE $$$\n");
    DebugText(" $$$$ END OF FILE $$$\n");
}

CVideoDeliveryLoop::EStep CVideoDeliveryLoop::DeliverFree(Frame& frame) {
    return DeliverBracketed(frame) != S_OK && m_rules->bEndsOnDeliveryFailure ? EStep::End : EStep::NextFrame;
}

// ---------------- record flags

CVideoDeliveryLoop::EStep CVideoDeliveryLoop::HandleFlags(Frame& frame) {
    if (frame.info.bEndOfStream) {  // an end-of-stream record with bytes: they are no frame
        EndStream(frame);
        return EStep::NextFrame;
    }
    m_videoPin.SetFilePos(frame.info.llFilePos);
    if (frame.info.bSegmentMarker) return DeliverSegmentMarker(frame);
    if (frame.info.bDiscontinuity) GetTiming().bFirstTime = true;
    return EStep::GoOn;
}

/// A trick-play frame goes out at once and untimed.
CVideoDeliveryLoop::EStep CVideoDeliveryLoop::DeliverSegmentMarker(Frame& frame) {
    constexpr double kMarkerRate = 10.0;
    constexpr std::uint32_t kShowMs = 10;
    if (GetTiming().bFirstTime.exchange(false)) m_pin.DeliverNewSegment(0, kSegmentEnd, kMarkerRate);
    frame.pSample->SetPreroll(frame.info.bNoVideo);
    Trace(frame.info.bNoVideo ? "** No Video ** %d\n" : "** Video ** %d\n", GetPending());
    if (!frame.info.bNoVideo) SleepMs(kShowMs);
    frame.pSample->SetMediaType(nullptr);
    frame.pSample->SetDiscontinuity(TRUE);
    DeliverBracketed(frame);
    return EStep::NextFrame;
}

// ---------------- stamping

CVideoDeliveryLoop::EStep CVideoDeliveryLoop::ProcessFrame(Frame& frame) {
    return Is(ETimeline::ElementaryStream) ? ProcessElementary(frame) : CDeliveryLoop::ProcessFrame(frame);
}

CVideoDeliveryLoop::EStep CVideoDeliveryLoop::RestartTiming(Frame& frame) {
    PinTiming& timing = GetTiming();
    if (Is(ETimeline::Basic) && !timing.bFirstTime) timing.bRestartPending = false;
    if (Is(ETimeline::Basic) || Is(ETimeline::JumpClamping)) timing.bFirstTime = false;
    if (m_pMode->bFlushesVideoAtRestart) m_pin.FlushDownstream();
    m_dwStartTick = TickCount();
    if (!GetTimeBase(frame)) {
        // Where the stop event, if it is that, ends the loop.
        if (Is(ETimeline::ProgramStream) || !GetThread().IsStopping()) return EStep::NextFrame;
        m_nExitCode = 0;
        return EStep::End;
    }
    timing.rtStart = ToStart(frame.llStamp);
    timing.nAccessCount = 0;
    if (Is(ETimeline::ProgramStream)) timing.bFirstTime = false;
    MarkRestart(frame);
    m_llLastStamp = frame.llStamp;
    if (Is(ETimeline::ProgramStream)) {
        m_pin.DeliverNewSegment(0, kSegmentEnd, 1.0);
        m_bResetRequested = false;
        Trace("****** Video First Time ******\n");
        CheckFirstFrame(frame);
    } else {
        Trace(Is(ETimeline::Basic) ? "****** Video-1 was Broken ******\n"
                                   : "****** Video Broken -1 ******\n");
    }
    return EStep::GoOn;
}

/// Takes the audio pin's time base, waiting about 310 ms for it, else the frame's own time.
/// @return false when the thread must end, or a seek has left the frame behind.
bool CVideoDeliveryLoop::GetTimeBase(const Frame& frame) {
    constexpr int kTries = 32;
    constexpr std::uint32_t kPauseMs = 10;
    for (int i = 0; i < kTries; ++i) {
        if (i > 0) SleepMs(kPauseMs);
        if (GetThread().IsStopping() || IsLeftBehind(frame)) return false;
        const REFERENCE_TIME rtAudio = GetPeerTiming().rtTimeBase;
        if (rtAudio == kNoTimeBase) continue;
        GetTiming().rtTimeBase = rtAudio;
        return true;
    }
    GetTiming().rtTimeBase = ToTime(frame.llStamp);
    return true;
}

/// A first frame too far from the audio takes the audio's start time.
void CVideoDeliveryLoop::CheckFirstFrame(Frame& frame) {
    const REFERENCE_TIME rtDrift = GetTiming().rtStart - GetPeerTiming().rtLastStart;
    if (rtDrift <= kFirstFrameAhead && rtDrift >= -kFirstFrameBehind) {
        m_nWrongStamps = 0;
        return;
    }
    Trace("****** Video First Time:: Wrong timestamp ****** =%" PRId64 " pts=%d\n",
          static_cast<std::int64_t>(rtDrift), static_cast<int>(m_llLastStamp));
    GetTiming().rtStart = GetPeerTiming().rtStart.load();
    if (++m_nWrongStamps > kFirstFrameTolerance) SkipAhead(frame);
}

/// Seeks a little ahead; the frame at hand still goes out.
void CVideoDeliveryLoop::SkipAhead(Frame& frame) {
    frame.bKeep = !IsLeftBehind(frame);
    m_videoPin.SkipAhead();
}

void CVideoDeliveryLoop::AfterStamping(Frame& frame) {
    if (!Is(ETimeline::ClockFollowing)) return;
    m_rtClock = GetClockStreamTime();
    if (m_bResetRequested) {  // not shown until the reset comes
        frame.pSample->SetDiscontinuity(TRUE);
        frame.pSample->SetSyncPoint(FALSE);
        frame.pSample->SetPreroll(TRUE);
    }
    if (!GetTiming().bFirstTime.exchange(false)) return;
    // The first frame waits until the audio has come as far, by the low halves of the two times.
    auto AudioIsBehind = [this] {
        const REFERENCE_TIME rtLead = GetPeerTiming().rtLastStart - GetTiming().rtStart;
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(rtLead)) < 0;
    };
    while (AudioIsBehind() && !GetThread().IsStopping()) SleepMs(1);
}

void CVideoDeliveryLoop::OnBrokenStamp() {
    Trace("****** Video Broken ******\n");
    if (Is(ETimeline::Basic)) GetTiming().bFirstTime = true;
    if (Is(ETimeline::Basic) || Is(ETimeline::ProgramStream)) GetPeerTiming().bFirstTime = true;
    if (Is(ETimeline::ProgramStream) || !m_bResetRequested) RequestReset();
}

/// A frame more than two seconds from the audio takes the audio's start time.
void CVideoDeliveryLoop::CheckDrift(Frame& frame) {
    if (!Is(ETimeline::ProgramStream)) return;
    const REFERENCE_TIME rtDrift = GetTiming().rtStart - GetPeerTiming().rtLastStart;
    if (rtDrift <= kDriftLimit && rtDrift >= -kDriftLimit) {
        m_nWrongStamps = 0;
        return;
    }
    Trace("****** Video :: Wrong timestamp ****** =%" PRId64 " pts=%d\n", static_cast<std::int64_t>(rtDrift),
          static_cast<int>(m_llLastStamp));
    frame.pSample->SetSyncPoint(FALSE);
    SetTimes(frame, GetPeerTiming().rtStart);
    GetTiming().rtLastStart = GetTiming().rtStart.load();
    if (m_nWrongStamps > kDriftTolerance) SkipAhead(frame);
    ++m_nWrongStamps;
}

/// The basic variant holds a broken frame back: the timing restarts with the next.
bool CVideoDeliveryLoop::IsWithheld() const { return Is(ETimeline::Basic) && m_pin.GetTiming().bFirstTime; }

// ---------------- elementary-stream variant

/// Stamps by the times in the video's own headers; frames before the first VOP are dropped.
CVideoDeliveryLoop::EStep CVideoDeliveryLoop::ProcessElementary(Frame& frame) {
    PinTiming& timing = GetTiming();
    const bool bHasVop = m_clock.ParseFrame(frame.buffer.first(static_cast<std::size_t>(frame.nLength)));
    if (timing.bFirstTime) {
        if (!bHasVop) return EStep::NextFrame;
        m_dwStartTick = TickCount();
        timing.bFirstTime = false;
        timing.rtTimeBase = ToTime(frame.llStamp);
        m_llDataCount = frame.nLength;
        timing.nAccessCount = 0;
        MarkRestart(frame);
    }
    m_dwDeliverTick = TickCount();
    const auto nStreamMs = static_cast<std::uint64_t>(m_clock.GetTime() - timing.rtTimeBase) / 10000;
    m_nAhead = static_cast<std::int32_t>(nStreamMs - (m_dwDeliverTick - m_dwStartTick));
    SetTimes(frame, m_clock.GetTime() - timing.rtTimeBase);
    frame.pSample->SetSyncPoint(TRUE);
    const HRESULT hr = DeliverBracketed(frame);
    ++timing.nAccessCount;
    TraceElementary();
    m_rtPreviousStart = timing.rtStart;
    return hr == S_OK ? EStep::NextFrame : EStep::End;
}

// ---------------- statistics

void CVideoDeliveryLoop::TraceElementary() {
    const std::uint32_t dwAfter = TickCount();
    const std::int64_t llTime = m_clock.GetTime(), llStep = GetTiming().rtStart - m_rtPreviousStart;
    Trace("AC=%d Wbms=%3d Rbms=%2d CT =%" PRId64 "  dT =%" PRId64 "  Data=%" PRId64
          " timehere=%ld  Afterdecoding=%ld dt=%d td=%d\n",
          GetTiming().nAccessCount.load(), GetFreeBlocks(), GetPending(), llTime, llStep, m_llDataCount,
          static_cast<long>(m_dwDeliverTick), static_cast<long>(dwAfter),
          static_cast<int>(dwAfter - m_dwDeliverTick), m_nAhead);
}

}  // namespace kest

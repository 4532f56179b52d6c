#include "pins/DeliveryLoop.h"

#include <cinttypes>
#include <cstdio>

#include "platform/DebugText.h"
#include "platform/Time.h"

namespace kest {
namespace {

constexpr std::uint32_t kNoSamplePauseMs = 10;
constexpr std::uint32_t kResettingPauseMs = 100;
constexpr std::int64_t kBrokenTicks = 90090;        // stamps further apart are broken
constexpr std::uint64_t kLastStamp = 0x1FFFFFFFF;   // of a 33-bit counter
constexpr std::uint64_t kWrapTicks = 20000;         // a wrap leads at most this far
constexpr REFERENCE_TIME kWrapTime = 954437176777;  // kLastStamp in 100 ns, rounded down

/// Marks a delivery as under way for the length of a block. The mark comes before the look whether the frame
/// has been left behind, and a seek looks at the mark when it has left frames behind: one sees the other.
class CUnderWay {
public:
    explicit CUnderWay(CEvent& evNotDelivering) : m_event(evNotDelivering) { m_event.Reset(); }
    CUnderWay(const CUnderWay&) = delete;
    CUnderWay& operator=(const CUnderWay&) = delete;
    ~CUnderWay() { m_event.Set(); }

private:
    CEvent& m_event;
};

}  // namespace

CDeliveryLoop::CDeliveryLoop(CDemuxOutputPin& pin, const StreamConstants& constants)
    : m_pin(pin), m_constants(constants) {}

bool CDeliveryLoop::IsTimestampBroken(std::int64_t llStamp, std::int64_t llLast) {
    return llStamp - llLast > kBrokenTicks || llLast - llStamp > kBrokenTicks;
}

std::int32_t CDeliveryLoop::Run() {
    GetThread().WaitRun();
    if (GetThread().IsStopping()) return -1;
    GetTiming().bFirstTime = true;
    GetTiming().rtLastStart = 0;
    m_pMode = &FindWorkingMode(GetSite().GetWorkingMode());
    m_rules = &SelectRules(*m_pMode);
    BeginRun();
    while (!Is(ETimeline::None) && Step() != EStep::End) {
    }
    OnEnd();
    return m_nExitCode;
}

/// The frame step: from an empty sample to a delivered one.
CDeliveryLoop::EStep CDeliveryLoop::Step() {
    GetThread().WaitRun();
    if (GetThread().IsStopping()) return EStep::End;
    Frame frame;
    if (!TakeSample(frame)) {
        SleepMs(kNoSamplePauseMs);
        return EStep::NextFrame;
    }
    if (const EStep step = ReadFrame(frame); step != EStep::GoOn) return step;
    if (CountsBeforeDelivery()) ++GetTiming().nAccessCount;
    frame.pSample->SetActualDataLength(frame.nLength);
    m_llDataCount += frame.nLength;
    if (GetSite().IsFreeRun() && !Is(ETimeline::ElementaryStream)) return DeliverFree(frame);
    if (m_rules->bReadsFlags) {
        if (const EStep step = HandleFlags(frame); step != EStep::GoOn) return step;
    }
    return ProcessFrame(frame);
}

// ---------------- getting a frame

bool CDeliveryLoop::TakeSample(Frame& frame) {
    TraceStep("=======>Audio 1\n");
    const HRESULT hr =
        m_pin.GetDeliveryBuffer(frame.pSample.Put(), nullptr, nullptr, m_constants.dwBufferFlags);
    TraceStep("=======>Audio 1.2\n");
    if (FAILED(hr) && frame.pSample) {
        TraceStep("=======>pSample==NULL || hr<0\n***********\n******\n!!!!!!!!!\n!!!!!");
    }
    BYTE* pBuffer = nullptr;
    if (FAILED(hr) || !frame.pSample || FAILED(frame.pSample->GetPointer(&pBuffer))) return false;
    frame.buffer = {pBuffer, static_cast<std::size_t>(frame.pSample->GetSize())};
    frame.pSample->SetDiscontinuity(FALSE);
    return true;
}

/// Reads the next frame. An empty block whose record says so is the end of the stream; it goes downstream
/// even in free run.
CDeliveryLoop::EStep CDeliveryLoop::ReadFrame(Frame& frame) {
    if (m_rules->bReadsFlags) DropQueuedFrames(frame);
    TraceStep("=======>Audio 2\n");
    const BlockRead read =
        m_pin.m_pFrameQueue->ReadEx(m_pin.m_bmHandle, frame.buffer, &frame.info, kInfinite);
    frame.nLength = static_cast<int>(read.nLength);
    frame.nGeneration = read.nGeneration;
    if (frame.nLength > 0) {
        TraceStep("=======>Audio 3\n");
        frame.llStamp = GetStamp(frame.info);
        return EStep::GoOn;
    }
    frame.pSample = nullptr;
    if (frame.info.bEndOfStream) {
        EndStream(frame);
        return EStep::NextFrame;
    }
    if (!read.IsTaken() && read.status != BlockRead::EStatus::Nothing) {
        SleepMs(kNoSamplePauseMs);  // the queue is closed, and the stop will come
    }
    OnNothingRead();
    return m_rules->bEndsOnReadFailure ? EStep::End : EStep::NextFrame;
}

/// After a reset, drops everything that was queued before it; only an end of the stream is not lost, since no
/// other may follow.
void CDeliveryLoop::DropQueuedFrames(Frame& frame) {
    TraceStep("=======>Audio 1.5\n");
    if (!GetTiming().bRestartPending.exchange(false)) return;
    while (m_pin.GetFramesPending() > 0 && !GetThread().IsStopping()) {
        const BlockRead read = m_pin.m_pFrameQueue->ReadEx(m_pin.m_bmHandle, frame.buffer, &frame.info, 0);
        frame.nGeneration = read.nGeneration;
        if (read.IsTaken() && frame.info.bEndOfStream) return EndStream(frame);
        OnFrameDropped();
    }
}

// ---------------- stamping

CDeliveryLoop::EStep CDeliveryLoop::ProcessFrame(Frame& frame) {
    if (IsRestartDue()) {
        if (const EStep step = RestartTiming(frame); step != EStep::GoOn) return step;
    } else {
        ContinueTiming(frame);
        if (m_rules->bClampsJumps) ClampJump(frame);
    }
    if (Is(ETimeline::Basic) && m_pin.IsVideo() && GetTiming().rtStart < 0) GetTiming().rtStart = 0;
    frame.pSample->SetSyncPoint(TRUE);
    SetTimes(frame, GetTiming().rtStart);
    GetTiming().rtLastStart = GetTiming().rtStart.load();
    AfterStamping(frame);
    if (m_rules->bRepairs) {
        if (!RepairWrap(frame) && IsTimestampBroken(frame.llStamp, m_llLastStamp)) RepairBroken(frame);
        ResetHook();
    }
    CheckDrift(frame);
    return DeliverStamped(frame);
}

bool CDeliveryLoop::IsRestartDue() {
    return GetTiming().bFirstTime || (m_rules->bRestartsOnPending && GetTiming().bRestartPending);
}

void CDeliveryLoop::ContinueTiming(Frame& frame) {
    frame.pSample->SetDiscontinuity(FALSE);
    OnNormalTiming(frame);
    m_dwDeliverTick = TickCount();
    GetTiming().rtStart = ToStart(frame.llStamp);
    // In 32 bits, on the low halves: a trace figure.
    const auto nStream = static_cast<std::uint32_t>(GetTiming().rtStart);
    m_nAhead = static_cast<std::int32_t>(nStream - (m_dwDeliverTick - m_dwStartTick) * 10000) / 10000;
}

/// Moves a start that jumps to one frame behind the last. A restart may jump: the audio goes on behind the
/// later of the two pins.
void CDeliveryLoop::ClampJump(Frame& frame) {
    PinTiming& timing = GetTiming();
    const REFERENCE_TIME rtJump = timing.rtStart - timing.rtLastStart;
    if (rtJump <= m_constants.rtClampLimit && rtJump >= -m_constants.rtClampLimit) return;
    timing.rtStart = timing.rtLastStart + m_constants.rtFrame;
    frame.pSample->SetDiscontinuity(TRUE);
}

/// The 33-bit counter began anew: moves the time base back by its range.
bool CDeliveryLoop::RepairWrap(Frame& frame) {
    const auto nStamp = static_cast<std::uint64_t>(frame.llStamp);
    const auto nLast = static_cast<std::uint64_t>(m_llLastStamp);
    if (nStamp >= nLast || nStamp + kLastStamp - nLast >= kWrapTicks) return false;
    GetTiming().rtTimeBase -= kWrapTime;
    SetTimes(frame, ToStart(frame.llStamp));
    GetTiming().rtLastStart = GetTiming().rtStart.load();
    return true;
}

/// Places a frame whose stamp cannot be true one frame behind the last stamp.
void CDeliveryLoop::RepairBroken(Frame& frame) {
    frame.pSample->SetDiscontinuity(TRUE);
    frame.pSample->SetPreroll(FALSE);
    frame.pSample->SetSyncPoint(m_rules->bSyncPointWhenBroken);
    m_llLastStamp += m_constants.llFrameTicks;
    SetTimes(frame, ToStart(m_llLastStamp));
    OnBrokenStamp();
}

void CDeliveryLoop::SetTimes(Frame& frame, REFERENCE_TIME rtStart) {
    REFERENCE_TIME rtStop = rtStart + 1;
    GetTiming().rtStart = rtStart;
    GetTiming().rtStop = rtStop;
    frame.pSample->SetTime(&rtStart, &rtStop);
}

void CDeliveryLoop::MarkRestart(Frame& frame) {
    frame.pSample->SetPreroll(FALSE);
    frame.pSample->SetMediaType(nullptr);
    frame.pSample->SetDiscontinuity(TRUE);
}

REFERENCE_TIME CDeliveryLoop::GetClockStreamTime() {
    REFERENCE_TIME rtNow = 0;
    return GetSite().GetClockTime(rtNow) ? rtNow - GetSite().GetStreamStart() : 0;
}

// ---------------- delivery, resets

CDeliveryLoop::EStep CDeliveryLoop::DeliverStamped(Frame& frame) {
    if (m_rules->bRepairs) GetTiming().bReadyToReset = false;
    if (m_pin.IsVideo() && m_rules->bReadsFlags) Trace("Before Deliver \n");
    m_dwDeliverTick = TickCount();
    const HRESULT hr = DeliverBracketed(frame, m_rules->bRepairs);
    if (m_rules->bRepairs) GetTiming().bReadyToReset = true;
    if (!CountsBeforeDelivery()) ++GetTiming().nAccessCount;
    TraceStatistics(frame);
    if (m_rules->bRepairs) {
        ResetHook();
        if (GetSite().IsResetting()) SleepMs(kResettingPauseMs);
    }
    // Once a reset is requested the last stamp stays where the broken path put it.
    if (!m_bResetRequested) m_llLastStamp = frame.llStamp;
    return hr != S_OK && m_rules->bEndsOnDeliveryFailure ? EStep::End : EStep::NextFrame;
}

/// A pin that is blocked and whose wait a flush or a stop ended is not delivered to. The stop is looked at
/// behind that wait, since it may come during it.
HRESULT CDeliveryLoop::DeliverBracketed(Frame& frame, bool bMayWithhold) {
    WaitForFlush();
    const CPinUse use(m_pin.GetFlowControl());
    const CUnderWay underWay(m_pin.m_evNotDelivering);
    const bool bWithheld =
        IsLeftBehind(frame) || (bMayWithhold && (IsWithheld() || GetThread().IsStopping()));
    const HRESULT hr = use && !bWithheld ? m_pin.Deliver(frame.pSample.Get()) : S_OK;
    frame.pSample = nullptr;
    return hr;
}

void CDeliveryLoop::WaitForFlush() {
    constexpr std::uint32_t kLookMs = 10;  // how soon a stop is noticed
    while (!m_pin.m_evNotFlushing.Wait(kLookMs) && !GetThread().IsStopping()) {
    }
}

void CDeliveryLoop::EndStream(const Frame& frame) {
    WaitForFlush();
    const CUnderWay underWay(m_pin.m_evNotDelivering);
    if (!IsLeftBehind(frame)) PassEnd();
}

/// The statistics line of a delivered frame.
void CDeliveryLoop::TraceStatistics(const Frame& frame) {
    if (!HasTraceSink()) return;
    const std::int64_t llStart = GetTiming().rtStart, llClock = m_rtClock;
    char szTimes[64] = "";  // which times stand in front depends on the variant
    if (Is(ETimeline::ClockFollowing)) {
        std::snprintf(szTimes, sizeof szTimes, "SC=%" PRId64 " ST=%" PRId64 " ", llClock, llStart);
    } else if (Is(ETimeline::ProgramStream) || Is(ETimeline::JumpClamping)) {
        const char* pszName = Is(ETimeline::ProgramStream) ? "ST" : "TS";
        std::snprintf(szTimes, sizeof szTimes, "%s=%" PRId64 " ", pszName, llStart);
    }
    char szLead[48];
    if (Is(ETimeline::ClockFollowing)) {
        std::snprintf(szLead, sizeof szLead, "stime=%" PRId64, llClock);
    } else {
        std::snprintf(szLead, sizeof szLead, "td=%d", m_nAhead);
    }
    const std::uint32_t dwAfter = TickCount();
    Trace("%s::AC=%5d Wbms=%2d Rbms=%2d %s%s=%" PRId64 " %s=%" PRId64 " DC=%" PRId64
          " there=%ld  %s=%ld %s=%d %s\n",
          m_constants.pszStream, GetTiming().nAccessCount.load(), GetFreeBlocks(), GetPending(), szTimes,
          m_constants.pszStamp, frame.llStamp, m_constants.pszStep, frame.llStamp - m_llLastStamp,
          m_llDataCount, static_cast<long>(m_dwDeliverTick), m_constants.pszAfter, static_cast<long>(dwAfter),
          m_constants.pszInDelivery, static_cast<int>(dwAfter - m_dwDeliverTick), szLead);
}

void CDeliveryLoop::RequestReset() {
    GetSite().RequestReset();
    m_bResetRequested = true;
}

void CDeliveryLoop::ResetHook() {
    if (!GetSite().IsResetting()) return;
    if (GetPeerTiming().bReadyToReset) {
        m_pin.WaitReadyToReset();
    } else {
        Trace(m_pin.IsVideo() ? "=======>Video is not ready to reset!!!\n"
                              : "=======>Audio is not ready to reset!!!\n");
    }
}

}  // namespace kest

#include "pins/DeliveryLoop.h"

#include <utility>

#include "graph/TimeArithmetic.h"
#include "pins/AudioTimeline.h"
#include "pins/VideoTimeline.h"
#include "platform/DebugText.h"
#include "platform/Time.h"

namespace kest {
namespace {

constexpr std::uint32_t kPauseMs = 10;                      // without a sample, a frame or a time base
constexpr std::uint32_t kResettingPauseMs = 100;            // after a frame, while a reset is in progress
constexpr DWORD kAudioBufferFlags = 0x100;                  // asked of the allocator with every audio sample
constexpr REFERENCE_TIME kSegmentEnd = 0x7F00000000000000;  // of the segments that pins announce

constexpr DeliveryRules kVideoProgramStream = {.bEndsOnReadFailure = false,
                                               .bEndsOnDeliveryFailure = false,
                                               .bReadsFlags = true,
                                               .bTakesPartInResets = true};
constexpr DeliveryRules kVideoBasic = {.bEndsOnReadFailure = false,
                                       .bEndsOnDeliveryFailure = true,
                                       .bReadsFlags = false,
                                       .bTakesPartInResets = true};
constexpr DeliveryRules kVideoTransport = {.bEndsOnReadFailure = true,
                                           .bEndsOnDeliveryFailure = true,
                                           .bReadsFlags = false,
                                           .bTakesPartInResets = true};
constexpr DeliveryRules kVideoElementary = {.bEndsOnReadFailure = true,
                                            .bEndsOnDeliveryFailure = true,
                                            .bReadsFlags = false,
                                            .bTakesPartInResets = false};
constexpr DeliveryRules kAudioProgramStream = kVideoProgramStream;
constexpr DeliveryRules kAudioOther = kVideoBasic;
constexpr DeliveryRules kAudioPlain = {.bEndsOnReadFailure = false,
                                       .bEndsOnDeliveryFailure = true,
                                       .bReadsFlags = false,
                                       .bTakesPartInResets = false};

const DeliveryRules& FindRules(EPin pin, ETimeline variant) {
    const bool bVideo = pin == EPin::Video;
    switch (variant) {
        case ETimeline::ProgramStream: return bVideo ? kVideoProgramStream : kAudioProgramStream;
        case ETimeline::Basic: return bVideo ? kVideoBasic : kAudioOther;
        case ETimeline::JumpClamping:
        case ETimeline::ClockFollowing: return bVideo ? kVideoTransport : kAudioOther;
        default: return bVideo ? kVideoElementary : kAudioPlain;
    }
}

std::unique_ptr<CTimeline> MakeTimeline(EPin pin, const WorkingMode& mode, bool bPush) {
    if (pin == EPin::Video) return std::make_unique<CVideoTimeline>(mode);
    return std::make_unique<CAudioTimeline>(mode, bPush);
}

}  // namespace

CDeliveryLoop::CDeliveryLoop(const DeliveryContext& context, Control control)
    : m_context(context),
      m_control(control),
      m_mode(FindWorkingMode(context.site.GetWorkingMode())),
      m_variant(context.IsVideo() ? m_mode.videoTimeline : m_mode.audioTimeline),
      m_rules(FindRules(context.pin, m_variant)),
      m_pTimeline(MakeTimeline(context.pin, m_mode, context.site.IsPushSource())),
      m_statistics(context, m_variant) {}

std::int32_t CDeliveryLoop::Run() {
    if (IsStopping()) return -1;
    UpdateOwn([this](PinTiming& own) {
        own.bFirstTime = true;
        own.rtLastStart = 0;
        if (!m_context.IsVideo()) own.nAccessCount = 0;
    });
    m_context.gate.SetEnded(false);
    if (Is(ETimeline::None)) {
    } else if (!m_context.output.IsConnected()) {
        m_control.evStop.Wait();
    } else {
        while (Step() != EStep::End) {
        }
    }
    Trace(m_context.IsVideo() ? "CKestDemux2VideoOutputPin Stop!!! .\n"
                              : "\n CKestDemux2AudioOutputPin Stop!!! .\n");
    return m_nExitCode;
}

/// The frame step: from an empty sample to a delivered one.
CDeliveryLoop::EStep CDeliveryLoop::Step() {
    m_control.evRun.Wait();
    if (IsStopping()) return EStep::End;
    Frame frame;
    if (!TakeSample(frame)) {
        CEvent* const apEvents[] = {&m_control.evStop, &m_context.evActive};
        CEvent::WaitAny(apEvents, kPauseMs);
        return EStep::NextFrame;
    }
    if (const EStep step = ReadFrame(frame); step != EStep::GoOn) return step;
    if (m_context.IsVideo() && !Is(ETimeline::ElementaryStream)) {
        UpdateOwn([](PinTiming& own) { ++own.nAccessCount; });
    }
    frame.pSample->SetActualDataLength(frame.taken.nLength);
    m_statistics.CountFrame(frame.taken.nLength);
    if (m_context.site.IsFreeRun() && !Is(ETimeline::ElementaryStream)) return DeliverFree(frame);
    if (m_rules.bReadsFlags) {
        if (const EStep step = HandleFlags(frame); step != EStep::GoOn) return step;
    }
    Placement place;
    if (const EStep step = PlaceFrame(frame, place); step != EStep::GoOn) return step;
    return DeliverPlaced(frame, place);
}

// ---------------- getting a frame

void CDeliveryLoop::TraceStep(const char* pszText) const {
    if (!m_context.IsVideo() && Is(ETimeline::ProgramStream)) Trace("%s", pszText);
}

bool CDeliveryLoop::TakeSample(Frame& frame) {
    TraceStep("=======>Audio 1\n");
    const HRESULT hr = m_context.output.GetDeliveryBuffer(frame.pSample.Put(), nullptr, nullptr,
                                                          m_context.IsVideo() ? 0 : kAudioBufferFlags);
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
    if (m_rules.bReadsFlags) DropQueuedFrames(frame);
    TraceStep("=======>Audio 2\n");
    frame.taken = m_context.frames.Read(frame.buffer, kInfinite);
    const FRAME_INFO& info = frame.taken.info;
    const int nLength = frame.taken.nLength;
    if (nLength > 0) {
        TraceStep("=======>Audio 3\n");
        frame.timed.llTimestamp = m_context.IsVideo() ? info.llPts : info.llDts;
        frame.timed.bDiscontinuity = info.bDiscontinuity;
        frame.timed.bytes = frame.buffer.first(static_cast<std::size_t>(nLength));
        return EStep::GoOn;
    }
    frame.pSample = nullptr;
    if (info.bEndOfStream) {
        EndStream(frame);
        return EStep::NextFrame;
    }
    const bool bAudioProgram = !m_context.IsVideo() && Is(ETimeline::ProgramStream);
    if (nLength < 0 || bAudioProgram) m_control.evStop.Wait(kPauseMs);  // a closed queue: the stop will come
    return m_rules.bEndsOnReadFailure ? EStep::End : EStep::NextFrame;
}

/// After a reset, drops everything that was queued before it; only an end of the stream is not lost, since no
/// other may follow.
void CDeliveryLoop::DropQueuedFrames(Frame& frame) {
    TraceStep("=======>Audio 1.5\n");
    bool bPending = false;
    UpdateOwn([&](PinTiming& own) { bPending = std::exchange(own.bRestartPending, false); });
    while (bPending && m_context.frames.GetPending() > 0 && !IsStopping()) {
        frame.taken = m_context.frames.Read(frame.buffer, 0);
        if (frame.taken.info.bEndOfStream) return EndStream(frame);
        if (!m_context.IsVideo()) SleepMs(kPauseMs);
    }
}

/// The queue has been emptied, by a seek that is not the frame's own, since the frame was taken.
bool CDeliveryLoop::IsStale(const Frame& frame) const {
    if (frame.nKeptSeek) return *frame.nKeptSeek != m_context.pSeeking->GetSeekCount();
    return m_context.frames.IsPast(frame.taken.nGeneration);
}

// ---------------- record flags, free run

CDeliveryLoop::EStep CDeliveryLoop::HandleFlags(Frame& frame) {
    const FRAME_INFO& info = frame.taken.info;
    if (info.bEndOfStream) {  // an end-of-stream record with bytes: they are no frame
        EndStream(frame);
        return EStep::NextFrame;
    }
    if (m_context.pSeeking && !IsStale(frame)) m_context.pSeeking->SetFilePos(info.llFilePos);
    if (!info.bSegmentMarker) return EStep::GoOn;
    if (m_context.IsVideo()) {
        DeliverVideoMarker(frame);
    } else {
        DeliverAudioMarker(frame);
    }
    return EStep::NextFrame;
}

/// Passes the end of the stream downstream.
void CDeliveryLoop::EndStream(const Frame& frame) {
    m_context.gate.WaitForFlush(m_control.evStop);
    std::optional<CDeliveryGate::CUnderWay> underWay;
    {
        CAutoLock lock(m_context.gate.GetFlushLock());  // the other pin's flush comes before or not at all
        underWay.emplace(m_context.gate);
        if (IsStale(frame)) return;
        m_context.gate.SetEnded(true);
    }
    m_context.output.DeliverEndOfStream();
    if (!m_context.IsVideo()) return;
    Trace(" $$$$ END OF FILE $$$\n");
    DebugText(" $$$$ END OF FILE $$$\n");
}

/// The next frame would restart the timing: this one does. @return whether it would.
bool CDeliveryLoop::TakeFirstTime() {
    bool bFirstTime = false;
    UpdateOwn([&](PinTiming& own) { bFirstTime = std::exchange(own.bFirstTime, false); });
    return bFirstTime;
}

/// A trick-play frame goes out at once and untimed.
void CDeliveryLoop::DeliverVideoMarker(Frame& frame) {
    constexpr double kMarkerRate = 10.0;
    constexpr std::uint32_t kShowMs = 10;
    const bool bShown = !frame.taken.info.bNoVideo;
    if (!IsStale(frame) && TakeFirstTime()) Announce(frame, kMarkerRate);
    frame.pSample->SetPreroll(!bShown);
    Trace(bShown ? "** Video ** %d\n" : "** No Video ** %d\n",
          static_cast<int>(m_context.frames.GetPending()));
    if (bShown) SleepMs(kShowMs);
    frame.pSample->SetMediaType(nullptr);
    frame.pSample->SetDiscontinuity(TRUE);
    Deliver(frame, /*bMayWithhold=*/false);
}

/// The same; the segment is announced behind it.
void CDeliveryLoop::DeliverAudioMarker(Frame& frame) {
    constexpr double kMarkerRate = 2.0;
    frame.pSample->SetDiscontinuity(TRUE);
    Deliver(frame, /*bMayWithhold=*/false);
    Trace("** Audio **\n");
    if (!IsStale(frame) && TakeFirstTime()) Announce(frame, kMarkerRate);
}

/// Delivers a frame without times and without pacing.
CDeliveryLoop::EStep CDeliveryLoop::DeliverFree(Frame& frame) {
    if (m_context.IsVideo()) {
        const HRESULT hr = Deliver(frame, /*bMayWithhold=*/false);
        return hr != S_OK && m_rules.bEndsOnDeliveryFailure ? EStep::End : EStep::NextFrame;
    }
    if (!IsStale(frame) && TakeFirstTime()) frame.pSample->SetDiscontinuity(TRUE);
    Deliver(frame, /*bMayWithhold=*/false);
    UpdateOwn([](PinTiming& own) { ++own.nAccessCount; });
    return EStep::NextFrame;
}

// ---------------- time

/// Finds the frame's place, and makes its sample say so.
CDeliveryLoop::EStep CDeliveryLoop::PlaceFrame(Frame& frame, Placement& place) {
    std::uint32_t dwTick = TickCount();
    for (;;) {
        place = m_context.timing.Update([&](AvTimes& times) {
            Placement found;
            if (IsStale(frame)) {
                found.request = ERequest::Drop;
            } else {
                found = m_pTimeline->Map(frame.timed, times);
            }
            return found;
        });
        if (place.request == ERequest::None) break;
        if (!Fulfil(place.request, frame)) {
            const bool bEnds = place.request == ERequest::AwaitTimeBase && IsStopping();
            if (!bEnds || Is(ETimeline::ProgramStream))
                return EStep::NextFrame;  // where the stop ends the loop
            m_nExitCode = 0;
            return EStep::End;
        }
        if (place.request != ERequest::AwaitTimeBase) dwTick = TickCount();
    }
    m_statistics.OnPlaced(place, frame.taken.nLength, dwTick);
    ActOn(frame, place);
    if (m_rules.bTakesPartInResets) ResetHook();

    place.bSkipAhead = false;
    place.traces.clear();
    m_context.timing.Update([&](AvTimes& times) {
        m_pTimeline->Finish(frame.timed, times, place);
        if (m_rules.bTakesPartInResets) times.Of(m_context.pin).bReadyToReset = false;
    });
    if (!place.traces.empty()) Trace("%s", place.traces.c_str());
    if (place.bSkipAhead) SkipAhead(frame);

    REFERENCE_TIME rtStart = place.rtStart, rtStop = SaturatedAdd(rtStart, 1);
    frame.pSample->SetTime(&rtStart, &rtStop);
    frame.pSample->SetSyncPoint(place.bSyncPoint);
    frame.pSample->SetDiscontinuity(place.bDiscontinuity);
    frame.pSample->SetPreroll(place.bPreroll);
    if (place.bRestart) frame.pSample->SetMediaType(nullptr);
    return EStep::GoOn;
}

/// Does what must come before a frame can be placed. @return false: it is not to be placed.
bool CDeliveryLoop::Fulfil(ERequest request, Frame& frame) {
    switch (request) {
        case ERequest::None: return true;
        case ERequest::Drop: return false;
        case ERequest::FlushOwn: Flush(frame, /*bBoth=*/false); return true;
        case ERequest::FlushBoth: Flush(frame, /*bBoth=*/true); return true;
        case ERequest::AwaitTimeBase: ++frame.timed.nBaseWaits; return !m_control.evStop.Wait(kPauseMs);
        case ERequest::ReadClock: {
            REFERENCE_TIME rtNow = 0;
            const bool bClock = m_context.site.GetClockTime(rtNow);
            frame.timed.rtClock = bClock ? SaturatedSubtract(rtNow, m_context.site.GetStreamStart()) : 0;
            return true;
        }
    }
    return false;
}

void CDeliveryLoop::Flush(Frame& frame, bool bBoth) {
    auto IsFrameStale = [&] { return IsStale(frame); };
    m_context.gate.Flush(IsFrameStale);
    if (bBoth && m_context.pPeerGate) m_context.pPeerGate->FlushUnlessEnded(IsFrameStale);
    frame.timed.bFlushed = true;
}

/// What others see of a frame's place, in the order of the rules.
void CDeliveryLoop::ActOn(Frame& frame, const Placement& place) {
    if (!place.debugText.empty()) DebugText("%s", place.debugText.c_str());
    if (place.bAnnounce) Announce(frame, 1.0);
    if (!place.traces.empty()) Trace("%s", place.traces.c_str());
    if (place.bSkipAhead) SkipAhead(frame);
    if (place.bAwaitAudio) AwaitAudio(frame, place);
    if (place.bRequestReset && !IsStale(frame)) m_context.site.RequestReset();
}

/// Announces a segment, unless the frame that begins it is stale.
void CDeliveryLoop::Announce(const Frame& frame, double dRate) {
    m_context.gate.WaitForFlush(m_control.evStop);
    const CDeliveryGate::CUnderWay underWay(m_context.gate);
    if (!IsStale(frame)) m_context.output.DeliverNewSegment(0, kSegmentEnd, dRate);
}

void CDeliveryLoop::AwaitAudio(const Frame& frame, const Placement& place) {
    while (CVideoTimeline::IsAudioBehind(m_context.timing.Get(), place.rtStart) && !IsStale(frame)) {
        if (m_control.evStop.Wait(1)) return;
    }
}

/// Seeks a little ahead; the frame at hand still goes out.
void CDeliveryLoop::SkipAhead(Frame& frame) {
    if (const auto nSeek = m_context.pSeeking->SkipAhead([&] { return IsStale(frame); }))
        frame.nKeptSeek = nSeek;
}

// ---------------- delivery, resets

CDeliveryLoop::EStep CDeliveryLoop::DeliverPlaced(Frame& frame, const Placement& place) {
    if (m_context.IsVideo() && Is(ETimeline::ProgramStream)) Trace("Before Deliver \n");
    m_statistics.OnDeliver();
    const HRESULT hr = Deliver(frame, m_rules.bTakesPartInResets);
    UpdateOwn([this](PinTiming& own) {
        if (m_rules.bTakesPartInResets) own.bReadyToReset = true;
        if (!m_context.IsVideo() || Is(ETimeline::ElementaryStream)) ++own.nAccessCount;
    });
    m_statistics.Write(frame.timed, place);
    if (m_rules.bTakesPartInResets) {
        ResetHook();
        if (m_context.site.IsResetting()) SleepMs(kResettingPauseMs);
    }
    return hr != S_OK && m_rules.bEndsOnDeliveryFailure ? EStep::End : EStep::NextFrame;
}

/// One delivery between start-using and stop-using; releases the sample. A pin that is blocked and whose wait
/// a flush or a stop ended is not delivered to. The stop is tested behind that wait, since it may come during
/// it.
/// @param bMayWithhold  a frame that is withheld, or that a stop has overtaken, is only released.
HRESULT CDeliveryLoop::Deliver(Frame& frame, bool bMayWithhold) {
    m_context.gate.WaitForFlush(m_control.evStop);
    const CPinUse use(m_context.flowControl);
    const CDeliveryGate::CUnderWay underWay(m_context.gate);
    const bool bWithheld =
        IsStale(frame) || (bMayWithhold && (IsStopping() || m_pTimeline->IsWithheld(m_context.timing.Get())));
    HRESULT hr = S_OK;
    if (use && !bWithheld) {
        m_context.gate.SetEnded(false);
        hr = m_context.output.Deliver(frame.pSample.Get());
        if (hr == S_OK) ++m_context.nDelivered;
    }
    frame.pSample = nullptr;
    return hr;
}

void CDeliveryLoop::ResetHook() {
    if (!m_context.site.IsResetting()) return;
    if (m_context.timing.Get(PeerOf(m_context.pin)).bReadyToReset) return WaitReadyToReset();
    Trace(m_context.IsVideo() ? "=======>Video is not ready to reset!!!\n"
                              : "=======>Audio is not ready to reset!!!\n");
}

/// Parks the thread while a reset is in progress.
void CDeliveryLoop::WaitReadyToReset() {
    constexpr std::uint32_t kWaitMs = 100;
    UpdateOwn([](PinTiming& own) { own.bReadyToReset = true; });
    Trace(m_context.IsVideo() ? "Video is ready to reset\n" : "Audio is ready to reset\n");
    while (m_context.site.IsResetting()) {
        if (m_control.evStop.Wait(kWaitMs)) return;
        Trace(m_context.IsVideo() ? "Video is ready  and waiting for 100ms\n"
                                  : "Audio is ready and waited 100ms\n");
    }
}

}  // namespace kest

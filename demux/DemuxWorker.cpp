#include "demux/DemuxWorker.h"

#include <algorithm>

#include "platform/DebugText.h"

namespace kest {
namespace {

STREAM_COUNTERS MakeStreamCounters(std::uint64_t nPackets, const FrameCounters& frames) {
    return {.nPackets = nPackets,
            .nFramesQueued = frames.nQueued,
            .nFramesDelivered = 0,
            .nFramesCut = frames.nCut,
            .nFramesLost = frames.nLost,
            .llBytesCut = frames.llBytesCut,
            .llBytesLost = frames.llBytesLost,
            .nDiscontinuities = frames.nDiscontinuities};
}

}  // namespace

CDemuxWorker::CDemuxWorker(const DemuxSizes& sizes)
    : m_video(sizes.video), m_audio(sizes.audio), m_sizes(sizes) {
    m_video.SetSuperseded(m_bNewSegment);
    m_audio.SetSuperseded(m_bNewSegment);
}

void CDemuxWorker::EndThread() {
    if (IsRunning()) Stop();
    CloseThread();
}

// ---------------- opening and ending

int CDemuxWorker::Open(CRingBuffer* pStreamBuffer, CBlockMemFileEx* pVideoQueue,
                       CBlockMemFileEx* pAudioQueue) {
    int nResult = 0;
    try {
        m_pushed.Attach(pStreamBuffer, m_sizes.nRingSize, m_sizes.nMaxChunk, m_sizes.nReadUnit);
        m_video.Attach(pVideoQueue);
        m_audio.Attach(pAudioQueue);
        nResult = OpenSides();
        m_bOpen = nResult == 0;
        if (m_bOpen) StartThread();
    } catch (...) {
        Detach();
        throw;
    }
    if (!m_bOpen) Detach();
    return nResult;
}

int CDemuxWorker::OpenSides() {
    m_video.OpenSides();
    m_audio.OpenSides();
    m_pulled.Open();
    return m_pushed.OpenSides();
}

void CDemuxWorker::CloseSides() {
    m_pulled.Close();
    m_pushed.CloseSides();
    m_video.CloseSides();
    m_audio.CloseSides();
}

/// Undoes what an `Open` that failed has done.
void CDemuxWorker::Detach() {
    if (m_bOpen.exchange(false)) CloseSides();
    m_pushed.Detach();
    m_video.Detach();
    m_audio.Detach();
}

void CDemuxWorker::Stop() {
    CWorkerThread::Stop();
    if (!m_bOpen) return;
    CloseSides();
    if (WaitForThread(m_sizes.nStopBoundMs) == WAIT_TIMEOUT) EndByForce();
    OpenSides();
    m_pParser->Reset();
}

/// A thread inside a read of a foreign reader comes to no wait that would end it: the reader is asked to give
/// the read up.
void CDemuxWorker::EndByForce() {
    const bool bPulling = IsPulling();
    if (bPulling) m_pulled.BeginFlush();
    KillThread();
    if (bPulling) m_pulled.EndFlush();
}

// ---------------- requests of other threads

int CDemuxWorker::PushData(Bytes data) {
    if (!m_bOpen || IsPulling()) return 0;
    return m_pushed.Write(data, [this] { return IsRunning(); });
}

void CDemuxWorker::EndInput() {
    if (!m_bOpen || IsPulling()) return;
    m_bEndSent = false;
    m_pushed.EndInput();
}

bool CDemuxWorker::HasTakenAll() const {
    if (!IsRunning()) return true;
    return IsPulling() || m_pushed.IsEnding() ? m_bEndSent.load() : m_pushed.IsStarved();
}

void CDemuxWorker::SetSettings(const ParseSettings& settings) {
    m_settings = settings;
    m_pParser->SetSettings(settings);
    m_video.SetLimits(settings.nVideoBlockSize, settings.bDrain);
    m_audio.SetLimits(0, settings.bDrain);
    if (!m_pTrickPlay) return;
    EnableTrickPlay();
    m_pTrickPlay->SetSettings(settings);
}

COUNTERS CDemuxWorker::GetCounters() const {
    const ParseCounters& parsed = m_pParser->GetCounters();
    return {.llBytesRead = m_pulled.CountBytesRead() + m_pushed.CountBytesRead(),
            .nPacks = parsed.nPacks,
            .nOtherPackets = parsed.nOtherPackets,
            .nResyncs = parsed.nResyncs,
            .llBytesSkipped = parsed.llBytesSkipped,
            .nResets = 0,
            .video = MakeStreamCounters(parsed.nVideoPackets, m_video.GetCounters()),
            .audio = MakeStreamCounters(parsed.nAudioPackets, m_audio.GetCounters())};
}

void CDemuxWorker::Reset() {
    if (!m_bOpen) return;
    std::lock_guard lock(m_requestMutex);
    m_bReset = true;
    if (!IsPulling()) m_pushed.Flush();
}

void CDemuxWorker::RequestSegment(std::int64_t llStart) {
    if (!m_bOpen) return;
    std::lock_guard lock(m_requestMutex);
    EmptyForSegment(llStart);
}

// The segment before the rate: a step that already sees the new rate sees the request too, and ends at once.
void CDemuxWorker::RequestRate(int nRate) {
    std::lock_guard lock(m_requestMutex);
    if (nRate == m_nRate) return;
    if (m_bOpen && !m_bNewSegment) EmptyForSegment(m_llPosition);
    m_nRate = nRate;
}

/// Under m_requestMutex: were the queues emptied after the thread has taken the request, frames of the new
/// segment would be lost. The flag first: what the thread is about to queue is of the old segment.
void CDemuxWorker::EmptyForSegment(std::int64_t llStart) {
    m_llSegmentPos = llStart;
    m_bNewSegment = true;
    if (!IsPulling()) m_pushed.Flush();
    m_video.GetQueue().Reset();
    m_audio.GetQueue().Reset();
}

void CDemuxWorker::HonourRequests() {
    if (!m_bReset && !m_bNewSegment) return;
    std::lock_guard lock(m_requestMutex);
    m_bReset = false;
    m_input.Drop();
    m_pushed.Accept();
    m_pParser->Reset();
    if (m_bNewSegment.exchange(false)) BeginSegment();
}

/// Under m_requestMutex.
void CDemuxWorker::BeginSegment() {
    m_input.SeekTo(m_llSegmentPos);
    if (m_pTrickPlay) m_pTrickPlay->SeekTo(m_llSegmentPos);
    m_llPosition = m_input.GetPosition(0);
    m_bEndSent = false;
    m_video.GetQueue().Reset();
    m_audio.GetQueue().Reset();
    Trace("==> New Segment <==\n");
}

// ---------------- the thread

std::int32_t CDemuxWorker::ThreadProc() {
    m_evRun.Wait();
    if (m_evStop.IsSignalled() || !m_bOpen) return -1;
    BeginRun();
    for (bool bEnded = false;
         !bEnded && (m_evRun.IsSignalled() || m_evRun.Wait()) && !m_evStop.IsSignalled();) {
        HonourRequests();
        if (IsTrickPlay()) {
            PlayTrick();
            continue;
        }
        switch (m_pParser->ParseUnit()) {
            case EParsed::Unit:
                if (m_bEndSent) m_bEndSent = false;
                break;
            case EParsed::Searching: break;
            case EParsed::NoData: OnNoData(); break;
            case EParsed::Ended: bEnded = true; break;
            case EParsed::Failed: return -1;
        }
        // Not in one order with all else: that would wait here until what was copied into a frame is stored.
        m_llPosition.store(m_input.GetPosition(0), std::memory_order_release);
    }
    m_pParser->End();
    return 0;
}

/// A pulled source is read from where the last segment was asked to begin. What was pushed already stays. A
/// reset that was requested before the run has nothing to reset.
void CDemuxWorker::BeginRun() {
    std::lock_guard lock(m_requestMutex);
    const bool bPulling = IsPulling();
    m_input.SetSource(bPulling ? static_cast<CByteSource*>(&m_pulled) : &m_pushed, bPulling);
    m_pushed.Accept();
    m_pParser->Begin();
    m_bReset = false;
    m_bEndSent = false;
    if (bPulling) m_bNewSegment = true;
}

/// An input that has nothing more ends both streams, once until there is data again; unless it is being left
/// for another place.
void CDemuxWorker::OnNoData() {
    constexpr std::uint32_t kPauseMs = 10;
    if (m_evStop.IsSignalled() || m_bReset || m_bNewSegment) return;
    if (!m_bEndSent && (IsPulling() || m_pushed.HasEnded())) OnEnd();
    m_evStop.Wait(kPauseMs);
}

/// Who pushes ends the streams himself. An input that cannot be padded has more by now, and has not ended.
void CDemuxWorker::OnEnd() {
    if (m_settings.bDrain) {
        if (!m_input.Pad()) return;
        m_pParser->Drain();
        m_input.Drop();
    }
    if (IsPulling()) {
        m_audio.QueueEnd();
        m_video.QueueEnd();
    }
    m_bEndSent = true;
}

// ---------------- trick play

void CDemuxWorker::EnableTrickPlay() {
    ITrickPlayHost& host = *this;
    m_pTrickPlay =
        std::make_unique<CTrickPlay>(host, std::max(m_sizes.video.nMaxFrame, m_settings.nVideoBlockSize));
}

/// One step; what is pushed plays at the normal rate alone.
void CDemuxWorker::PlayTrick() {
    constexpr std::uint32_t kPauseMs = 100;
    m_bTrickPlayIdle = false;
    if (m_pTrickPlay && IsPulling()) {
        const CTrickPlay::EStep step = m_pTrickPlay->Step(m_nRate);
        m_llPosition = m_pTrickPlay->GetPosition();
        if (step == CTrickPlay::EStep::Done || m_bNewSegment) return;
    }
    m_bTrickPlayIdle = true;
    m_evStop.Wait(kPauseMs);
}

// The generation before the flag: a segment that is requested later empties the queue later.
bool CDemuxWorker::MayGoOn() {
    m_llPosition = m_pTrickPlay->GetPosition();
    m_evRun.Wait();
    m_nFrameGeneration = m_video.GetQueue().GetWriteGeneration();
    return !m_bNewSegment && !m_evStop.IsSignalled();
}

bool CDemuxWorker::Read(std::int64_t llPosition, std::span<std::uint8_t> room) {
    return !m_bNewSegment && m_pulled.Read(llPosition, room);
}

void CDemuxWorker::Deliver(Bytes frame, const FRAME_INFO& info) {
    if (m_video.GetQueue().WriteEx(frame, &info, kInfinite, m_nFrameGeneration) > 0)
        m_video.CountQueued(info);
}

}  // namespace kest

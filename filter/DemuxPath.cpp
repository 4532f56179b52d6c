#include "filter/DemuxPath.h"

#include "graph/Guard.h"
#include "platform/DebugText.h"
#include "platform/Time.h"

namespace kest {
namespace {

constexpr int kReadyPasses = 10;              // waits for the pins before a reset goes on without them
constexpr std::uint32_t kReadyPauseMs = 100;  // of one such wait
constexpr std::uint32_t kEndPauseMs = 10;     // for delivery threads that have been asked to end

/// Starts a worker, held. @return whether there is a thread.
bool RestartWorker(CWorkerThread& worker) {
    worker.Restart();
    return worker.IsRunning();
}

/// Opens a pin's frame queue and starts its delivery thread. A thread that ended by itself has left its queue
/// open, with frames in it.
HRESULT StartDelivery(CDemuxOutputPin& pin) {
    pin.CloseMemFiles();
    pin.WOpenMemFile();
    pin.ROpenMemFile();
    if (!RestartWorker(pin.GetDeliveryThread())) return E_OUTOFMEMORY;
    pin.GetDeliveryThread().Resume();
    return S_OK;
}

}  // namespace

// ---------------- families of demuxers

/// In what the handling of a family differs from that of the others.
struct CDemuxPath::Family {
    HRESULT (CDemuxPath::*Create)();  // makes the demuxer; null: the path begins at the frame queues
    CWorkerThread* (CDemuxPath::*Core)() const;  // the demuxer
    void (CDemuxPath::*BeforeStart)();           // before any thread starts
    void (CDemuxPath::*BeforeDelivery)();  // the demuxer is held, the delivery threads are not yet there
};

// By ECoreFamily.
constinit const CDemuxPath::Family CDemuxPath::kFamilies[] = {
    /* None      */ {nullptr, nullptr, &CDemuxPath::BeginElementaryStream, nullptr},
    /* Transport */ {nullptr, nullptr, nullptr, &CDemuxPath::SelectTsTimeReference},
    /* Program   */ {&CDemuxPath::CreatePsDemux, &CDemuxPath::PsCore, &CDemuxPath::InitSeeking, nullptr},
    /* Mpeg1     */ {nullptr, nullptr, nullptr, nullptr},
};

const CDemuxPath::Family& CDemuxPath::GetFamily() const {
    return kFamilies[static_cast<std::size_t>(Mode().family)];
}

/// The demuxer of the working mode, or null where there is none.
CWorkerThread* CDemuxPath::Core() const {
    const auto pfnCore = GetFamily().Core;
    return pfnCore ? (this->*pfnCore)() : nullptr;
}

/// Replaces the program-stream demuxer by a new one.
HRESULT CDemuxPath::CreatePsDemux() {
    m_pPsDemux.reset();  // ends its thread before the next one writes to the same queues
    auto pDemux = std::make_unique<KestMpeg2PsPullDemux>();
    Trace("CreateMpeg2PSInstance <-----------------!!!!!!\n");
    const int nError = pDemux->Open(nullptr, &m_videoPin.GetFrameQueue(), &m_audioPin.GetFrameQueue());
    if (nError != 0 || !pDemux->IsRunning()) return E_OUTOFMEMORY;
    m_pPsDemux = std::move(pDemux);
    return S_OK;
}

/// The demuxer plays at the rate that the seeking object shows, which a start may set back.
void CDemuxPath::InitSeeking() {
    double dRate = 1.0;
    m_videoPin.InitSeeking();
    m_videoPin.GetSeeking().GetRate(&dRate);
    SetRate(dRate);
}

/// Only traced so far: there is no transport-stream demuxer that would follow.
void CDemuxPath::SelectTsTimeReference() {
    const auto nOutput = m_settings.nDemuxOutput;
    if (nOutput == kDemuxOutputPes || nOutput == kDemuxOutputFreeRun) {
        Trace("Transport demux core uses PTS/DTS as time reference\n");
    } else {
        Trace("Transport demux core uses Vidoe Elementary timing info as time reference\n");
    }
}

void CDemuxPath::BeginElementaryStream() {
    m_timing.Update([](AvTimes& times) {
        times.video.nAccessCount = 0;
        times.video.bFirstTime = true;
    });
}

// ---------------- connection

CDemuxPath::CDemuxPath(CKestDemux2VideoOutputPin& videoPin, CKestDemux2AudioOutputPin& audioPin,
                       CAvTiming& timing, const SEND_SETTINGS& settings)
    : m_videoPin(videoPin),
      m_audioPin(audioPin),
      m_apOutputPins{&videoPin, &audioPin},
      m_timing(timing),
      m_settings(settings) {
    m_videoPin.SetPeer(m_audioPin);
    m_audioPin.SetPeer(m_videoPin);
}

HRESULT CDemuxPath::EnterMode(EWorkingMode mode) {
    if (mode == EWorkingMode::Mpeg4VideoEs) m_bFreeRun = false;
    m_nWorkingMode = EWorkingMode::None;  // the next connection tries again to make what could not be made
    const auto pfnCreate = kFamilies[static_cast<std::size_t>(FindWorkingMode(mode).family)].Create;
    const HRESULT hr = pfnCreate ? Guard([&] { return (this->*pfnCreate)(); }) : S_OK;
    if (SUCCEEDED(hr)) m_nWorkingMode = mode;
    return hr;
}

void CDemuxPath::SetReader(IAsyncReader* pReader) {
    if (m_pPsDemux) m_pPsDemux->SetReader(pReader);
    m_videoPin.SetAsyncReader(pReader);
    m_videoPin.SetFilePos(0);  // a position in the source before means nothing in the next
    m_videoPin.InitSeeking();
}

void CDemuxPath::SetInGraph(bool bInGraph) {
    for (CDemuxOutputPin* pPin : m_apOutputPins) pPin->SetStopEvent(bInGraph ? &m_evAbort : nullptr);
}

// ---------------- threads

std::span<CDemuxOutputPin* const> CDemuxPath::DeliveringPins() const {
    return std::span(m_apOutputPins).first(static_cast<std::size_t>(Mode().nOutputPins));
}

bool CDemuxPath::IsRunning() const { return m_videoPin.GetDeliveryThread().IsRunning(); }

void CDemuxPath::ApplyDemuxOutput() {
    switch (m_settings.nDemuxOutput) {
        case kDemuxOutputPes:
        case kDemuxOutputAvEs: m_bFreeRun = false; break;
        case kDemuxOutputFreeRun: m_bFreeRun = true; break;
        default: break;
    }
}

// The timing is forgotten before the delivery threads run: a thread that had begun its timing already would
// begin it a second time.
HRESULT CDemuxPath::Start() {
    m_evAbort.Reset();
    m_timing.Forget();
    return StartThreads();
}

/// Starts the demuxer, held, then the delivery threads with their queues. The demuxer runs last, so that its
/// first frames find their readers in place.
HRESULT CDemuxPath::StartThreads() {
    const Family& family = GetFamily();
    if (family.BeforeStart) (this->*family.BeforeStart)();
    if (Core() && !RestartWorker(*Core())) return E_OUTOFMEMORY;
    if (family.BeforeDelivery) (this->*family.BeforeDelivery)();
    for (CDemuxOutputPin* pPin : DeliveringPins()) {
        if (const HRESULT hr = StartDelivery(*pPin); FAILED(hr)) return hr;
    }
    if (Core()) Core()->Resume();
    return S_OK;
}

void CDemuxPath::Resume() {
    for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->GetDeliveryThread().Resume();
    if (Core()) Core()->Resume();
}

// All threads are asked to end before a queue is closed, which loses the video's time base: nothing is
// delivered any more with a time that would be counted from another.
void CDemuxPath::Stop() {
    m_evAbort.Set();
    for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->StopDelivery();
    for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->CloseMemFiles();
    if (Core()) Core()->Stop();
    for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->GetDeliveryThread().Stop();
    m_timing.Forget();
}

// The demuxer's thread writes to the pins' queues, and each delivery thread uses the other pin too.
void CDemuxPath::End() {
    m_evAbort.Set();
    for (CDemuxOutputPin* pPin : m_apOutputPins) {
        pPin->StopDelivery();
        pPin->CloseMemFiles();
    }
    m_pPsDemux.reset();
    for (CDemuxOutputPin* pPin : m_apOutputPins) pPin->EndDelivery();
}

// ---------------- reset

bool CDemuxPath::ResetCore() {
    if (!m_pPsDemux) return false;
    m_timing.Restart();
    m_pPsDemux->Reset();
    return true;
}

HRESULT CDemuxPath::RestartThreads() {
    WaitForPins();
    for (CDemuxOutputPin* pPin : DeliveringPins()) {
        pPin->CloseMemFiles();
        pPin->GetDeliveryThread().Stop();
    }
    if (Core()) Core()->Stop();
    m_timing.Restart();
    return StartThreads();
}

/// Gives the delivery threads the time to come to a place between two deliveries, then asks them to end. The
/// elementary-stream mode always takes the whole time.
void CDemuxPath::WaitForPins() {
    const bool bBothPins = m_nWorkingMode != EWorkingMode::Mpeg4VideoEs;
    m_timing.Update([](AvTimes& times) { times.video.bReadyToReset = times.audio.bReadyToReset = false; });
    for (int nPass = 0; nPass < kReadyPasses; ++nPass) {
        const AvTimes times = m_timing.Get();
        if (times.video.bReadyToReset && bBothPins && times.audio.bReadyToReset) break;
        SleepMs(kReadyPauseMs);
        Trace("****ResetDemux waited for 100ms\n**");
    }
    for (CDemuxOutputPin* pPin : m_apOutputPins) pPin->StopDelivery();
    SleepMs(kEndPauseMs);
}

// ---------------- seek

void CDemuxPath::NewSegment(std::int64_t llPosition, std::int64_t llLength) {
    if (m_pPsDemux) m_pPsDemux->NewSegment(llPosition, llLength);
}

/// A flush of both output pins, the audio pin's first, under their flush locks. It ends however the block is
/// left. No exception leaves it, nor the forced end of the calling thread, which the thread's next wait carries
/// out.
class CDemuxPath::CFlush {
public:
    CFlush(CDemuxOutputPin& audioPin, CDemuxOutputPin& videoPin)
        : m_apPins{&audioPin, &videoPin},
          m_audioLock(audioPin.GetFlushLock()),
          m_videoLock(videoPin.GetFlushLock()) {
        for (CDemuxOutputPin* pPin : m_apPins) Guard([=] { return pPin->DeliverBeginFlush(); });
    }
    ~CFlush() {
        for (CDemuxOutputPin* pPin : m_apPins) Guard([=] { return pPin->DeliverEndFlush(); });
    }
    CFlush(const CFlush&) = delete;
    CFlush& operator=(const CFlush&) = delete;

private:
    const std::array<CDemuxOutputPin*, 2> m_apPins;
    const CAutoLock m_audioLock, m_videoLock;
};

// The flush lets downstream drop its samples, and lets a delivery that waits there come back. The demuxer
// begins anew in between and empties the queues, which makes stale what the delivery threads have in hand. A
// delivery that was under way before has come back by the end of the flush, so that nothing stale follows it.
void CDemuxPath::Seek(std::int64_t llPosition) {
    if (!m_pPsDemux) return;
    const CFlush flush(m_audioPin, m_videoPin);
    m_pPsDemux->NewSegment(llPosition);
    m_audioPin.WaitForDelivery();
    m_videoPin.WaitForDelivery();
}

}  // namespace kest

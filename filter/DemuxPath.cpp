#include "filter/DemuxPath.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <type_traits>

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

/// In what the handling of a family differs from that of the others. Null: nothing is to be done.
struct CDemuxPath::Family {
    HRESULT (CDemuxPath::*Create)();            // makes what the family needs
    CDemuxWorker* (CDemuxPath::*Core)() const;  // the demuxer; null: the path begins at the frame queues
    HRESULT (CDemuxPath::*BeforeStart)();       // before any thread starts
    HRESULT (CDemuxPath::*BeforeDelivery)();    // the demuxer is held, the delivery threads are not yet there
    bool (CDemuxPath::*Feed)(Bytes chunk);      // takes some of the bytes that are pushed
};

// By ECoreFamily.
constinit const CDemuxPath::Family CDemuxPath::kFamilies[] = {
    /* None */ {.Create = &CDemuxPath::CreateFramer,
                .Core = nullptr,
                .BeforeStart = &CDemuxPath::BeginElementaryStream,
                .BeforeDelivery = nullptr,
                .Feed = &CDemuxPath::FeedFramer},
    /* Transport */
    {.Create = &CDemuxPath::Create<&CDemuxPath::m_pTsDemux>,
     .Core = &CDemuxPath::CoreIn<&CDemuxPath::m_pTsDemux>,
     .BeforeStart = nullptr,
     .BeforeDelivery = &CDemuxPath::SelectTsTimeReference,
     .Feed = &CDemuxPath::FeedCore},
    /* Program */
    {.Create = &CDemuxPath::Create<&CDemuxPath::m_pPsDemux>,
     .Core = &CDemuxPath::CoreIn<&CDemuxPath::m_pPsDemux>,
     .BeforeStart = &CDemuxPath::InitSeeking,
     .BeforeDelivery = nullptr,
     .Feed = &CDemuxPath::FeedCore},
    /* Mpeg1 */
    {.Create = &CDemuxPath::Create<&CDemuxPath::m_pMpeg1Demux>,
     .Core = &CDemuxPath::CoreIn<&CDemuxPath::m_pMpeg1Demux>,
     .BeforeStart = nullptr,
     .BeforeDelivery = nullptr,
     .Feed = &CDemuxPath::FeedCore},
};

const CDemuxPath::Family& CDemuxPath::GetFamily() const {
    return kFamilies[static_cast<std::size_t>(Mode().family)];
}

/// The demuxer of the working mode, or null where there is none.
CDemuxWorker* CDemuxPath::Core() const {
    const auto pfnCore = GetFamily().Core;
    return pfnCore ? (this->*pfnCore)() : nullptr;
}

/// Replaces the family's demuxer by a new one.
template <auto pDemuxMember>
HRESULT CDemuxPath::Create() {
    auto& pMember = this->*pDemuxMember;
    using Demux = typename std::remove_reference_t<decltype(pMember)>::element_type;
    Replace(pMember, {});  // ends its thread before the next one writes to the same queues
    auto pDemux = std::make_unique<Demux>();
    pDemux->SetPushGate(m_feedGate);
    if constexpr (std::is_same_v<Demux, KestMpeg2PsPullDemux>) {
        Trace("CreateMpeg2PSInstance <-----------------!!!!!!\n");
    }
    const int nError = pDemux->Open(nullptr, &m_videoPin.GetFrameQueue(), &m_audioPin.GetFrameQueue());
    if (nError != 0 || !pDemux->IsRunning()) return E_OUTOFMEMORY;
    Replace(pMember, std::move(pDemux));
    return S_OK;
}

/// Bytes of the longest unit of an elementary stream.
std::uint32_t CDemuxPath::MaxUnit() const {
    return std::max(CElementaryStreamFramer::kMaxUnit, m_videoPin.GetFrameQueue().GetBlockSize());
}

HRESULT CDemuxPath::CreateFramer() {
    Replace(m_pFramer, std::make_unique<CElementaryStreamFramer>(MaxUnit()));
    return S_OK;
}

/// The demuxer plays at the rate that the seeking object shows, which a start may set back.
HRESULT CDemuxPath::InitSeeking() {
    double dRate = 1.0;
    m_videoPin.InitSeeking();
    m_videoPin.GetSeeking().GetRate(&dRate);
    SetRate(dRate);
    return S_OK;
}

HRESULT CDemuxPath::SelectTsTimeReference() {
    const auto nOutput = m_settings.Get(&SEND_SETTINGS::nDemuxOutput);
    int nError = 0;
    if (nOutput == kDemuxOutputPes || nOutput == kDemuxOutputFreeRun) {
        nError = m_pTsDemux->UsePtsDtsTiming();
        Trace("Transport demux core uses PTS/DTS as time reference\n");
    } else {
        Trace("Transport demux core uses Vidoe Elementary timing info as time reference\n");
        nError = m_pTsDemux->UseElementaryTiming();
    }
    return nError == 0 ? S_OK : E_OUTOFMEMORY;
}

HRESULT CDemuxPath::BeginElementaryStream() {
    m_pFramer->SetDrain(m_switches.IsOn(ESwitch::Drain));
    m_timing.Update([](AvTimes& times) {
        times.video.nAccessCount = 0;
        times.video.bFirstTime = true;
    });
    return S_OK;
}

bool CDemuxPath::FeedCore(Bytes chunk) { return Core()->PushData(chunk) > 0; }

bool CDemuxPath::FeedFramer(Bytes chunk) { return m_pFramer->Push(chunk, m_videoPin.GetFrameQueue()); }

// ---------------- connection

CDemuxPath::CDemuxPath(CKestDemux2VideoOutputPin& videoPin, CKestDemux2AudioOutputPin& audioPin,
                       CAvTiming& timing, const CSendSettings& settings, const CSwitches& switches)
    : m_videoPin(videoPin),
      m_audioPin(audioPin),
      m_apOutputPins{&videoPin, &audioPin},
      m_timing(timing),
      m_settings(settings),
      m_switches(switches) {
    m_videoPin.SetPeer(m_audioPin);
    m_audioPin.SetPeer(m_videoPin);
}

HRESULT CDemuxPath::BeginConnection(EWorkingMode mode) {
    return Guard([&] {
        m_videoPin.SetBlockSize(static_cast<std::uint32_t>(m_switches.Get(ESwitch::VideoBlockSize)));
        if (mode != m_nWorkingMode) return EnterMode(mode);
        const HRESULT hr = m_pFramer && m_pFramer->GetMaxUnit() != MaxUnit() ? CreateFramer() : S_OK;
        BeginCounting(mode);
        return hr;
    });
}

HRESULT CDemuxPath::EnterMode(EWorkingMode mode) {
    if (mode == EWorkingMode::Mpeg4VideoEs) m_bFreeRun = false;
    HoldFeed();                           // bytes of the connection before may still be on their way
    m_nWorkingMode = EWorkingMode::None;  // the next connection tries again to make what could not be made
    const auto pfnCreate = kFamilies[static_cast<std::size_t>(FindWorkingMode(mode).family)].Create;
    const HRESULT hr = pfnCreate ? Guard([&] { return (this->*pfnCreate)(); }) : S_OK;
    if (SUCCEEDED(hr)) BeginCounting(mode);
    ReleaseFeed();
    return hr;
}

void CDemuxPath::SetReader(IAsyncReader* pReader) {
    if (m_pPsDemux) m_pPsDemux->SetReader(pReader);
    m_videoPin.SetAsyncReader(pReader);
    m_videoPin.GetSeeking().ForgetPositions();
    m_videoPin.InitSeeking();
}

void CDemuxPath::SetInGraph(bool bInGraph) {
    for (CDemuxOutputPin* pPin : m_apOutputPins) pPin->SetStopEvent(bInGraph ? &m_evAbort : nullptr);
}

// ---------------- counters

/// Puts a new part, or none, in the place of another, which ends behind the lock: it may have to wait for its thread.
template <class T>
void CDemuxPath::Replace(std::unique_ptr<T>& pPart, std::unique_ptr<T> pNew) {
    CAutoLock lock(m_csParts);
    pPart.swap(pNew);
}

/// Enters the mode with counters that are 0.
void CDemuxPath::BeginCounting(EWorkingMode mode) {
    CAutoLock lock(m_csParts);
    m_nWorkingMode = mode;
    m_atConnection = CountAll();
}

/// Everything that demuxer, pins and path have counted, since they were made. Under m_csParts.
COUNTERS CDemuxPath::CountAll() const {
    COUNTERS counters;
    if (Core()) {
        counters = Core()->GetCounters();
    } else if (m_pFramer) {
        const FrameCounters& units = m_pFramer->GetCounters();
        counters.llBytesRead = m_pFramer->CountBytes();
        counters.video = {.nFramesQueued = units.nQueued,
                          .nFramesCut = units.nCut,
                          .nFramesLost = units.nLost,
                          .llBytesCut = units.llBytesCut,
                          .llBytesLost = units.llBytesLost};
    }
    counters.nResets = m_nResets;
    counters.video.nFramesDelivered = m_videoPin.CountDelivered();
    counters.audio.nFramesDelivered = m_audioPin.CountDelivered();
    return counters;
}

COUNTERS CDemuxPath::GetCounters() const {
    using Numbers = std::array<std::uint64_t, sizeof(COUNTERS) / sizeof(std::uint64_t)>;
    CAutoLock lock(m_csParts);
    if (m_nWorkingMode == EWorkingMode::None) return {};
    const auto before = std::bit_cast<Numbers>(m_atConnection);
    auto counted = std::bit_cast<Numbers>(CountAll());
    std::ranges::transform(counted, before, counted.begin(), std::minus());
    return std::bit_cast<COUNTERS>(counted);
}

// ---------------- threads

std::span<CDemuxOutputPin* const> CDemuxPath::DeliveringPins() const {
    return std::span(m_apOutputPins).first(static_cast<std::size_t>(Mode().nOutputPins));
}

bool CDemuxPath::IsRunning() const { return m_videoPin.GetDeliveryThread().IsRunning(); }

void CDemuxPath::ApplyDemuxOutput() {
    switch (m_settings.Get(&SEND_SETTINGS::nDemuxOutput)) {
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
    HRESULT hr = Guard([&] {
        const std::uint32_t nBlockSize = m_videoPin.GetFrameQueue().GetBlockSize();
        if (Core()) Core()->SetSettings(MakeParseSettings(m_switches, nBlockSize));
        return family.BeforeStart ? (this->*family.BeforeStart)() : S_OK;
    });
    if (FAILED(hr)) return hr;
    if (Core() && !RestartWorker(*Core())) return E_OUTOFMEMORY;
    if (family.BeforeDelivery) hr = (this->*family.BeforeDelivery)();
    if (FAILED(hr)) return hr;
    for (CDemuxOutputPin* pPin : DeliveringPins()) {
        if (hr = StartDelivery(*pPin); FAILED(hr)) return hr;
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
    StopCore();
    for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->GetDeliveryThread().Stop();
    m_timing.Forget();
}

/// A stop makes the demuxer forget the sequence header, which the video pin's next connection is to know.
void CDemuxPath::StopCore() {
    if (!Core()) return;
    if (Core() == m_pMpeg1Demux.get() && Core()->IsRunning()) {
        m_sequenceHeader.Reset();
        m_sequenceHeader.Capture(m_pMpeg1Demux->GetSequenceHeader().Get());
    }
    Core()->Stop();
}

// The demuxer's thread writes to the pins' queues, and each delivery thread uses the other pin too.
void CDemuxPath::End() {
    m_evAbort.Set();
    for (CDemuxOutputPin* pPin : m_apOutputPins) {
        pPin->StopDelivery();
        pPin->CloseMemFiles();
    }
    Replace(m_pTsDemux, {});
    Replace(m_pPsDemux, {});
    Replace(m_pMpeg1Demux, {});
    for (CDemuxOutputPin* pPin : m_apOutputPins) pPin->EndDelivery();
}

// ---------------- bytes that are pushed

void CDemuxPath::Feed(Bytes data) {
    constexpr std::size_t kChunkSize = 2048;
    const CPushGate::CInside inside(m_feedGate);
    if (m_nWorkingMode == EWorkingMode::None) return;
    const auto pfnFeed = GetFamily().Feed;
    while (!m_feedGate.IsHeld() && !data.empty()) {
        const std::size_t nRoom = Core() ? Core()->GetPushRoom() : 0;  // that goes in without a wait
        const Bytes chunk = data.first(std::min(data.size(), std::max(nRoom, kChunkSize)));
        if (!(this->*pfnFeed)(chunk)) return;
        data = data.subspan(chunk.size());
    }
}

void CDemuxPath::HoldFeed() {
    m_feedGate.Hold([this] {
        if (Core()) {
            Core()->WakePush();
        } else {
            m_videoPin.GetFrameQueue().WakeWriter();
        }
    });
}

void CDemuxPath::EndInput() {
    const CPushGate::CInside inside(m_feedGate);
    if (m_feedGate.IsHeld() || !m_switches.IsOn(ESwitch::Drain)) return;
    if (Core()) Core()->EndInput();
    if (m_nWorkingMode == EWorkingMode::Mpeg4VideoEs) m_pFramer->Flush(m_videoPin.GetFrameQueue());
}

// In the order of the stream: what the demuxer has not parsed may still become frames, and those that are
// queued, samples.
bool CDemuxPath::IsDelivered() {
    const CPushGate::CInside inside(m_feedGate);
    if (m_feedGate.IsHeld()) return false;
    const auto pins = DeliveringPins();
    return (!Core() || Core()->HasTakenAll()) &&
           std::all_of(pins.begin(), pins.end(),
                       [](const CDemuxOutputPin* pPin) { return pPin->IsDrained(); });
}

void CDemuxPath::DeliverEnd() {
    for (CDemuxOutputPin* pPin : m_apOutputPins) pPin->DeliverEnd();
}

bool CDemuxPath::NeedsReset() {
    const CPushGate::CInside inside(m_feedGate);
    return !m_feedGate.IsHeld() && Mode().family == ECoreFamily::Program && m_pPsDemux &&
           m_pPsDemux->HasMetEndCode();
}

bool CDemuxPath::IsOutOfBalance() const {
    constexpr std::uint32_t kAlmostEmpty = 10, kAlmostFull = 90;  // percent
    const AvTimes times = m_timing.Get();
    const bool bDraining = times.video.bRestartPending || times.audio.bRestartPending;
    if (Mode().family == ECoreFamily::Program && bDraining) return false;
    if (!m_videoPin.IsConnected() || !m_audioPin.IsConnected()) return false;
    auto Fill = [](const CDemuxOutputPin& pin) {
        return pin.GetFramesPending() * 100 / pin.GetFrameCapacity();
    };
    const std::uint32_t nVideo = Fill(m_videoPin), nAudio = Fill(m_audioPin);
    return (nVideo <= kAlmostEmpty && nAudio >= kAlmostFull) ||
           (nVideo >= kAlmostFull && nAudio <= kAlmostEmpty);
}

// ---------------- reset

bool CDemuxPath::ResetCore() {
    if (!m_pPsDemux) return false;
    m_timing.Restart();
    m_pPsDemux->Reset();
    ++m_nResets;
    return true;
}

HRESULT CDemuxPath::RestartThreads() {
    WaitForPins();
    for (CDemuxOutputPin* pPin : DeliveringPins()) {
        pPin->CloseMemFiles();
        pPin->GetDeliveryThread().Stop();
    }
    StopCore();
    m_timing.Restart();
    ++m_nResets;
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

void CDemuxPath::NewSegment(std::int64_t llPosition, std::int64_t llLength,
                            const std::optional<SeekTarget>& target) {
    SetTarget(target);
    if (m_pPsDemux) m_pPsDemux->NewSegment(llPosition, llLength);
}

/// Before the demuxer begins the segment: its first frames are to find the target. The frames before it are of no
/// account any more.
void CDemuxPath::SetTarget(const std::optional<SeekTarget>& target) {
    m_timing.Update([&](AvTimes& times) { times.seekTarget = target; });
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
void CDemuxPath::Seek(std::int64_t llPosition, const std::optional<SeekTarget>& target) {
    if (!m_pPsDemux) return;
    const CFlush flush(m_audioPin, m_videoPin);
    SetTarget(target);
    m_pPsDemux->NewSegment(llPosition);
    m_audioPin.WaitForDelivery();
    m_videoPin.WaitForDelivery();
}

}  // namespace kest

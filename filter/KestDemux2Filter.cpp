#include "filter/KestDemux2Filter.h"

#include <string_view>

#include "control/Identifiers.h"
#include "demux/SystemLayer.h"
#include "graph/Guard.h"
#include "platform/DebugText.h"
#include "platform/Time.h"

namespace kest {
// ---------------- creation and end

CUnknown* CKestDemux2Filter::CreateInstance(IUnknown* pOuter, HRESULT* phr) {
    CKestDemux2Filter* pFilter = nullptr;
    const HRESULT hr = Guard([&] {
        pFilter = new CKestDemux2Filter(pOuter, phr);
        return S_OK;
    });
    if (FAILED(hr)) *phr = hr;
    return pFilter;
}

CKestDemux2Filter::CKestDemux2Filter(IUnknown* pOuter, HRESULT* phr)
    : CBaseFilter(nullptr, pOuter, &m_csPins, kFilterClass),
      m_pVideoPin(std::make_unique<CKestDemux2VideoOutputPin>(this, this, m_timing, &m_csPins, phr)),
      m_pAudioPin(std::make_unique<CKestDemux2AudioOutputPin>(this, this, m_timing, &m_csPins, phr)),
      m_path(*m_pVideoPin, *m_pAudioPin, m_timing, *m_UdpSender.GetSettingsPtr(), m_switches),
      m_intake(m_path, m_UdpSender, m_publisher, m_dump),
      m_pInputPin(std::make_unique<CKestDemux2InputPin>(this,
                                                        CKestDemux2InputPin::Parts{.resets = *this,
                                                                                   .source = m_source,
                                                                                   .path = m_path,
                                                                                   .intake = m_intake,
                                                                                   .sender = m_UdpSender,
                                                                                   .publisher = m_publisher,
                                                                                   .switches = m_switches},
                                                        &m_csPins, phr)),
      m_seeking(GetOwner(), m_pVideoPin->GetSeeking()),
      m_control(GetOwner(), {.site = *this,
                             .sender = m_UdpSender,
                             .publisher = m_publisher,
                             .dump = m_dump,
                             .singleStep = m_singleStep,
                             .switches = m_switches,
                             .resets = m_resets,
                             .intake = m_intake,
                             .path = m_path,
                             .audioPin = *m_pAudioPin}) {
    BeginServices();
}

/// The sender runs as long as the filter is there. Failures are ignored: nothing is forwarded, or published, then.
void CKestDemux2Filter::BeginServices() {
    Guard([this] {
        m_UdpSender.Open();
        m_UdpSender.Resume();
        return S_OK;
    });
    Guard([this] {
        m_publisher.Open();
        return S_OK;
    });
}

// A filter that is active when its last reference goes has threads, which must have ended before its parts go.
CKestDemux2Filter::~CKestDemux2Filter() {
    m_bActive = false;
    Guard([this] {
        m_path.End();
        return S_OK;
    });
}

// IMediaPosition contains IDispatch, so that one pointer is both.
HRESULT CKestDemux2Filter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IKestDemux2Control || riid == IID_IKestDemux2Control2 ||
        riid == IID_ISpecifyPropertyPages) {
        return m_control.NonDelegatingQueryInterface(riid, ppv);
    }
    if (riid == IID_IFileSinkFilter) return m_dump.NonDelegatingQueryInterface(riid, ppv);
    if (riid == IID_IReferenceClock) return m_Clock.NonDelegatingQueryInterface(riid, ppv);
    if (riid == IID_IMediaSeeking) return m_seeking.NonDelegatingQueryInterface(riid, ppv);
    if (riid == IID_IMediaPosition || riid == IID_IDispatch) {
        return m_pVideoPin->NonDelegatingQueryInterface(IID_IMediaPosition, ppv);
    }
    return CBaseFilter::NonDelegatingQueryInterface(riid, ppv);
}

// ---------------- pins and graph

CBasePin* CKestDemux2Filter::GetPin(int n) {
    switch (n) {
        case 0: return m_pInputPin.get();
        case 1: return m_pVideoPin.get();
        case 2: return m_pAudioPin.get();
        default: return nullptr;
    }
}

HRESULT CKestDemux2Filter::FindPin(LPCWSTR Id, IPin** ppPin) {
    constexpr std::wstring_view kNames[] = {L"Input", L"Video Output", L"Audio Output"};  // by pin number
    if (!Id || !ppPin) return E_POINTER;
    *ppPin = nullptr;
    for (int n = 0; n < GetPinCount(); ++n) {
        if (kNames[n] == Id)
            return GetInterface(static_cast<IPin*>(GetPin(n)), reinterpret_cast<void**>(ppPin));
    }
    return VFW_E_NOT_FOUND;
}

HRESULT CKestDemux2Filter::JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) {
    return Guard([&] {
        CAutoLock lock(m_csJoin);
        CComPtr<IGraphConfig> pConfig;
        HRESULT hr = S_OK;
        if (pGraph) hr = pGraph->QueryInterface(IID_IGraphConfig, reinterpret_cast<void**>(pConfig.Put()));
        if (SUCCEEDED(hr)) hr = CBaseFilter::JoinFilterGraph(pGraph, pName);
        if (SUCCEEDED(hr)) m_path.SetInGraph(pGraph != nullptr);
        return hr;
    });
}

// ---------------- stopped, paused, running: when the path starts, goes on and ends around the base's own steps

HRESULT CKestDemux2Filter::Pause() {
    return Guard([this] {
        Trace("Pause_1<-----------------!!!!!! %d \n", static_cast<int>(TickCount()));
        CAutoLock lock(m_csState);
        m_bActive = true;  // not before: a Stop that holds the lock has cleared it
        Trace("Pause_2<-----------------!!!!!!\n");
        if (m_State == State_Paused) return S_OK;
        const HRESULT hr = Guard([this] { return EnterPaused(); });
        if (FAILED(hr) && IsStopped()) {  // a filter that stays stopped has no threads
            m_bActive = false;
            EndPath();
            LeavePath();
        }
        return hr;
    });
}

HRESULT CKestDemux2Filter::EnterPaused() {
    m_path.ApplyDemuxOutput();
    if (!m_path.IsRunning()) {
        UsePath();
        m_resets.m_bResetRequest = m_resets.m_bNeedReset = false;  // of the run before
        if (const HRESULT hr = m_path.Start(); FAILED(hr)) return hr;
    }
    const HRESULT hr = CBaseFilter::Pause();
    Trace("Pause_3<-----------------!!!!!!\n");
    return hr;
}

HRESULT CKestDemux2Filter::Run(REFERENCE_TIME tStart) {
    return Guard([=, this] {
        Trace("Run_1<-----------------!!!!!!\n");
        CAutoLock lock(m_csState);
        m_bActive = true;
        Trace("Run_2<-----------------!!!!!!\n");
        if (m_State != State_Paused) {
            const HRESULT hr = Pause();
            if (IsStopped()) return hr;  // the base's Run would fail for the same reason
        }
        if (m_State == State_Running) return S_OK;
        m_rtStreamStart = tStart;
        m_path.ApplyDemuxOutput();
        m_path.Resume();
        if (m_path.Mode().family == ECoreFamily::Program) ActivatePins();
        return CBaseFilter::Run(tStart);
    });
}

// The first step comes before the lock: threads that a stop waits for do not wait for it.
HRESULT CKestDemux2Filter::Stop() {
    m_bActive = false;
    Trace("Stop_1<-----------------!!!!!!\n");
    return Guard([this] { return EnterStopped(); });
}

HRESULT CKestDemux2Filter::EnterStopped() {
    CAutoLock lock(m_csState);
    m_bActive = false;  // a Pause may have come before
    Trace("Stop_2<-----------------!!!!!!\n");
    UsePath();
    HRESULT hr = S_OK;
    {
        const CIntake::CHold hold(m_intake);  // until the state says that nothing more may come in
        EndPath();
        hr = CBaseFilter::Stop();
    }
    LeavePath();
    Trace("Pass Stop()<-----------------!!!!!!\n");
    return hr;
}

void CKestDemux2Filter::EndPath() {
    m_dump.CloseDumpFile();
    m_path.Stop();
    DeactivatePins();
    m_resets.m_bResetAllowed = true;
    m_resets.m_bNeedReset = false;
    m_resets.m_bThreadKilled = false;
}

/// Lets no connection change from here to LeavePath; waits for one that is being made or undone.
void CKestDemux2Filter::UsePath() {
    CAutoLock lock(m_csPins);
    m_bPathInUse = true;
}

void CKestDemux2Filter::LeavePath() {
    CAutoLock lock(m_csPins);
    m_bPathInUse = false;
}

/// Commits what the pins use, also of those that the base has activated already. A pin that is not connected
/// has nothing to commit.
void CKestDemux2Filter::ActivatePins() {
    CAutoLock lock(m_csPins);
    for (CDemuxOutputPin* pPin : m_path.DeliveringPins()) pPin->Active();
    m_pInputPin->Active();
}

void CKestDemux2Filter::DeactivatePins() {
    CAutoLock lock(m_csPins);
    for (CDemuxOutputPin* pPin : m_path.DeliveringPins()) pPin->Inactive();
    if (m_path.Mode().bInputEndsWithPath) m_pInputPin->Inactive();
}

// ---------------- reset

void CKestDemux2Filter::ResetDemux() {
    struct CResetting {  // the delivery threads wait while it is set
        explicit CResetting(std::atomic<bool>& b) : bResetting(b) { bResetting = true; }
        ~CResetting() { bResetting = false; }
        std::atomic<bool>& bResetting;
    };
    CAutoLock lock(m_csState);
    if (!m_resets.m_bEnableReset || m_resets.m_bResetting || IsStopped()) return;
    const CResetting resetting(m_resets.m_bResetting);
    if (m_path.ResetCore()) {
        m_resets.m_bNeedReset = false;
    } else if (FAILED(Guard([this] {
                   m_dump.CloseDumpFile();
                   return m_path.RestartThreads();
               }))) {
        DebugText("The reset has failed: a thread is missing\n");
        m_path.Stop();
    }
}

int CKestDemux2Filter::CheckNeedReset() {
    if (!m_resets.m_bResetAllowed || m_resets.m_bResetting) return 0;
    auto Needed = [this](int nReason) {
        m_resets.m_bNeedReset = true;
        return nReason;
    };
    if (m_resets.m_bResetRequest.exchange(false)) return Needed(-1);
    if (GetWorkingMode() == EWorkingMode::Mpeg4VideoEs) return 1;
    if (m_path.NeedsReset()) return Needed(-1);
    if (IsStopped()) return 0;
    return m_path.IsOutOfBalance() ? Needed(-2) : 0;
}

// ---------------- services for the pins

const StreamDescription* CKestDemux2Filter::GetDescription(EStreamKind kind) const {
    const bool bVideo = kind == EStreamKind::Video;
    return m_source.GetDescription().FindStream(
        kind, m_switches.Get(bVideo ? ESwitch::VideoStream : ESwitch::AudioStream));
}

bool CKestDemux2Filter::GetClockTime(REFERENCE_TIME& rtNow) {
    CComPtr<IReferenceClock> pClock;
    GetSyncSource(pClock.Put());
    return pClock && SUCCEEDED(pClock->GetTime(&rtNow));
}

void CKestDemux2Filter::OnThreadKilled() {
    m_resets.m_bResetAllowed = false;
    m_resets.m_bThreadKilled = true;
}

// A flush of the input ends the wait too: the sample was made of what is flushed away.
void CKestDemux2Filter::DoSingleStep(const std::function<bool()>& isOver) {
    const std::uint32_t nHolds = m_intake.CountHolds();
    m_singleStep.DoSingleStep([&] { return isOver() || m_intake.CountHolds() != nHolds; });
}

// ---------------- seeking hooks, for a stream that can be sought in

HRESULT CKestDemux2Filter::SetPositionsHook(std::int64_t llPosition, REFERENCE_TIME rt,
                                            std::int64_t llLength) {
    if (!m_path.Mode().bSeekable) return S_OK;
    const auto coding =
        GetWorkingMode() == EWorkingMode::ProgramMpeg4 ? EVideoCoding::Mpeg4 : EVideoCoding::Mpeg12;
    const std::int32_t nVideoStream = m_switches.Get(ESwitch::VideoStream);
    m_source.MeasureTime(llLength, coding,
                         static_cast<std::uint8_t>(IsVideoStreamId(nVideoStream) ? nVideoStream : 0));
    std::optional<SeekTarget> target;
    if (m_source.GetTimeExtent()) {
        llPosition = 0;
        if (const auto place = rt > 0 ? m_source.FindPlace(rt) : std::nullopt) {
            llPosition = place->llPosition;
            target = place->target;
        }
    }
    m_path.NewSegment(llPosition, llLength, target);
    return S_OK;
}

HRESULT CKestDemux2Filter::SeekHook(REFERENCE_TIME rt) {
    constexpr std::uint32_t kPollMs = 1;
    if (!m_path.Mode().bSeekable) return S_OK;
    Trace("SEEEKKKKKKKKKKKING!!!\n");
    std::unique_lock lock(m_csState, std::defer_lock);
    while (!lock.try_lock()) {
        if (!m_bActive) return S_OK;
        SleepMs(kPollMs);
    }
    if (IsStopped()) return S_OK;
    if (const auto place = m_source.FindPlace(rt)) m_path.Seek(place->llPosition, place->target);
    return S_OK;
}

// Not under the state lock, which a stop may hold for long. The pins' lock keeps the demuxer in its place.
HRESULT CKestDemux2Filter::RateHook(double dRate) {
    constexpr double kMaxTracedRate = 1e8;
    CAutoLock lock(m_csPins);
    if (!m_path.Mode().bSeekable) return S_OK;
    const double dShown = dRate >= -kMaxTracedRate && dRate <= kMaxTracedRate ? dRate : 0.0;
    Trace("Change Rate = %d\n", static_cast<int>(dShown * 10));
    return m_path.SetRate(dRate) ? S_OK : E_INVALIDARG;
}

}  // namespace kest

#include "filter/KestDemux2Filter.h"

#include <functional>
#include <new>
#include <string_view>

#include "filter/Identifiers.h"
#include "pins/DeliveryThread.h"
#include "platform/DebugText.h"

namespace kest {

// ---------------- creation and end

CUnknown* CKestDemux2Filter::CreateInstance(IUnknown* pOuter, HRESULT* phr) {
    try {
        return new CKestDemux2Filter(pOuter, phr);
    } catch (const std::bad_alloc&) {
        *phr = E_OUTOFMEMORY;
        return nullptr;
    }
}

CKestDemux2Filter::CKestDemux2Filter(IUnknown* pOuter, HRESULT* phr)
    : CImplements(nullptr, pOuter, &m_csPins, kFilterClass) {
    m_pVideoPin = MakePin<CKestDemux2VideoOutputPin>(phr, this, this, std::ref(m_timing));
    m_pAudioPin = MakePin<CKestDemux2AudioOutputPin>(phr, this, this, std::ref(m_timing));
    m_pInputPin = MakePin<CKestDemux2InputPin>(phr, this);
    if (FAILED(*phr)) return;
    m_pVideoPin->SetPeer(*m_pAudioPin);
    m_pAudioPin->SetPeer(*m_pVideoPin);
    m_apOutputPins = {m_pVideoPin.get(), m_pAudioPin.get()};
    m_seeking.SetTarget(m_pVideoPin->GetSeeking());
}

/// Makes a pin unless something has failed before; a pin that reports a failure is none.
template <class Pin, class... Arguments>
std::unique_ptr<Pin> CKestDemux2Filter::MakePin(HRESULT* phr, Arguments... arguments) {
    if (FAILED(*phr)) return nullptr;
    try {
        auto pPin = std::make_unique<Pin>(arguments..., &m_csPins, phr);
        return SUCCEEDED(*phr) ? std::move(pPin) : nullptr;
    } catch (const std::bad_alloc&) {
        *phr = E_OUTOFMEMORY;
        return nullptr;
    }
}

// The pins go before the cores. The core's thread writes to the pins' queues, and each delivery thread uses
// the other pin too, so all of them must have ended by then, even when the filter is let go while it is
// active.
CKestDemux2Filter::~CKestDemux2Filter() {
    if (m_pPsDemux) m_pPsDemux->Stop();
    for (CDemuxOutputPin* pPin : m_apOutputPins) {
        if (pPin) pPin->EndDelivery();
    }
    m_apOutputPins = {};
    m_pVideoPin.reset();
    m_pAudioPin.reset();
    m_pInputPin.reset();
    m_pPsDemux.reset();
}

HRESULT CKestDemux2Filter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IReferenceClock) return m_Clock.NonDelegatingQueryInterface(riid, ppv);
    if (m_apOutputPins[0]) {
        if (riid == IID_IMediaPosition) return m_pVideoPin->NonDelegatingQueryInterface(riid, ppv);
        if (riid == IID_IMediaSeeking) return m_seeking.NonDelegatingQueryInterface(riid, ppv);
    }
    if (riid == kDemuxSettingsId) return GetInterface(static_cast<IDemuxSettings*>(this), ppv);
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
        if (kNames[n] != Id) continue;
        CBasePin* pPin = GetPin(n);
        return pPin ? GetInterface(static_cast<IPin*>(pPin), reinterpret_cast<void**>(ppPin)) : E_OUTOFMEMORY;
    }
    return VFW_E_NOT_FOUND;
}

HRESULT CKestDemux2Filter::JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) {
    CAutoLock lock(m_csJoin);
    CComPtr<IGraphConfig> pConfig;
    if (pGraph) {
        const HRESULT hr = pGraph->QueryInterface(IID_IGraphConfig, reinterpret_cast<void**>(pConfig.Put()));
        if (FAILED(hr)) return hr;
    }
    if (const HRESULT hr = CBaseFilter::JoinFilterGraph(pGraph, pName); FAILED(hr)) return hr;
    HandStopEvent(pGraph ? &m_evAbort : nullptr);
    return S_OK;
}

void CKestDemux2Filter::HandStopEvent(CEvent* pStopEvent) {
    for (CDemuxOutputPin* pPin : m_apOutputPins) {
        if (pPin) pPin->SetStopEvent(pStopEvent);
    }
}

// ---------------- working mode and source

EWorkingMode CKestDemux2Filter::GetWorkingMode() const {
    return m_pInputPin ? m_pInputPin->GetWorkingMode() : EWorkingMode::None;
}

// The program streams are the only classes that are let in. The second look has the last word on one with
// MPEG-1 or MPEG-2 video.
int CKestDemux2Filter::ClassifyStream() {
    const CComPtr<IAsyncReader> pReader = m_pInputPin->GetReader();
    m_Probe.SetReader(pReader.Get());
    int nClass = m_Probe.Probe();
    if (nClass != kClassProgramMpeg4) {
        nClass = m_Probe.Probe() == kClassProgramMpeg12 ? kClassProgramMpeg12 : kClassNotRecognised;
    }
    m_Probe.SetReader(nullptr);  // the next connection brings its own
    return nClass;
}

void CKestDemux2Filter::PrepareWorkingMode(EWorkingMode mode) {
    if (mode == EWorkingMode::Mpeg4VideoEs) m_bFreeRun = false;
    switch (FindWorkingMode(mode).family) {
        case ECoreFamily::Program:
            CreatePsDemux();
            m_pVideoPin->InitSeeking();
            break;
        case ECoreFamily::Transport:  // there is no core for these yet
        case ECoreFamily::Mpeg1:
        case ECoreFamily::None: break;
    }
}

/// Replaces the program-stream core by a new one, which reads the source when that can be read. @return what
/// the core's `Open` says.
int CKestDemux2Filter::CreatePsDemux() {
    m_pPsDemux.reset();  // ends its thread before the next one writes to the same queues
    m_pPsDemux = std::make_unique<KestMpeg2PsPullDemux>();
    if (!m_bPushSource) {
        const CComPtr<IAsyncReader> pReader = m_pInputPin->GetReader();
        m_pPsDemux->SetReader(pReader.Get());
        m_pVideoPin->SetAsyncReader(pReader.Get());
    }
    Trace("CreateMpeg2PSInstance <-----------------!!!!!!\n");
    return m_pPsDemux->Open(nullptr, &m_pVideoPin->GetFrameQueue(), &m_pAudioPin->GetFrameQueue());
}

void CKestDemux2Filter::AttachReader(IAsyncReader* pReader) {
    if (!pReader || !HasProgramCore()) return;
    m_pPsDemux->SetReader(pReader);
    m_pVideoPin->SetAsyncReader(pReader);
    m_pVideoPin->SetFilePos(0);  // a position of the source before means nothing in this one
    m_pVideoPin->InitSeeking();
}

// After a Pause that failed half-way the filter is stopped and the core's thread may read nonetheless.
void CKestDemux2Filter::DetachReader() {
    if (m_pPsDemux) {
        if (m_pPsDemux->IsRunning()) m_pPsDemux->Stop();
        m_pPsDemux->SetReader(nullptr);
    }
    if (m_pVideoPin) m_pVideoPin->SetAsyncReader(nullptr);
}

// ---------------- settings

HRESULT CKestDemux2Filter::get_SendSettings(SEND_SETTINGS* pSettings) {
    if (!pSettings) return E_POINTER;
    *pSettings = m_sendSettings;
    return S_OK;
}

HRESULT CKestDemux2Filter::put_SendSettings(const SEND_SETTINGS* pSettings) {
    if (!pSettings) return E_POINTER;
    m_sendSettings = *pSettings;
    return S_OK;
}

// ---------------- services for the pins

bool CKestDemux2Filter::GetClockTime(REFERENCE_TIME& rtNow) {
    CComPtr<IReferenceClock> pClock;
    GetSyncSource(pClock.Put());
    return pClock && SUCCEEDED(pClock->GetTime(&rtNow));
}

void CKestDemux2Filter::OnThreadKilled() {
    m_bResetAllowed = false;
    m_bThreadKilled = true;
}

void CKestDemux2Filter::DoSingleStep() {
    Trace("===>Do DoSingleStep \n");
    if (!m_bSingleStep) return;
    m_evSingleStep.Wait();  // lets one sample through and is reset by it
    Trace("===>Pass Waiting for m_evSingleStep\n");
}

}  // namespace kest

#include "graph/BaseFilter.h"

#include <iterator>

#include "graph/BasePin.h"
#include "graph/Enumerator.h"

namespace kest {

CBaseFilter::CBaseFilter(LPCWSTR pszName, IUnknown* pOuter, CCritSec* pLock, REFCLSID clsid)
    : CImplements(pOuter), m_clsid(clsid), m_pLock(pLock), m_wszName(pszName ? pszName : L"") {}

HRESULT CBaseFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IBaseFilter || riid == IID_IMediaFilter || riid == IID_IPersist) {
        return GetInterface(static_cast<IBaseFilter*>(this), ppv);
    }
    if (riid == IID_IAMovieSetup) return GetInterface(static_cast<IAMovieSetup*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CBaseFilter::StreamTime(REFERENCE_TIME& rtStream) {
    CComPtr<IReferenceClock> pClock;
    GetSyncSource(pClock.Put());
    if (!pClock) return VFW_E_NO_CLOCK;
    REFERENCE_TIME rtNow = 0;
    const HRESULT hr = pClock->GetTime(&rtNow);
    if (SUCCEEDED(hr)) rtStream = rtNow - m_tStart;
    return hr;
}

HRESULT CBaseFilter::GetClassID(CLSID* pClassID) {
    if (!pClassID) return E_POINTER;
    *pClassID = m_clsid;
    return S_OK;
}

// ---------------- states

HRESULT CBaseFilter::Stop() {
    CAutoLock lock(*m_pLock);
    HRESULT hrFirst = S_OK;
    if (m_State != State_Stopped) {
        for (int n = 0; n < GetPinCount(); ++n) {
            CBasePin* pPin = GetPin(n);
            if (!pPin || !pPin->IsConnected()) continue;
            const HRESULT hr = pPin->Inactive();
            if (FAILED(hr) && SUCCEEDED(hrFirst)) hrFirst = hr;
        }
    }
    m_State = State_Stopped;
    return hrFirst;
}

HRESULT CBaseFilter::Pause() {
    CAutoLock lock(*m_pLock);
    if (m_State == State_Stopped) {
        for (int n = 0; n < GetPinCount(); ++n) {
            CBasePin* pPin = GetPin(n);
            if (!pPin || !pPin->IsConnected()) continue;
            if (const HRESULT hr = pPin->Active(); FAILED(hr)) return hr;
        }
    }
    m_State = State_Paused;
    return S_OK;
}

HRESULT CBaseFilter::Run(REFERENCE_TIME tStart) {
    CAutoLock lock(*m_pLock);
    m_tStart = tStart;
    if (m_State == State_Stopped) {
        if (const HRESULT hr = Pause(); FAILED(hr)) return hr;
    }
    if (m_State != State_Running) {
        for (int n = 0; n < GetPinCount(); ++n) {
            CBasePin* pPin = GetPin(n);
            if (!pPin || !pPin->IsConnected()) continue;
            if (const HRESULT hr = pPin->Run(tStart); FAILED(hr)) return hr;
        }
    }
    m_State = State_Running;
    return S_OK;
}

HRESULT CBaseFilter::GetState(DWORD, FILTER_STATE* State) {
    if (!State) return E_POINTER;
    *State = m_State;
    return S_OK;
}

// ---------------- clock and graph

HRESULT CBaseFilter::SetSyncSource(IReferenceClock* pClock) {
    CAutoLock lock(*m_pLock);
    m_pClock = pClock;
    return S_OK;
}

HRESULT CBaseFilter::GetSyncSource(IReferenceClock** pClock) {
    if (!pClock) return E_POINTER;
    CAutoLock lock(*m_pLock);
    *pClock = CComPtr(m_pClock).Detach();
    return S_OK;
}

HRESULT CBaseFilter::JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) {
    CAutoLock lock(*m_pLock);
    m_pGraph = pGraph;
    m_wszName = pName ? pName : L"";
    return S_OK;
}

HRESULT CBaseFilter::QueryFilterInfo(FILTER_INFO* pInfo) {
    if (!pInfo) return E_POINTER;
    CAutoLock lock(*m_pLock);
    const std::size_t nLength = m_wszName.copy(pInfo->achName, std::size(pInfo->achName) - 1);
    pInfo->achName[nLength] = L'\0';
    pInfo->pGraph = m_pGraph;
    if (m_pGraph) m_pGraph->AddRef();
    return S_OK;
}

HRESULT CBaseFilter::QueryVendorInfo(LPWSTR*) { return E_NOTIMPL; }

// ---------------- pins

HRESULT CBaseFilter::EnumPins(IEnumPins** ppEnum) {
    if (!ppEnum) return E_POINTER;
    CComPtr<CBaseFilter> pThis(this);
    CEnumPins::Source source{
        [pThis](int n) -> IPin* {
            return CComPtr<IPin>(n < pThis->GetPinCount() ? pThis->GetPin(n) : nullptr).Detach();
        },
        [pThis] { return pThis->GetPinVersion(); }};
    *ppEnum = CComPtr<IEnumPins>(new CEnumPins(IID_IEnumPins, std::move(source))).Detach();
    return S_OK;
}

HRESULT CBaseFilter::FindPin(LPCWSTR Id, IPin** ppPin) {
    if (!Id || !ppPin) return E_POINTER;
    *ppPin = nullptr;
    CAutoLock lock(*m_pLock);
    for (int n = 0; n < GetPinCount(); ++n) {
        CBasePin* pPin = GetPin(n);
        if (!pPin || pPin->Name() != Id) continue;
        return GetInterface(static_cast<IPin*>(pPin), reinterpret_cast<void**>(ppPin));
    }
    return VFW_E_NOT_FOUND;
}

}  // namespace kest

#include "graph/BaseFilter.h"

#include <iterator>
#include <utility>

#include "graph/BasePin.h"
#include "graph/Enumerator.h"
#include "graph/Guard.h"

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

HRESULT CBaseFilter::GetClassID(CLSID* pClassID) {
    if (!pClassID) return E_POINTER;
    *pClassID = m_clsid;
    return S_OK;
}

// ---------------- states

/// Calls step(pin) for every connected pin until one fails. @return the failure, or S_OK.
template <class Step>
HRESULT CBaseFilter::ForEachConnectedPin(Step step) {
    for (int n = 0; n < GetPinCount(); ++n) {
        CBasePin* pPin = GetPin(n);
        if (!pPin || !pPin->IsConnected()) continue;
        if (const HRESULT hr = Guard([&] { return step(*pPin); }); FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT CBaseFilter::Stop() {
    CAutoLock lock(*m_pLock);
    HRESULT hrFirst = S_OK;
    if (m_State != State_Stopped) {
        ForEachConnectedPin([&hrFirst](CBasePin& pin) -> HRESULT {
            const HRESULT hr = Guard([&] { return pin.Inactive(); });
            if (FAILED(hr) && SUCCEEDED(hrFirst)) hrFirst = hr;
            return S_OK;
        });
    }
    m_State = State_Stopped;
    return hrFirst;
}

HRESULT CBaseFilter::Pause() {
    CAutoLock lock(*m_pLock);
    if (m_State == State_Stopped) {
        const HRESULT hr = ForEachConnectedPin([](CBasePin& pin) { return pin.Active(); });
        if (FAILED(hr)) return hr;
    }
    m_State = State_Paused;
    return S_OK;
}

HRESULT CBaseFilter::Run(REFERENCE_TIME tStart) {
    CAutoLock lock(*m_pLock);
    if (m_State == State_Stopped) {
        if (const HRESULT hr = Pause(); FAILED(hr)) return hr;
    }
    if (m_State != State_Running) {
        const HRESULT hr = ForEachConnectedPin([tStart](CBasePin& pin) { return pin.Run(tStart); });
        if (FAILED(hr)) return hr;
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
    CComPtr<IReferenceClock> pNew(pClock);
    CAutoLock lock(*m_pLock);
    std::swap(m_pClock, pNew);  // the old one is released after the lock
    return S_OK;
}

HRESULT CBaseFilter::GetSyncSource(IReferenceClock** pClock) {
    if (!pClock) return E_POINTER;
    CAutoLock lock(*m_pLock);
    *pClock = CComPtr(m_pClock).Detach();
    return S_OK;
}

HRESULT CBaseFilter::JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) {
    return Guard([&] {
        std::wstring wszName(pName ? pName : L"");
        CAutoLock lock(*m_pLock);
        m_pGraph = pGraph;
        m_wszName.swap(wszName);
        return S_OK;
    });
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
    *ppEnum = nullptr;
    return Guard([&] {
        const CComPtr<CBaseFilter> pThis(this);
        CEnumPins::Source source{[pThis](int n, IPin** ppPin) {
                                     CBasePin* pPin = n < pThis->GetPinCount() ? pThis->GetPin(n) : nullptr;
                                     *ppPin = CComPtr<IPin>(pPin).Detach();
                                     return pPin ? S_OK : S_FALSE;
                                 },
                                 [] { return 0; }};
        *ppEnum = CComPtr<IEnumPins>(new CEnumPins(IID_IEnumPins, std::move(source))).Detach();
        return S_OK;
    });
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

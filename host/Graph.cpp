#include "host/Graph.h"

#include <algorithm>
#include <string_view>

#include "graph/Guard.h"

namespace kest {
namespace {

/// From the call of Run to the first sample's time, 100 ns: what the filters need to get going.
constexpr REFERENCE_TIME kStartDelay = 100'000;

template <class Interface>
CComPtr<Interface> Query(IUnknown* pObject, REFIID riid) {
    CComPtr<Interface> pInterface;
    pObject->QueryInterface(riid, reinterpret_cast<void**>(pInterface.Put()));
    return pInterface;
}

/// Disconnects both ends of every connection of a filter.
void DisconnectPins(IBaseFilter* pFilter) {
    CComPtr<IEnumPins> pPins;
    if (FAILED(pFilter->EnumPins(pPins.Put()))) return;
    CComPtr<IPin> pPin;
    while (pPins->Next(1, pPin.Put(), nullptr) == S_OK) {
        CComPtr<IPin> pOther;
        if (FAILED(pPin->ConnectedTo(pOther.Put()))) continue;
        pPin->Disconnect();
        pOther->Disconnect();
    }
}

/// Takes its connections, its clock and its graph from a stopped filter.
void Dismiss(IBaseFilter* pFilter) {
    DisconnectPins(pFilter);
    pFilter->SetSyncSource(nullptr);  // which may be its own, and then keeps it alive
    pFilter->JoinFilterGraph(nullptr, nullptr);
}

}  // namespace

CGraph::~CGraph() {
    Stop();
    for (const auto& pFilter : m_apFilters) Dismiss(pFilter.Get());
}

HRESULT CGraph::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IFilterGraph) return GetInterface(static_cast<IFilterGraph*>(this), ppv);
    if (riid == IID_IGraphConfig) return GetInterface(static_cast<IGraphConfig*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

// ---------------- filters and connections

HRESULT CGraph::AddFilter(IBaseFilter* pFilter, LPCWSTR pName) {
    if (!pFilter) return E_POINTER;
    if (m_State != State_Stopped) return VFW_E_NOT_STOPPED;
    return Guard([&] {
        m_apFilters.emplace_back(pFilter);  // first: it may find no memory
        HRESULT hr = pFilter->JoinFilterGraph(this, pName);
        if (SUCCEEDED(hr)) hr = pFilter->SetSyncSource(m_pClock.Get());
        if (FAILED(hr)) RemoveFilter(pFilter);
        return hr;
    });
}

HRESULT CGraph::RemoveFilter(IBaseFilter* pFilter) {
    const auto it =
        std::ranges::find_if(m_apFilters, [pFilter](const auto& pOwn) { return pOwn.Get() == pFilter; });
    if (it == m_apFilters.end()) return VFW_E_NOT_IN_GRAPH;
    Stop();
    Dismiss(pFilter);
    m_apFilters.erase(it);
    return S_OK;
}

HRESULT CGraph::EnumFilters(IEnumFilters**) { return E_NOTIMPL; }

HRESULT CGraph::FindFilterByName(LPCWSTR pName, IBaseFilter** ppFilter) {
    if (!pName || !ppFilter) return E_POINTER;
    *ppFilter = nullptr;
    for (const auto& pFilter : m_apFilters) {
        FILTER_INFO info{};
        if (FAILED(pFilter->QueryFilterInfo(&info))) continue;
        const auto pGraph = CComPtr<IFilterGraph>::Attach(info.pGraph);
        if (std::wstring_view(info.achName) != pName) continue;
        *ppFilter = CComPtr(pFilter).Detach();
        return S_OK;
    }
    return VFW_E_NOT_FOUND;
}

HRESULT CGraph::ConnectDirect(IPin* ppinOut, IPin* ppinIn, const AM_MEDIA_TYPE* pmt) {
    return ppinOut && ppinIn ? ppinOut->Connect(ppinIn, pmt) : E_POINTER;
}

HRESULT CGraph::Reconnect(IPin* ppin) {
    if (!ppin) return E_POINTER;
    CComPtr<IPin> pOther;
    PIN_DIRECTION dir = PINDIR_OUTPUT;
    HRESULT hr = ppin->ConnectedTo(pOther.Put());
    if (SUCCEEDED(hr)) hr = ppin->QueryDirection(&dir);
    if (SUCCEEDED(hr)) hr = ppin->Disconnect();
    if (SUCCEEDED(hr)) hr = pOther->Disconnect();
    if (FAILED(hr)) return hr;
    return dir == PINDIR_OUTPUT ? Connect(ppin, pOther.Get()) : Connect(pOther.Get(), ppin);
}

HRESULT CGraph::Disconnect(IPin* ppin) { return ppin ? ppin->Disconnect() : E_POINTER; }

// ---------------- clock, states, seeking

HRESULT CGraph::SetSyncSource(IReferenceClock* pClock) {
    if (m_State != State_Stopped) return VFW_E_NOT_STOPPED;
    m_pClock = pClock;
    for (const auto& pFilter : m_apFilters) {
        if (const HRESULT hr = pFilter->SetSyncSource(pClock); FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT CGraph::SetDefaultSyncSource() {
    for (const auto& pFilter : m_apFilters) {
        if (const auto pClock = Query<IReferenceClock>(pFilter.Get(), IID_IReferenceClock)) {
            return SetSyncSource(pClock.Get());
        }
    }
    SetSyncSource(nullptr);
    return VFW_E_NO_CLOCK;
}

HRESULT CGraph::Pause() {
    for (auto it = m_apFilters.rbegin(); it != m_apFilters.rend(); ++it) {
        const HRESULT hr = (*it)->Pause();
        m_State = State_Paused;  // one filter is enough to be stopped again
        if (SUCCEEDED(hr)) continue;
        Stop();
        return hr;
    }
    return S_OK;
}

HRESULT CGraph::Run() {
    if (m_State == State_Stopped) {
        if (const HRESULT hr = Pause(); FAILED(hr)) return hr;
    }
    REFERENCE_TIME rtStart = 0;
    if (m_pClock && SUCCEEDED(m_pClock->GetTime(&rtStart))) rtStart += kStartDelay;
    const HRESULT hr = RunAll(rtStart);
    if (FAILED(hr)) Stop();
    return hr;
}

HRESULT CGraph::RunAll(REFERENCE_TIME rtStart) {
    for (auto it = m_apFilters.rbegin(); it != m_apFilters.rend(); ++it) {
        if (const HRESULT hr = (*it)->Run(rtStart); FAILED(hr)) return hr;
    }
    m_State = State_Running;
    return S_OK;
}

HRESULT CGraph::Stop() {
    HRESULT hrFirst = S_OK;
    for (auto it = m_apFilters.rbegin(); it != m_apFilters.rend(); ++it) {
        const HRESULT hr = (*it)->Stop();
        if (FAILED(hr) && SUCCEEDED(hrFirst)) hrFirst = hr;
    }
    m_State = State_Stopped;
    return hrFirst;
}

/// The seeking object of the first filter that has one, else none.
CComPtr<IMediaSeeking> CGraph::FindSeeking() const {
    for (const auto& pFilter : m_apFilters) {
        if (auto pSeeking = Query<IMediaSeeking>(pFilter.Get(), IID_IMediaSeeking)) return pSeeking;
    }
    return nullptr;
}

HRESULT CGraph::Seek(REFERENCE_TIME rtPosition) {
    const auto pSeeking = FindSeeking();
    if (!pSeeking) return E_NOTIMPL;
    return pSeeking->SetPositions(&rtPosition, AM_SEEKING_AbsolutePositioning, nullptr,
                                  AM_SEEKING_NoPositioning);
}

HRESULT CGraph::SetRate(double dRate) {
    const auto pSeeking = FindSeeking();
    return pSeeking ? pSeeking->SetRate(dRate) : E_NOTIMPL;
}

}  // namespace kest

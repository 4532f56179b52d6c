#pragma once

#include <atomic>
#include <string>

#include "graph/PinOwner.h"
#include "graph/Unknown.h"
#include "platform/CritSec.h"

namespace kest {

class CBasePin;

/// Base of a filter: keeps its state, clock, name and graph, and changes the state of its pins with its own. A derived
/// class names its pins and overrides `Run`, `Pause` and `Stop` to start and end its own work around the base's.
///
/// Locking: state changes, clock and graph membership are guarded by the object lock given at construction, which the
/// pins share. It is held while the pins' `Active`, `Run` and `Inactive` are called, so these must not wait for a
/// thread that takes it. The state is atomic, and read without it.
///
/// No exception leaves an interface method: it becomes a result code, see Guard.
class CBaseFilter : public CImplements<CUnknown, IBaseFilter, IAMovieSetup>, public CPinOwner {
public:
    /// @param pszName  name until the graph gives one; null: none.
    /// @param pOuter   the outer object of an aggregate, or null.
    /// @param pLock    the object lock of the filter and its pins; must outlive both.
    /// @param clsid    class identifier of the filter.
    CBaseFilter(LPCWSTR pszName, IUnknown* pOuter, CCritSec* pLock, REFCLSID clsid);

    /// The pins are numbered from 0; which there are does not change.
    virtual int GetPinCount() = 0;
    /// Pin `n`, without a reference added; null when there is none.
    virtual CBasePin* GetPin(int n) = 0;

    bool IsActive() const { return m_State != State_Stopped; }
    bool IsStopped() const final { return m_State == State_Stopped; }
    IBaseFilter* GetFilter() final { return this; }
    /// The base: while the filter is stopped. A filter whose work starts before its state changes, or ends after, overrides it.
    bool MayChangeConnections() const override { return IsStopped(); }
    /// The graph that the filter is in, without a reference added, or null.
    IFilterGraph* GetFilterGraph() const { return m_pGraph; }

    /// IBaseFilter, IMediaFilter, IPersist, IAMovieSetup and IUnknown.
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* pClassID) override;
    /// Makes every connected pin inactive. @return the first pin's failure; the filter stops all the same.
    HRESULT STDMETHODCALLTYPE Stop() override;
    /// From stopped, makes every connected pin active. @return a pin's failure, with the state unchanged.
    HRESULT STDMETHODCALLTYPE Pause() override;
    /// Pauses first when stopped, and runs every connected pin unless running.
    /// @param tStart  reference time of stream time 0, in 100 ns.
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME tStart) override;
    /// State changes are finished when they return, so this never waits.
    HRESULT STDMETHODCALLTYPE GetState(DWORD dwMilliSecsTimeout, FILTER_STATE* State) override;
    HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* pClock) override;
    /// S_OK with null when there is no clock.
    HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** pClock) override;
    HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** ppEnum) override;
    /// Finds a pin by its name; VFW_E_NOT_FOUND.
    HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** ppPin) override;
    /// The name is cut to the record.
    HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* pInfo) override;
    /// The graph is not counted: it outlives the membership of its filters.
    HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) override;
    /// E_NOTIMPL: there is no vendor text.
    HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* pVendorInfo) override;
    /// S_FALSE: there is nothing to register; a filter with registration data overrides both.
    HRESULT STDMETHODCALLTYPE Register() override { return S_FALSE; }
    HRESULT STDMETHODCALLTYPE Unregister() override { return S_FALSE; }

protected:
    std::atomic<FILTER_STATE> m_State{State_Stopped};  // written under m_pLock
    CComPtr<IReferenceClock> m_pClock;                 // the graph's clock, or none
    const CLSID m_clsid;                               // class of the filter
    CCritSec* const m_pLock;                           // the object lock, shared with the pins
    std::wstring m_wszName;                            // name in the graph
    IFilterGraph* m_pGraph = nullptr;                  // the graph, not counted

private:
    template <class Step>
    HRESULT ForEachConnectedPin(Step step);
};

}  // namespace kest

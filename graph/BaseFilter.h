#pragma once

#include <atomic>
#include <string>

#include "graph/Unknown.h"
#include "platform/CritSec.h"

namespace kest {

class CBasePin;

/// Base of a filter: keeps its state, its clock, its name and its place in the graph, and leads its pins
/// through the states. A derived class says which pins there are and overrides `Run`, `Pause` and `Stop` to
/// start and end its own work around the base's.
///
/// Locking: state changes, clock and graph membership are guarded by the object lock given at construction,
/// which the pins share; it is held while the pins' `Active`, `Run` and `Inactive` are called, so these must
/// not wait for a thread that takes it. State and start time are atomic, and read without it.
class CBaseFilter : public CImplements<CUnknown, IBaseFilter, IAMovieSetup> {
public:
    /// @param pszName  name until the graph gives one; null: none.
    /// @param pOuter   the outer object of an aggregate, or null.
    /// @param pLock    the object lock of the filter and its pins; must outlive both.
    /// @param clsid    class identifier of the filter.
    CBaseFilter(LPCWSTR pszName, IUnknown* pOuter, CCritSec* pLock, REFCLSID clsid);

    /// The pins are numbered from 0. What is here today; see `IncrementPinVersion`.
    virtual int GetPinCount() = 0;
    /// Pin `n`, without a reference added; null when there is none.
    virtual CBasePin* GetPin(int n) = 0;

    bool IsActive() const { return m_State != State_Stopped; }
    bool IsStopped() const { return m_State == State_Stopped; }
    /// Whether pins may be connected and disconnected now; asked with the object lock held.
    virtual bool MayChangeConnections() const { return IsStopped(); }
    /// The time that has passed since the start of the stream, in 100 ns; VFW_E_NO_CLOCK without a clock.
    HRESULT StreamTime(REFERENCE_TIME& rtStream);
    /// The graph that the filter is in, without a reference added, or null.
    IFilterGraph* GetFilterGraph() const { return m_pGraph; }
    /// Says that pins came or went: enumerators in use become out of sync.
    void IncrementPinVersion() { ++m_nPinVersion; }
    int GetPinVersion() const { return m_nPinVersion; }

    /// IBaseFilter, IMediaFilter, IPersist, IAMovieSetup and IUnknown.
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* pClassID) override;
    /// Takes every connected pin out of activity. @return the first pin's failure; it stops all the same.
    HRESULT STDMETHODCALLTYPE Stop() override;
    /// From stopped, makes every connected pin active. @return a pin's failure, with the state unchanged.
    HRESULT STDMETHODCALLTYPE Pause() override;
    /// Notes the start time, pauses first when stopped, and runs every connected pin unless running.
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
    HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* pInfo) override;
    /// The graph is not counted: it outlives its filters' membership.
    HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) override;
    /// E_NOTIMPL: there is no vendor text.
    HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* pVendorInfo) override;
    /// S_FALSE: there is nothing to register; a filter with registration data overrides both.
    HRESULT STDMETHODCALLTYPE Register() override { return S_FALSE; }
    HRESULT STDMETHODCALLTYPE Unregister() override { return S_FALSE; }

protected:
    std::atomic<FILTER_STATE> m_State{State_Stopped};  // written under m_pLock
    std::atomic<REFERENCE_TIME> m_tStart{0};           // reference time of stream time 0, 100 ns
    CComPtr<IReferenceClock> m_pClock;                 // the graph's clock, or none
    const CLSID m_clsid;                               // class of the filter
    CCritSec* const m_pLock;                           // the object lock, shared with the pins
    std::wstring m_wszName;                            // name in the graph
    IFilterGraph* m_pGraph = nullptr;                  // the graph, not counted
    std::atomic<int> m_nPinVersion{1};                 // version of the list of pins
};

}  // namespace kest

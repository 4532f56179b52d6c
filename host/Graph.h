#pragma once

#include <vector>

#include "graph/Unknown.h"

namespace kest {

/// A small media graph: filters, the connections between them, their common state and clock.
///
/// Filters are added from the source to the sinks; a change of state goes the other way, so that nobody
/// delivers to a filter that is not ready, and that a thread which waits in a sink returns before its own
/// filter waits for it. One thread at a time uses the graph; its filters have threads of their own. No
/// operation throws.
///
/// The destructor stops the graph and removes the filters.
class CGraph final : public CImplements<CUnknown, IFilterGraph, IGraphConfig> {
public:
    CGraph() = default;
    ~CGraph() override;

    /// Connects an output pin with an input pin, on whatever type they agree.
    HRESULT Connect(IPin* pOutput, IPin* pInput) { return ConnectDirect(pOutput, pInput, nullptr); }
    /// Gives all filters this clock; null: none. Only while stopped.
    HRESULT SetSyncSource(IReferenceClock* pClock);

    /// The states, for all filters; a failure stops the graph. `Run` from stopped pauses first.
    HRESULT Pause();
    HRESULT Run();
    /// @return the first failure; the other filters are stopped all the same.
    HRESULT Stop();
    /// Seeks to a media time (100 ns) through the first filter that can; E_NOTIMPL when none can.
    HRESULT Seek(REFERENCE_TIME rtPosition);
    /// Changes the rate through the same filter; E_NOTIMPL.
    HRESULT SetRate(double dRate);

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IFilterGraph

    /// Adds a filter behind those that are there and gives it the graph's clock. VFW_E_NOT_STOPPED,
    /// E_OUTOFMEMORY, or what the filter returns: then it is in no graph.
    HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter* pFilter, LPCWSTR pName) override;
    /// Stops the whole graph, then disconnects the filter. VFW_E_NOT_IN_GRAPH.
    HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter* pFilter) override;
    /// E_NOTIMPL: no filter here asks who else is in the graph.
    HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters** ppEnum) override;
    /// VFW_E_NOT_FOUND, with null.
    HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR pName, IBaseFilter** ppFilter) override;
    HRESULT STDMETHODCALLTYPE ConnectDirect(IPin* ppinOut, IPin* ppinIn, const AM_MEDIA_TYPE* pmt) override;
    /// Disconnects both ends and connects them again; VFW_E_NOT_CONNECTED.
    HRESULT STDMETHODCALLTYPE Reconnect(IPin* ppin) override;
    /// Disconnects one end; the other end needs a call of its own.
    HRESULT STDMETHODCALLTYPE Disconnect(IPin* ppin) override;
    /// The clock of the first filter that has one, else none (VFW_E_NO_CLOCK).
    HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() override;

    // IGraphConfig: a filter asks for it when it joins. A graph of this program does not change while it
    // runs, so that all of it is E_NOTIMPL.

    HRESULT STDMETHODCALLTYPE Reconnect(IPin*, IPin*, const AM_MEDIA_TYPE*, IBaseFilter*, HANDLE,
                                        DWORD) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Reconfigure(IGraphConfigCallback*, PVOID, DWORD, HANDLE) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE AddFilterToCache(IBaseFilter*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumCacheFilter(IEnumFilters**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RemoveFilterFromCache(IBaseFilter*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetStartTime(REFERENCE_TIME*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE PushThroughData(IPin*, IPinConnection*, HANDLE) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetFilterFlags(IBaseFilter*, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFilterFlags(IBaseFilter*, DWORD*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RemoveFilterEx(IBaseFilter*, DWORD) override { return E_NOTIMPL; }

private:
    HRESULT RunAll(REFERENCE_TIME rtStart);
    CComPtr<IMediaSeeking> FindSeeking() const;

    std::vector<CComPtr<IBaseFilter>> m_apFilters;  // from the source to the sinks
    CComPtr<IReferenceClock> m_pClock;              // of all filters, or none
    FILTER_STATE m_State = State_Stopped;           // of all filters
};

}  // namespace kest

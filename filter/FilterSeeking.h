#pragma once

#include "graph/Unknown.h"

namespace kest {

/// The filter's IMediaSeeking: hands every operation to the seeking object of the video pin, except the
/// conversion of time formats, which it does not have.
class CFilterSeeking final : public CImplements<CUnknown, IMediaSeeking> {
public:
    /// @param pOuter  the filter.
    /// @param target  the object that answers. Not counted: it lives in a pin of the filter.
    CFilterSeeking(IUnknown* pOuter, IMediaSeeking& target) : CImplements(pOuter), m_target(target) {}

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IMediaSeeking) return GetInterface(static_cast<IMediaSeeking*>(this), ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }

    HRESULT STDMETHODCALLTYPE GetCapabilities(DWORD* pCapabilities) override {
        return m_target.GetCapabilities(pCapabilities);
    }
    HRESULT STDMETHODCALLTYPE CheckCapabilities(DWORD* pCapabilities) override {
        return m_target.CheckCapabilities(pCapabilities);
    }
    HRESULT STDMETHODCALLTYPE IsFormatSupported(const GUID* pFormat) override {
        return m_target.IsFormatSupported(pFormat);
    }
    HRESULT STDMETHODCALLTYPE QueryPreferredFormat(GUID* pFormat) override {
        return m_target.QueryPreferredFormat(pFormat);
    }
    HRESULT STDMETHODCALLTYPE GetTimeFormat(GUID* pFormat) override {
        return m_target.GetTimeFormat(pFormat);
    }
    HRESULT STDMETHODCALLTYPE IsUsingTimeFormat(const GUID* pFormat) override {
        return m_target.IsUsingTimeFormat(pFormat);
    }
    HRESULT STDMETHODCALLTYPE SetTimeFormat(const GUID* pFormat) override {
        return m_target.SetTimeFormat(pFormat);
    }
    HRESULT STDMETHODCALLTYPE GetDuration(LONGLONG* pDuration) override {
        return m_target.GetDuration(pDuration);
    }
    HRESULT STDMETHODCALLTYPE GetStopPosition(LONGLONG* pStop) override {
        return m_target.GetStopPosition(pStop);
    }
    HRESULT STDMETHODCALLTYPE GetCurrentPosition(LONGLONG* pCurrent) override {
        return m_target.GetCurrentPosition(pCurrent);
    }
    HRESULT STDMETHODCALLTYPE ConvertTimeFormat(LONGLONG*, const GUID*, LONGLONG, const GUID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop,
                                           DWORD dwStopFlags) override {
        return m_target.SetPositions(pCurrent, dwCurrentFlags, pStop, dwStopFlags);
    }
    HRESULT STDMETHODCALLTYPE GetPositions(LONGLONG* pCurrent, LONGLONG* pStop) override {
        return m_target.GetPositions(pCurrent, pStop);
    }
    HRESULT STDMETHODCALLTYPE GetAvailable(LONGLONG* pEarliest, LONGLONG* pLatest) override {
        return m_target.GetAvailable(pEarliest, pLatest);
    }
    HRESULT STDMETHODCALLTYPE SetRate(double dRate) override { return m_target.SetRate(dRate); }
    HRESULT STDMETHODCALLTYPE GetRate(double* pdRate) override { return m_target.GetRate(pdRate); }
    HRESULT STDMETHODCALLTYPE GetPreroll(LONGLONG* pllPreroll) override {
        return m_target.GetPreroll(pllPreroll);
    }

private:
    IMediaSeeking& m_target;  // the video pin's seeking object
};

}  // namespace kest

#pragma once

#include "graph/Unknown.h"

namespace kest {

/// The filter's IMediaSeeking: hands every operation to the seeking object of the video pin, except the
/// conversion of time formats, which it does not have.
class CFilterSeeking final : public CImplements<CUnknown, IMediaSeeking> {
public:
    /// @param pOuter  the filter.
    explicit CFilterSeeking(IUnknown* pOuter) : CImplements(pOuter) {}
    /// The object that answers; set once, before the first query. Not counted: it lives in a pin of the
    /// filter.
    void SetTarget(IMediaSeeking& target) { m_pTarget = &target; }

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IMediaSeeking) return GetInterface(static_cast<IMediaSeeking*>(this), ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }

    HRESULT STDMETHODCALLTYPE GetCapabilities(DWORD* pCapabilities) override {
        return m_pTarget->GetCapabilities(pCapabilities);
    }
    HRESULT STDMETHODCALLTYPE CheckCapabilities(DWORD* pCapabilities) override {
        return m_pTarget->CheckCapabilities(pCapabilities);
    }
    HRESULT STDMETHODCALLTYPE IsFormatSupported(const GUID* pFormat) override {
        return m_pTarget->IsFormatSupported(pFormat);
    }
    HRESULT STDMETHODCALLTYPE QueryPreferredFormat(GUID* pFormat) override {
        return m_pTarget->QueryPreferredFormat(pFormat);
    }
    HRESULT STDMETHODCALLTYPE GetTimeFormat(GUID* pFormat) override {
        return m_pTarget->GetTimeFormat(pFormat);
    }
    HRESULT STDMETHODCALLTYPE IsUsingTimeFormat(const GUID* pFormat) override {
        return m_pTarget->IsUsingTimeFormat(pFormat);
    }
    HRESULT STDMETHODCALLTYPE SetTimeFormat(const GUID* pFormat) override {
        return m_pTarget->SetTimeFormat(pFormat);
    }
    HRESULT STDMETHODCALLTYPE GetDuration(LONGLONG* pDuration) override {
        return m_pTarget->GetDuration(pDuration);
    }
    HRESULT STDMETHODCALLTYPE GetStopPosition(LONGLONG* pStop) override {
        return m_pTarget->GetStopPosition(pStop);
    }
    HRESULT STDMETHODCALLTYPE GetCurrentPosition(LONGLONG* pCurrent) override {
        return m_pTarget->GetCurrentPosition(pCurrent);
    }
    HRESULT STDMETHODCALLTYPE ConvertTimeFormat(LONGLONG*, const GUID*, LONGLONG, const GUID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop,
                                           DWORD dwStopFlags) override {
        return m_pTarget->SetPositions(pCurrent, dwCurrentFlags, pStop, dwStopFlags);
    }
    HRESULT STDMETHODCALLTYPE GetPositions(LONGLONG* pCurrent, LONGLONG* pStop) override {
        return m_pTarget->GetPositions(pCurrent, pStop);
    }
    HRESULT STDMETHODCALLTYPE GetAvailable(LONGLONG* pEarliest, LONGLONG* pLatest) override {
        return m_pTarget->GetAvailable(pEarliest, pLatest);
    }
    HRESULT STDMETHODCALLTYPE SetRate(double dRate) override { return m_pTarget->SetRate(dRate); }
    HRESULT STDMETHODCALLTYPE GetRate(double* pdRate) override { return m_pTarget->GetRate(pdRate); }
    HRESULT STDMETHODCALLTYPE GetPreroll(LONGLONG* pllPreroll) override {
        return m_pTarget->GetPreroll(pllPreroll);
    }

private:
    IMediaSeeking* m_pTarget = nullptr;  // the video pin's seeking object
};

}  // namespace kest

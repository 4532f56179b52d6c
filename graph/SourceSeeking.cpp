#include "graph/SourceSeeking.h"

#include "graph/Guard.h"
#include "graph/TimeArithmetic.h"

namespace kest {

CSourceSeeking::CSourceSeeking(IUnknown* pOuter, CCritSec* pLock)
    : CImplements(pOuter),
      m_pLock(pLock),
      m_dwSeekingCaps(AM_SEEKING_CanSeekAbsolute | AM_SEEKING_CanSeekForwards | AM_SEEKING_CanSeekBackwards |
                      AM_SEEKING_CanGetStopPos | AM_SEEKING_CanGetDuration) {}

HRESULT CSourceSeeking::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IMediaSeeking) return GetInterface(static_cast<IMediaSeeking*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

// ---------------- capabilities and formats

HRESULT CSourceSeeking::GetCapabilities(DWORD* pCapabilities) {
    if (!pCapabilities) return E_POINTER;
    *pCapabilities = m_dwSeekingCaps;
    return S_OK;
}

HRESULT CSourceSeeking::CheckCapabilities(DWORD* pCapabilities) {
    if (!pCapabilities) return E_POINTER;
    return (*pCapabilities & ~m_dwSeekingCaps.load()) == 0 ? S_OK : S_FALSE;
}

HRESULT CSourceSeeking::IsFormatSupported(const GUID* pFormat) {
    if (!pFormat) return E_POINTER;
    return *pFormat == TIME_FORMAT_MEDIA_TIME ? S_OK : S_FALSE;
}

HRESULT CSourceSeeking::QueryPreferredFormat(GUID* pFormat) {
    if (!pFormat) return E_POINTER;
    *pFormat = TIME_FORMAT_MEDIA_TIME;
    return S_OK;
}

HRESULT CSourceSeeking::GetTimeFormat(GUID* pFormat) { return QueryPreferredFormat(pFormat); }
HRESULT CSourceSeeking::IsUsingTimeFormat(const GUID* pFormat) { return IsFormatSupported(pFormat); }

HRESULT CSourceSeeking::SetTimeFormat(const GUID* pFormat) {
    if (!pFormat) return E_POINTER;
    return *pFormat == TIME_FORMAT_MEDIA_TIME ? S_OK : E_INVALIDARG;
}

HRESULT CSourceSeeking::ConvertTimeFormat(LONGLONG* pTarget, const GUID* pTargetFormat, LONGLONG Source,
                                          const GUID* pSourceFormat) {
    if (!pTarget) return E_POINTER;
    for (const GUID* pFormat : {pTargetFormat, pSourceFormat}) {
        if (pFormat && *pFormat != TIME_FORMAT_MEDIA_TIME) return E_INVALIDARG;
    }
    *pTarget = Source;
    return S_OK;
}

// ---------------- positions

HRESULT CSourceSeeking::GetDuration(LONGLONG* pDuration) {
    if (!pDuration) return E_POINTER;
    *pDuration = m_rtDuration;
    return S_OK;
}

HRESULT CSourceSeeking::GetStopPosition(LONGLONG* pStop) {
    if (!pStop) return E_POINTER;
    *pStop = m_rtStop;
    return S_OK;
}

HRESULT CSourceSeeking::GetCurrentPosition(LONGLONG*) { return E_NOTIMPL; }

HRESULT CSourceSeeking::SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop,
                                     DWORD dwStopFlags) {
    const DWORD dwStopBits = dwStopFlags & AM_SEEKING_PositioningBitsMask;
    const DWORD dwCurrentBits = dwCurrentFlags & AM_SEEKING_PositioningBitsMask;
    if (dwStopFlags != 0) {
        if (!pStop) return E_POINTER;
        if (dwStopFlags != dwStopBits) return E_INVALIDARG;
    }
    if (dwCurrentFlags != 0) {
        if (!pCurrent) return E_POINTER;
        if (dwCurrentBits != AM_SEEKING_AbsolutePositioning &&
            dwCurrentBits != AM_SEEKING_RelativePositioning)
            return E_INVALIDARG;
    }
    return Guard([&] {
        const bool bSeeks = dwCurrentBits != 0 && HasPositions();
        REFERENCE_TIME rtStart = 0, rtStop = 0;
        {
            CAutoLock lock(*m_pLock);
            rtStart = m_rtStart;
            rtStop = m_rtStop;
            if (bSeeks) {
                const bool bAbsolute = dwCurrentBits == AM_SEEKING_AbsolutePositioning;
                m_rtStart = rtStart = bAbsolute ? *pCurrent : SaturatedAdd(rtStart, *pCurrent);
            }
            if (dwStopBits == AM_SEEKING_AbsolutePositioning) rtStop = *pStop;
            if (dwStopBits == AM_SEEKING_IncrementalPositioning) rtStop = SaturatedAdd(rtStart, *pStop);
            if (dwStopBits == AM_SEEKING_RelativePositioning) rtStop = SaturatedAdd(rtStop, *pStop);
            if (dwStopBits != 0) m_rtStop = rtStop;
        }
        HRESULT hr = S_OK;
        if (dwStopBits != 0) hr = ChangeStop(rtStop);
        if (bSeeks) hr = ChangeStart(rtStart);
        return hr;
    });
}

HRESULT CSourceSeeking::GetPositions(LONGLONG* pCurrent, LONGLONG* pStop) {
    return Guard([&] {
        CAutoLock lock(*m_pLock);
        if (pCurrent) *pCurrent = m_rtStart;
        if (pStop) *pStop = m_rtStop;
        return S_OK;
    });
}

HRESULT CSourceSeeking::GetAvailable(LONGLONG* pEarliest, LONGLONG* pLatest) {
    if (pEarliest) *pEarliest = 0;
    if (pLatest) *pLatest = m_rtDuration;
    return S_OK;
}

// ---------------- rate

HRESULT CSourceSeeking::SetRate(double dRate) {
    m_dRateSeeking = dRate;
    return Guard([&] { return ChangeRate(dRate); });
}

HRESULT CSourceSeeking::GetRate(double* pdRate) {
    if (!pdRate) return E_POINTER;
    *pdRate = m_dRateSeeking;
    return S_OK;
}

HRESULT CSourceSeeking::GetPreroll(LONGLONG* pllPreroll) {
    if (!pllPreroll) return E_POINTER;
    *pllPreroll = 0;
    return S_OK;
}

}  // namespace kest

#include "pins/PinSeeking.h"

#include <cinttypes>

#include "platform/DebugText.h"

namespace kest {
namespace {

constexpr DWORD kCapabilities = AM_SEEKING_CanSeekAbsolute | AM_SEEKING_CanSeekForwards |
                                AM_SEEKING_CanSeekBackwards | AM_SEEKING_CanGetStopPos |
                                AM_SEEKING_CanGetDuration;
constexpr REFERENCE_TIME kSecond = 10000000;  // in 100 ns

/// Asks for a time in 100 ns and gives it in seconds.
template <class Get>
HRESULT InSeconds(REFTIME* pSeconds, Get get) {
    if (!pSeconds) return E_POINTER;
    LONGLONG rt = 0;
    const HRESULT hr = get(&rt);
    if (SUCCEEDED(hr)) *pSeconds = static_cast<REFTIME>(rt) / static_cast<REFTIME>(kSecond);
    return hr;
}

HRESULT SayYes(LONG* pCan) {
    if (!pCan) return E_POINTER;
    *pCan = OATRUE;
    return S_OK;
}

}  // namespace

CPinSeeking::CPinSeeking(IUnknown* pOwner, CCritSec* pLock, IDemuxFilterSite* pSite)
    : CSourceSeeking(pOwner, pLock), m_pDemuxFilter(pSite) {
    m_dwSeekingCaps = kCapabilities;
}

void CPinSeeking::Init(std::int64_t llLength, std::uint32_t nBitRate) {
    m_dwSeekingCaps = kCapabilities;
    m_dRateSeeking = 1.0;
    if (nBitRate == 0) return;
    m_rtStop = m_rtDuration = llLength * kSecond / nBitRate * 8;
}

void CPinSeeking::UpdatePosition(std::int64_t llFilePos, std::uint32_t nBitRate) {
    if (nBitRate / 100 == 0) return;
    m_rtStart = llFilePos * 800000 / (nBitRate / 100);
    m_rtDuration = m_rtStop.load();
}

HRESULT CPinSeeking::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IMediaPosition) return m_position.NonDelegatingQueryInterface(riid, ppv);
    return CSourceSeeking::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CPinSeeking::GetCapabilities(DWORD* pCapabilities) {
    m_dwSeekingCaps = kCapabilities;
    return CSourceSeeking::GetCapabilities(pCapabilities);
}

HRESULT CPinSeeking::GetCurrentPosition(LONGLONG* pCurrent) {
    if (!pCurrent) return E_POINTER;
    *pCurrent = m_rtStart;
    return S_OK;
}

HRESULT CPinSeeking::ChangeStart() {
    const REFERENCE_TIME rtStart = m_rtStart;
    DebugText("==>Change current position =%" PRId64 " <===\n", static_cast<std::int64_t>(rtStart));
    m_pDemuxFilter->SeekHook(rtStart);
    return S_OK;
}

HRESULT CPinSeeking::ChangeStop() {
    m_pDemuxFilter->StopHook(m_rtStop);
    return S_OK;
}

HRESULT CPinSeeking::ChangeRate() {
    m_pDemuxFilter->RateHook(m_dRateSeeking);
    return S_OK;
}

HRESULT CPinSeeking::CPosition::get_Duration(REFTIME* plength) {
    return InSeconds(plength, [this](LONGLONG* prt) { return m_seeking.GetDuration(prt); });
}
HRESULT CPinSeeking::CPosition::get_CurrentPosition(REFTIME* pllTime) {
    return InSeconds(pllTime, [this](LONGLONG* prt) { return m_seeking.GetCurrentPosition(prt); });
}
HRESULT CPinSeeking::CPosition::get_StopTime(REFTIME* pllTime) {
    return InSeconds(pllTime, [this](LONGLONG* prt) { return m_seeking.GetStopPosition(prt); });
}
HRESULT CPinSeeking::CPosition::get_PrerollTime(REFTIME* pllTime) {
    return InSeconds(pllTime, [this](LONGLONG* prt) { return m_seeking.GetPreroll(prt); });
}
HRESULT CPinSeeking::CPosition::CanSeekForward(LONG* pCanSeekForward) { return SayYes(pCanSeekForward); }
HRESULT CPinSeeking::CPosition::CanSeekBackward(LONG* pCanSeekBackward) { return SayYes(pCanSeekBackward); }

}  // namespace kest

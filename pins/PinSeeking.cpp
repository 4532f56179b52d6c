#include "pins/PinSeeking.h"

#include <cinttypes>

#include "graph/Guard.h"
#include "graph/TimeArithmetic.h"
#include "pins/Timeline.h"
#include "platform/DebugText.h"

namespace kest {
namespace {

constexpr DWORD kCapabilities = AM_SEEKING_CanSeekAbsolute | AM_SEEKING_CanSeekForwards |
                                AM_SEEKING_CanSeekBackwards | AM_SEEKING_CanGetStopPos |
                                AM_SEEKING_CanGetDuration;
static_assert(kCapabilities == 55);
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

HRESULT AnswerTrue(LONG* pCan) {
    if (!pCan) return E_POINTER;
    *pCan = OATRUE;
    return S_OK;
}

}  // namespace

CPinSeeking::CPinSeeking(IUnknown* pOwner, CCritSec* pLock, IDemuxFilterSite* pSite)
    : CSourceSeeking(pOwner, pLock), m_pDemuxFilter(pSite) {
    m_dwSeekingCaps = kCapabilities;
}

void CPinSeeking::Init(std::int64_t llLength) {
    m_dwSeekingCaps = kCapabilities;
    m_dRateSeeking = 1.0;
    const auto extent = m_pDemuxFilter->GetTimeExtent();
    m_bByTime = extent.has_value();
    if (extent) {
        m_extent = *extent;
        m_llLength = llLength;
        m_rtStop = m_rtDuration = CTimeline::ToTime(extent->llDuration);
        return;
    }
    const std::uint32_t nBitRate = m_pDemuxFilter->GetBitRate();
    if (nBitRate != 0) m_rtStop = m_rtDuration = MulDiv(MulDiv(llLength, kSecond, nBitRate), 8, 1);
}

void CPinSeeking::ForgetPositions() {
    m_llFilePos = 0;
    m_llTimestamp = kNoFrameTime;
    if (m_pDemuxFilter->GetSwitch(ESwitch::SeekByTime) != 0) m_rtStart = 0;
}

void CPinSeeking::SetFrame(const FRAME_INFO& info) {
    m_llFilePos = info.llFilePos;
    m_llTimestamp = info.bSegmentMarker ? kNoFrameTime : info.llPts;
}

void CPinSeeking::UpdatePosition() {
    if (m_bByTime) {
        const std::int64_t llTimestamp = m_llTimestamp;
        m_rtStart = llTimestamp != kNoFrameTime ? CTimeline::ToTime(m_extent.TimeOf(llTimestamp))
                    : m_llLength > 0            ? MulDiv(m_rtDuration, m_llFilePos, m_llLength)
                                                : 0;
        return;
    }
    const std::uint32_t nHundreds = m_pDemuxFilter->GetBitRate() / 100;
    if (nHundreds == 0) return;
    m_rtStart = MulDiv(m_llFilePos, 800000, nHundreds);
    m_rtDuration = m_rtStop.load();
}

std::optional<std::uint32_t> CPinSeeking::SkipAhead(const std::function<bool()>& isStale) {
    constexpr REFERENCE_TIME kStep = 1000000;
    CAutoLock lock(m_csSeek);
    if (m_bByTime || !HasPositions() || isStale()) return std::nullopt;
    REFERENCE_TIME rtStart = 0;
    {
        CAutoLock positions(*m_pLock);
        m_rtStart = rtStart = SaturatedAdd(m_rtStart, kStep);
    }
    ChangeStart(rtStart);
    return m_nSeeks;
}

HRESULT CPinSeeking::SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop,
                                  DWORD dwStopFlags) {
    return Guard([&] {
        CAutoLock lock(m_csSeek);
        return CSourceSeeking::SetPositions(pCurrent, dwCurrentFlags, pStop, dwStopFlags);
    });
}

HRESULT CPinSeeking::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IMediaPosition || riid == IID_IDispatch)
        return m_position.NonDelegatingQueryInterface(riid, ppv);
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

HRESULT CPinSeeking::ChangeStart(REFERENCE_TIME rtStart) {
    DebugText("==>Change current position =%" PRId64 " <===\n", std::int64_t{rtStart});
    ++m_nSeeks;
    m_pDemuxFilter->SeekHook(rtStart);
    return S_OK;
}

HRESULT CPinSeeking::ChangeStop(REFERENCE_TIME rtStop) {
    m_pDemuxFilter->StopHook(rtStop);
    return S_OK;
}

HRESULT CPinSeeking::ChangeRate(double dRate) {
    m_pDemuxFilter->RateHook(dRate);
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
HRESULT CPinSeeking::CPosition::CanSeekForward(LONG* pCanSeekForward) { return AnswerTrue(pCanSeekForward); }
HRESULT CPinSeeking::CPosition::CanSeekBackward(LONG* pCanSeekBackward) {
    return AnswerTrue(pCanSeekBackward);
}

}  // namespace kest

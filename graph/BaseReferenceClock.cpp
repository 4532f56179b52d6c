#include "graph/BaseReferenceClock.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "graph/Guard.h"
#include "platform/SystemEvent.h"

namespace kest {
namespace {

constexpr REFERENCE_TIME kUnitsPerMs = 10000;  // 100 ns each
constexpr REFERENCE_TIME kNever = std::numeric_limits<REFERENCE_TIME>::max();

/// The wait until a time that lies rtAhead ahead, rounded up so that one wait is enough.
std::uint32_t ToWaitMs(REFERENCE_TIME rtAhead) {
    constexpr REFERENCE_TIME kLongest = 3600 * 1000;  // then the wait is computed again
    return static_cast<std::uint32_t>(std::min((rtAhead - 1) / kUnitsPerMs + 1, kLongest));
}

}  // namespace

HRESULT CBaseReferenceClock::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IReferenceClock) return GetInterface(static_cast<IReferenceClock*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

REFERENCE_TIME CBaseReferenceClock::GetPrivateTime() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count() * kUnitsPerMs;
}

HRESULT CBaseReferenceClock::GetTime(REFERENCE_TIME* pTime) {
    if (!pTime) return E_POINTER;
    CAutoLock lock(m_csLock);
    const REFERENCE_TIME rtBefore = m_rtLast;
    *pTime = Now();
    return *pTime > rtBefore ? S_OK : S_FALSE;
}

/// The time that never goes back; the caller holds the lock.
REFERENCE_TIME CBaseReferenceClock::Now() {
    m_rtLast = std::max(m_rtLast, GetPrivateTime());
    return m_rtLast;
}

// ---------------- advises

HRESULT CBaseReferenceClock::AdviseTime(REFERENCE_TIME baseTime, REFERENCE_TIME streamTime, HEVENT hEvent,
                                        DWORD_PTR* pdwAdviseCookie) {
    if (!pdwAdviseCookie) return E_POINTER;
    *pdwAdviseCookie = 0;
    const bool bOverflows = streamTime > 0 && baseTime > kNever - streamTime;
    const bool bUnderflows = streamTime < 0 && baseTime <= 0;  // not positive either
    if (!hEvent || bOverflows || bUnderflows || baseTime + streamTime <= 0) return E_INVALIDARG;
    return AddAdvise(baseTime + streamTime, 0, hEvent, pdwAdviseCookie);
}

HRESULT CBaseReferenceClock::AdvisePeriodic(REFERENCE_TIME startTime, REFERENCE_TIME periodTime,
                                            HSEMAPHORE hSemaphore, DWORD_PTR* pdwAdviseCookie) {
    if (!pdwAdviseCookie) return E_POINTER;
    *pdwAdviseCookie = 0;
    if (!hSemaphore || startTime <= 0 || periodTime <= 0) return E_INVALIDARG;
    return AddAdvise(startTime, periodTime, hSemaphore, pdwAdviseCookie);
}

HRESULT CBaseReferenceClock::AddAdvise(REFERENCE_TIME rtDue, REFERENCE_TIME rtPeriod, DWORD_PTR hSignal,
                                       DWORD_PTR* pdwCookie) {
    return Guard([&] {
        CAutoLock lock(m_csLock);
        if (m_bEnded) return E_FAIL;
        m_advises.reserve(m_advises.size() + 1);
        if (!m_thread.Exists() && !m_thread.Start([this] { return AdviseThreadProc(); }))
            return E_OUTOFMEMORY;
        m_advises.push_back({++m_dwLastCookie, rtDue, rtPeriod, reinterpret_cast<HANDLE>(hSignal)});
        *pdwCookie = m_dwLastCookie;
        m_evSchedule.Set();
        return S_OK;
    });
}

HRESULT CBaseReferenceClock::Unadvise(DWORD_PTR dwAdviseCookie) {
    CAutoLock lock(m_csLock);
    return std::erase_if(m_advises, [=](const Advise& advise) { return advise.dwCookie == dwAdviseCookie; })
               ? S_OK
               : S_FALSE;
}

/// Signals the advises that are due. @return the wait until the next one in milliseconds. The caller holds the lock.
std::uint32_t CBaseReferenceClock::SignalDue() {
    const REFERENCE_TIME rtNow = Now();
    REFERENCE_TIME rtNext = kNever;
    for (Advise& advise : m_advises) {
        if (advise.rtDue <= rtNow && advise.rtPeriod == 0) {
            SetEventHandle(advise.hSignal);
        } else if (advise.rtDue <= rtNow) {
            ReleaseSemaphoreHandle(advise.hSignal);
            const REFERENCE_TIME rtLate = (rtNow - advise.rtDue) % advise.rtPeriod;
            advise.rtDue = advise.rtPeriod > kNever - rtNow ? kNever : rtNow - rtLate + advise.rtPeriod;
        }
        if (advise.rtDue > rtNow) rtNext = std::min(rtNext, advise.rtDue);
    }
    std::erase_if(m_advises, [=](const Advise& advise) { return advise.rtDue <= rtNow; });
    return rtNext == kNever ? kInfinite : ToWaitMs(rtNext - rtNow);
}

std::int32_t CBaseReferenceClock::AdviseThreadProc() {
    for (;;) {
        std::uint32_t nWaitMs = 0;
        {
            CAutoLock lock(m_csLock);
            if (m_bEnded) return 0;
            nWaitMs = SignalDue();
        }
        m_evSchedule.Wait(nWaitMs);
    }
}

void CBaseReferenceClock::EndAdvises() {
    {
        CAutoLock lock(m_csLock);
        m_bEnded = true;
    }
    m_evSchedule.Set();
    m_thread.Close();
}

}  // namespace kest

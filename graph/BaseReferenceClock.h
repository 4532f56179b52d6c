#pragma once

#include <vector>

#include "graph/Unknown.h"
#include "platform/CritSec.h"
#include "platform/Event.h"
#include "platform/Thread.h"

namespace kest {

/// A reference clock on the system's millisecond timer: gives the time, and signals events at times that are asked for.
///
/// Its lock is a leaf and guards everything; `GetPrivateTime` is called with it held. The advises are served by one
/// thread, started with the first. A class that overrides `GetPrivateTime` calls `EndAdvises` in its destructor, since
/// that thread calls the override. An event is not signalled any more when `Unadvise` has returned.
class CBaseReferenceClock : public CImplements<CUnknown, IReferenceClock> {
public:
    /// @param pOuter  the outer object of an aggregate (a filter), or null.
    explicit CBaseReferenceClock(IUnknown* pOuter = nullptr) : CImplements(pOuter) {}
    ~CBaseReferenceClock() override { EndAdvises(); }

    /// IReferenceClock and IUnknown.
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    /// The time in 100 ns; it never goes back. @return S_OK, or S_FALSE with the same time as the last
    /// call's.
    HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTime) override;
    /// Signals the event once, at baseTime + streamTime (100 ns). @return S_OK; E_INVALIDARG without an event, or for a
    /// time that is not positive or overflows; E_OUTOFMEMORY, with a cookie of 0.
    HRESULT STDMETHODCALLTYPE AdviseTime(REFERENCE_TIME baseTime, REFERENCE_TIME streamTime, HEVENT hEvent,
                                         DWORD_PTR* pdwAdviseCookie) override;
    /// Releases the semaphore at startTime and then every periodTime (100 ns, both positive); several periods that have
    /// passed meanwhile make one release. Results as `AdviseTime`.
    HRESULT STDMETHODCALLTYPE AdvisePeriodic(REFERENCE_TIME startTime, REFERENCE_TIME periodTime,
                                             HSEMAPHORE hSemaphore, DWORD_PTR* pdwAdviseCookie) override;
    /// S_FALSE for an advise that is unknown or has been served.
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD_PTR dwAdviseCookie) override;

    /// The time behind `GetTime`, in 100 ns: the millisecond timer × 10000. It may stand still.
    virtual REFERENCE_TIME GetPrivateTime();

protected:
    /// Ends the advises' thread; later advises fail with E_FAIL.
    void EndAdvises();

private:
    struct Advise {
        DWORD_PTR dwCookie;       // identifies it to Unadvise
        REFERENCE_TIME rtDue;     // next signal, 100 ns
        REFERENCE_TIME rtPeriod;  // 0: once
        HANDLE hSignal;           // event (once) or semaphore
    };

    HRESULT AddAdvise(REFERENCE_TIME rtDue, REFERENCE_TIME rtPeriod, DWORD_PTR hSignal, DWORD_PTR* pdwCookie);
    REFERENCE_TIME Now();
    std::uint32_t SignalDue();
    std::int32_t AdviseThreadProc();

    CCritSec m_csLock;                  // guards the members below
    REFERENCE_TIME m_rtLast = 0;        // the last time given
    std::vector<Advise> m_advises;      // in no order; there are few
    DWORD_PTR m_dwLastCookie = 0;       // of the last advise
    bool m_bEnded = false;              // the thread must end
    CEvent m_evSchedule{false, false};  // auto-reset; the advises have changed
    CThread m_thread;                   // serves the advises
};

}  // namespace kest

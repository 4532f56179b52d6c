#include "platform/Event.h"

#include <algorithm>
#include <chrono>

#include "platform/ThreadControl.h"

namespace kest {
CEvent::CEvent(bool bManualReset, bool bSignalled) : m_bManualReset(bManualReset), m_bSignalled(bSignalled) {}
CEvent::~CEvent() = default;

// Set stores the state and then looks for waiters; a waiter enters itself and then looks at the state. Both
// in the one total order of sequentially consistent operations, so one of the two sees the other.
void CEvent::Set() {
    if (m_bSignalled.exchange(true) || m_nWaiters.load() == 0) return;
    std::lock_guard lock(m_mutex);
    for (CWaiter* pWaiter : m_apWaiters) pWaiter->Wake();
}

void CEvent::Reset() { m_bSignalled = false; }

bool CEvent::IsSignalled() const { return m_bSignalled; }

bool CEvent::TryPass() { return m_bManualReset ? m_bSignalled.load() : m_bSignalled.exchange(false); }

bool CEvent::Wait(std::uint32_t nTimeoutMs) {
    CEvent* const apEvents[] = {this};
    return WaitAny(apEvents, nTimeoutMs) == 0;
}

int CEvent::WaitAny(std::span<CEvent* const> apEvents, std::uint32_t nTimeoutMs) {
    auto FirstPassed = [apEvents] {
        for (std::size_t i = 0; i < apEvents.size(); ++i) {
            if (apEvents[i]->TryPass()) return static_cast<int>(i);
        }
        return -1;
    };
    ThrowIfTerminated();
    if (int nIndex = FirstPassed(); nIndex >= 0 || nTimeoutMs == 0) return nIndex;

    struct CEntries {  // enters the thread at every event, and takes it out again however the wait ends
        CEntries(std::span<CEvent* const> events, CWaiter& w) : apEvents(events), waiter(w) {
            for (CEvent* pEvent : apEvents) pEvent->AddWaiter(waiter);
        }
        ~CEntries() {
            for (CEvent* pEvent : apEvents) pEvent->RemoveWaiter(waiter);
        }
        std::span<CEvent* const> apEvents;
        CWaiter& waiter;
    };
    // A thread of somebody else's sleeps on a waiter of this wait alone: one that lasted as long as the
    // thread would keep this module loaded as long.
    CWaiter ownWaiter;
    CThreadControl* pControl = CurrentThreadControl();
    CWaiter& waiter = pControl ? pControl->waiter : ownWaiter;
    CEntries entries(apEvents, waiter);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(nTimeoutMs);
    for (;;) {
        ThrowIfTerminated();
        if (int nIndex = FirstPassed(); nIndex >= 0) return nIndex;
        if (!waiter.Sleep(nTimeoutMs == kInfinite ? nullptr : &deadline)) return FirstPassed();
    }
}

void CEvent::AddWaiter(CWaiter& waiter) {
    std::lock_guard lock(m_mutex);
    m_apWaiters.push_back(&waiter);
    ++m_nWaiters;
}

void CEvent::RemoveWaiter(CWaiter& waiter) {
    std::lock_guard lock(m_mutex);
    m_apWaiters.erase(std::find(m_apWaiters.begin(), m_apWaiters.end(), &waiter));
    --m_nWaiters;
}

}  // namespace kest

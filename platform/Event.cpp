#include "platform/Event.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>

#include "platform/Termination.h"

namespace kest {
namespace {

// Guarded by the one lock for all waits of the module. A thread tests its events with the lock held before it sleeps,
// and who signals one takes the lock after that to wake the thread: no wake-up is lost.
CWaiter* g_pFirstWaiter = nullptr;

}  // namespace

/// A thread in a wait, in the chain for as long as this lives. Made and destroyed with the lock held.
class CWaiter {
public:
    CWaiter(std::span<CEvent* const> apEvents, CCondition& wake)
        : m_apEvents(apEvents), m_wake(wake), m_pNext(g_pFirstWaiter) {
        if (m_pNext) m_pNext->m_pPrevious = this;
        g_pFirstWaiter = this;
        for (CEvent* pEvent : m_apEvents) pEvent->m_nState.fetch_add(CEvent::kOneWaiter);
    }
    ~CWaiter() {
        for (CEvent* pEvent : m_apEvents) pEvent->m_nState.fetch_sub(CEvent::kOneWaiter);
        (m_pPrevious ? m_pPrevious->m_pNext : g_pFirstWaiter) = m_pNext;
        if (m_pNext) m_pNext->m_pPrevious = m_pPrevious;
    }
    CWaiter(const CWaiter&) = delete;
    CWaiter& operator=(const CWaiter&) = delete;

    /// Wakes the threads that wait for the event, which may be gone by now. The last of them, mostly the only one, is
    /// woken without the lock, which it takes first.
    static void WakeAll(const CEvent* pEvent) {
        std::optional<CCondition::CWake> wake;
        std::unique_lock lock(CTermination::GetWaitMutex());
        for (CWaiter* pWaiter = g_pFirstWaiter; pWaiter; pWaiter = pWaiter->m_pNext) {
            if (std::ranges::find(pWaiter->m_apEvents, pEvent) == pWaiter->m_apEvents.end()) continue;
            if (wake) wake->Complete();
            wake = pWaiter->m_wake.Notify();
        }
        lock.unlock();
        if (wake) wake->Complete();
    }

private:
    const std::span<CEvent* const> m_apEvents;  // what it waits for
    CCondition& m_wake;                         // what it sleeps on
    CWaiter* m_pNext;                           // in the chain
    CWaiter* m_pPrevious = nullptr;             // in the chain
};

void CEvent::Set() {
    const std::uint32_t nBefore = m_nState.fetch_or(kSignalled);
    // No access to a member from here on: a waiter that has seen the signal may have destroyed the event.
    const bool bWasSignalled = (nBefore & kSignalled) != 0;
    if (!bWasSignalled && nBefore >= kOneWaiter) CWaiter::WakeAll(this);
}

bool CEvent::TryPass() {
    if (m_bManualReset) return IsSignalled();
    return IsSignalled() && (m_nState.fetch_and(~kSignalled) & kSignalled) != 0;
}

/// The index of the first signalled event, which it passes; -1 without one.
int CEvent::PassFirst(std::span<CEvent* const> apEvents) {
    const auto it = std::ranges::find_if(apEvents, [](CEvent* pEvent) { return pEvent->TryPass(); });
    return it == apEvents.end() ? -1 : static_cast<int>(it - apEvents.begin());
}

bool CEvent::Wait(std::uint32_t nTimeoutMs) {
    CEvent* const apEvents[] = {this};
    return WaitAny(apEvents, nTimeoutMs) == 0;
}

int CEvent::WaitAny(std::span<CEvent* const> apEvents, std::uint32_t nTimeoutMs) {
    ThrowIfTerminated();
    if (const int nIndex = PassFirst(apEvents); nIndex >= 0 || nTimeoutMs == 0) return nIndex;

    // A thread that no CThread started brings nothing to sleep on, and must keep nothing of this module.
    std::optional<CCondition> ownWake;
    CTermination* pTermination = CurrentTermination();
    CCondition& wake = pTermination ? pTermination->GetWake() : ownWake.emplace();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(nTimeoutMs);
    std::unique_lock lock(CTermination::GetWaitMutex());
    const CWaiter waiter(apEvents, wake);
    for (;;) {
        ThrowIfTerminated();
        if (const int nIndex = PassFirst(apEvents); nIndex >= 0) return nIndex;
        if (nTimeoutMs == kInfinite) {
            wake.Sleep(lock);
        } else if (!wake.SleepUntil(lock, deadline)) {
            return PassFirst(apEvents);
        }
    }
}

}  // namespace kest

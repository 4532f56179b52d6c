#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "platform/api/Types.h"

#ifndef _WIN32
#include <mutex>
#include <vector>
#endif

namespace kest {

#ifndef _WIN32
class CWaiter;
#endif

/// A level-triggered event that threads wait on, alone or several at a time.
///
/// A manual-reset event stays signalled until `Reset` and lets every waiter through; an auto-reset event lets
/// one waiter through and is reset by it. Every wait of a CThread ends by the termination signal when that
/// thread is ended by force. All operations may be called from any thread; the event must outlive the calls.
class CEvent {
public:
    /// @param bManualReset  false makes an auto-reset event.
    /// @param bSignalled    the state to begin with.
    explicit CEvent(bool bManualReset = true, bool bSignalled = false);
    ~CEvent();
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;

    void Set();
    void Reset();
    /// The state now; unlike a wait of no length it takes nothing from an auto-reset event.
    bool IsSignalled() const;
    /// Waits until the event is signalled. @return false when nTimeoutMs ran out first.
    bool Wait(std::uint32_t nTimeoutMs = kInfinite);
    /// Waits until one of several events is signalled.
    /// @return the index of the first that is, or -1 when nTimeoutMs ran out.
    static int WaitAny(std::span<CEvent* const> apEvents, std::uint32_t nTimeoutMs = kInfinite);

#ifdef _WIN32
    /// The system's handle, for interfaces that hand events across the host boundary.
    HANDLE GetHandle() const { return m_hEvent; }

private:
    HANDLE m_hEvent;
    const bool m_bManualReset;
#else
private:
    bool TryPass();
    void AddWaiter(CWaiter& waiter);
    void RemoveWaiter(CWaiter& waiter);

    const bool m_bManualReset;
    std::atomic<bool> m_bSignalled;            // the state; all that a set or passed event needs
    std::atomic<std::uint32_t> m_nWaiters{0};  // entries of m_apWaiters, read without the lock
    std::mutex m_mutex;                        // guards m_apWaiters
    std::vector<CWaiter*> m_apWaiters;         // threads to wake when the event is set
#endif
};

}  // namespace kest

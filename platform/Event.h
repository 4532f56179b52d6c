#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "platform/api/Types.h"

namespace kest {

class CWaiter;

/// An event that threads of this module wait on, alone or several at a time.
///
/// A manual-reset event stays signalled until `Reset` and lets every waiter through. An auto-reset event lets one
/// waiter through and is reset by it. The state decides, not the moment of `Set`: a waiter that has not run before the
/// `Reset` sleeps on.
///
/// Every wait of a CThread ends by the termination signal when that thread is ended by force, see Thread.h.
///
/// All operations may be called from any thread. The event must outlive them, with one exception: it may be destroyed
/// as soon as the signal of a `Set` has been seen (by a wait that it ended, or by `IsSignalled`), even if that `Set`
/// has not returned. An event on the stack of the one thread that waits for it is therefore safe.
///
/// It is no object of the system: nothing is allocated, and a `Set` that nobody waits for is one atomic operation. It
/// does not cross the boundary between module and host; CSystemEvent does.
class CEvent {
public:
    /// @param bManualReset  false makes an auto-reset event.
    /// @param bSignalled    the state to begin with.
    explicit CEvent(bool bManualReset = true, bool bSignalled = false)
        : m_bManualReset(bManualReset), m_nState(bSignalled ? kSignalled : 0) {}
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;

    void Set();
    void Reset() { m_nState.fetch_and(~kSignalled); }
    /// The state now. Unlike a wait of no length it takes nothing from an auto-reset event.
    bool IsSignalled() const { return (m_nState & kSignalled) != 0; }
    /// Waits until the event is signalled.
    /// @param nTimeoutMs  milliseconds; kInfinite: without limit.
    /// @return false when nTimeoutMs ran out first.
    bool Wait(std::uint32_t nTimeoutMs = kInfinite);
    /// Waits until one of several events is signalled, and takes no other.
    /// @param nTimeoutMs  milliseconds; kInfinite: without limit.
    /// @return the index of the first that is signalled, or -1 when nTimeoutMs ran out.
    static int WaitAny(std::span<CEvent* const> apEvents, std::uint32_t nTimeoutMs = kInfinite);

private:
    friend class CWaiter;

    bool TryPass();
    static int PassFirst(std::span<CEvent* const> apEvents);

    // The state is one word: whoever sets the event learns in the same step whether somebody waits, and does not
    // touch the event again.
    static constexpr std::uint32_t kSignalled = 1;
    static constexpr std::uint32_t kOneWaiter = 2;  // the bits above count the waiters

    const bool m_bManualReset;
    std::atomic<std::uint32_t> m_nState;
};

}  // namespace kest

// Events at the boundary between host and module: interfaces pass them as handles. On Windows a handle is the system's.
// Elsewhere it is what CSystemEvent gives out, good for as long as that event lives, and an auto-reset event stands for
// a semaphore.
#pragma once

#include "platform/api/Types.h"

namespace kest {

/// An event of the system, for whoever gives out a handle and waits for others to signal it. A CEvent is cheaper where
/// no handle is needed.
///
/// All operations may be called from any thread; the event must outlive them. As a CEvent it may be destroyed when the
/// signal of a `Set` has been seen.
class CSystemEvent {
public:
    /// @param bManualReset  false makes an auto-reset event.
    explicit CSystemEvent(bool bManualReset = true);
    ~CSystemEvent();
    CSystemEvent(const CSystemEvent&) = delete;
    CSystemEvent& operator=(const CSystemEvent&) = delete;

    /// The handle under which others signal the event; it stays the event's.
    HANDLE GetHandle() const { return m_hEvent; }
    /// Waits until the event is signalled. On Windows the wait does not end when the thread is ended by force.
    /// @param nTimeoutMs  milliseconds; kInfinite: without limit.
    /// @return false when nTimeoutMs ran out first.
    bool Wait(std::uint32_t nTimeoutMs = kInfinite);

private:
    const HANDLE m_hEvent;
};

/// Sets the event that the handle stands for.
void SetEventHandle(HANDLE hEvent);
/// Resets the event that the handle stands for.
void ResetEventHandle(HANDLE hEvent);
/// Lets one waiter of the semaphore through.
void ReleaseSemaphoreHandle(HANDLE hSemaphore);
/// A second handle to the event, which stays good after the first has been closed (on Windows; elsewhere the same
/// handle). Null for no handle, and when the system gives none.
HANDLE DuplicateEventHandle(HANDLE hEvent);
/// Closes a handle that `DuplicateEventHandle` made; null is allowed.
void CloseEventHandle(HANDLE hEvent);

}  // namespace kest

// Events at the host boundary: interfaces hand them over as handles. On Windows a handle is the system's;
// elsewhere it is the address of a CEvent of the same process, which must outlive its use, and an auto-reset
// CEvent stands for a semaphore.
#pragma once

#include "platform/Event.h"
#include "platform/api/Interfaces.h"

namespace kest {

/// The handle under which others may signal the event; it stays the event's.
HANDLE GetEventHandle(CEvent& event);

/// Sets the event that the handle stands for.
void SetEventHandle(HANDLE hEvent);
/// Resets the event that the handle stands for.
void ResetEventHandle(HANDLE hEvent);
/// Lets one waiter of the semaphore through.
void ReleaseSemaphoreHandle(HANDLE hSemaphore);

/// A second handle to an event that somebody else owns: it stays good after the owner has closed the first
/// (on Windows; elsewhere see above). Empty when there is none. Not for concurrent use.
class CEventRef {
public:
    CEventRef() = default;
    /// Duplicates the handle; empty when that fails or there is no handle.
    explicit CEventRef(HANDLE hEvent);
    CEventRef(CEventRef&& other) noexcept;
    CEventRef& operator=(CEventRef&& other) noexcept;
    ~CEventRef();

    explicit operator bool() const { return m_hEvent != nullptr; }
    void Set() const { SetEventHandle(m_hEvent); }
    void Reset() const { ResetEventHandle(m_hEvent); }

private:
    HANDLE m_hEvent = nullptr;  // the duplicate, owned
};

}  // namespace kest

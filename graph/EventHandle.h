#pragma once

#include "platform/SystemEvent.h"
#include "platform/api/Interfaces.h"

namespace kest {

/// A second handle to an event that somebody else owns: it stays good after the owner has closed the first (on Windows;
/// elsewhere the event must live on). Empty when there is none. Not for concurrent use.
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

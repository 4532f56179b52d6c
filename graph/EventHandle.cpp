#include "graph/EventHandle.h"

#include <utility>

namespace kest {

#ifdef _WIN32

HANDLE GetEventHandle(CEvent& event) { return event.GetHandle(); }
void SetEventHandle(HANDLE hEvent) { SetEvent(hEvent); }
void ResetEventHandle(HANDLE hEvent) { ResetEvent(hEvent); }
void ReleaseSemaphoreHandle(HANDLE hSemaphore) { ReleaseSemaphore(hSemaphore, 1, nullptr); }

CEventRef::CEventRef(HANDLE hEvent) {
    const HANDLE hProcess = GetCurrentProcess();
    if (!hEvent || !DuplicateHandle(hProcess, hEvent, hProcess, &m_hEvent, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        m_hEvent = nullptr;
    }
}

CEventRef::~CEventRef() {
    if (m_hEvent) CloseHandle(m_hEvent);
}

#else

HANDLE GetEventHandle(CEvent& event) { return &event; }
void SetEventHandle(HANDLE hEvent) { static_cast<CEvent*>(hEvent)->Set(); }
void ResetEventHandle(HANDLE hEvent) { static_cast<CEvent*>(hEvent)->Reset(); }
void ReleaseSemaphoreHandle(HANDLE hSemaphore) { static_cast<CEvent*>(hSemaphore)->Set(); }

CEventRef::CEventRef(HANDLE hEvent) : m_hEvent(hEvent) {}
CEventRef::~CEventRef() = default;

#endif

CEventRef::CEventRef(CEventRef&& other) noexcept : m_hEvent(std::exchange(other.m_hEvent, nullptr)) {}

CEventRef& CEventRef::operator=(CEventRef&& other) noexcept {
    std::swap(m_hEvent, other.m_hEvent);
    return *this;
}

}  // namespace kest

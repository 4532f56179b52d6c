#include "platform/SystemEvent.h"

#include <system_error>

namespace kest {

CSystemEvent::CSystemEvent(bool bManualReset)
    : m_hEvent(CreateEventW(nullptr, bManualReset, FALSE, nullptr)) {
    if (!m_hEvent) throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
}

CSystemEvent::~CSystemEvent() { CloseHandle(m_hEvent); }

bool CSystemEvent::Wait(std::uint32_t nTimeoutMs) {
    return WaitForSingleObject(m_hEvent, nTimeoutMs) == WAIT_OBJECT_0;
}

void SetEventHandle(HANDLE hEvent) { SetEvent(hEvent); }
void ResetEventHandle(HANDLE hEvent) { ResetEvent(hEvent); }
void ReleaseSemaphoreHandle(HANDLE hSemaphore) { ReleaseSemaphore(hSemaphore, 1, nullptr); }

HANDLE DuplicateEventHandle(HANDLE hEvent) {
    const HANDLE hProcess = GetCurrentProcess();
    HANDLE hSecond = nullptr;
    if (!hEvent || !DuplicateHandle(hProcess, hEvent, hProcess, &hSecond, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        return nullptr;
    }
    return hSecond;
}

void CloseEventHandle(HANDLE hEvent) {
    if (hEvent) CloseHandle(hEvent);
}

}  // namespace kest

#include "platform/Event.h"

#include <array>
#include <stdexcept>
#include <system_error>

#include "platform/ThreadControl.h"

namespace kest {

CEvent::CEvent(bool bManualReset, bool bSignalled)
    : m_hEvent(CreateEventW(nullptr, bManualReset, bSignalled, nullptr)), m_bManualReset(bManualReset) {
    if (!m_hEvent) throw std::system_error(static_cast<int>(GetLastError()), std::system_category());
}

CEvent::~CEvent() { CloseHandle(m_hEvent); }

void CEvent::Set() { SetEvent(m_hEvent); }
void CEvent::Reset() { ResetEvent(m_hEvent); }

bool CEvent::IsSignalled() const {
    const bool bSignalled = WaitForSingleObject(m_hEvent, 0) == WAIT_OBJECT_0;
    if (bSignalled && !m_bManualReset) SetEvent(m_hEvent);  // the look took it; give it back
    return bSignalled;
}

bool CEvent::Wait(std::uint32_t nTimeoutMs) {
    CEvent* const apEvents[] = {this};
    return WaitAny(apEvents, nTimeoutMs) == 0;
}

int CEvent::WaitAny(std::span<CEvent* const> apEvents, std::uint32_t nTimeoutMs) {
    ThrowIfTerminated();
    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> ahEvents{};
    if (apEvents.size() >= ahEvents.size()) throw std::length_error("too many events for one wait");
    DWORD nCount = 0;
    for (const CEvent* pEvent : apEvents) ahEvents[nCount++] = pEvent->m_hEvent;
    CThreadControl* pControl = CurrentThreadControl();
    if (pControl && !pControl->bTerminationThrown) ahEvents[nCount++] = pControl->evTerminate.GetHandle();
    if (nCount == 0) {
        ::Sleep(nTimeoutMs);
        return -1;
    }
    const DWORD nResult = WaitForMultipleObjects(nCount, ahEvents.data(), FALSE, nTimeoutMs);
    ThrowIfTerminated();
    return nResult < apEvents.size() ? static_cast<int>(nResult) : -1;
}

}  // namespace kest

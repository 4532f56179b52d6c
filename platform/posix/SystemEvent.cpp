#include "platform/SystemEvent.h"

#include "platform/Event.h"

namespace kest {

/// What a handle points at. Host and module each have their own CEvent, which knows the waiters of its own side alone:
/// the call goes to the side that made the event.
struct IHandleEvent {
    virtual void Set() = 0;
    virtual void Reset() = 0;

protected:
    ~IHandleEvent() = default;
};

namespace {

struct CHandleEvent final : IHandleEvent {
    explicit CHandleEvent(bool bManualReset) : event(bManualReset) {}
    void Set() override { event.Set(); }
    void Reset() override { event.Reset(); }

    CEvent event;
};

HANDLE ToHandle(IHandleEvent* pEvent) { return pEvent; }
IHandleEvent* FromHandle(HANDLE hEvent) { return static_cast<IHandleEvent*>(hEvent); }
CHandleEvent* FromOwnHandle(HANDLE hEvent) { return static_cast<CHandleEvent*>(FromHandle(hEvent)); }

}  // namespace

CSystemEvent::CSystemEvent(bool bManualReset) : m_hEvent(ToHandle(new CHandleEvent(bManualReset))) {}
CSystemEvent::~CSystemEvent() { delete FromOwnHandle(m_hEvent); }

bool CSystemEvent::Wait(std::uint32_t nTimeoutMs) { return FromOwnHandle(m_hEvent)->event.Wait(nTimeoutMs); }

void SetEventHandle(HANDLE hEvent) { FromHandle(hEvent)->Set(); }
void ResetEventHandle(HANDLE hEvent) { FromHandle(hEvent)->Reset(); }
void ReleaseSemaphoreHandle(HANDLE hSemaphore) { FromHandle(hSemaphore)->Set(); }
HANDLE DuplicateEventHandle(HANDLE hEvent) { return hEvent; }
void CloseEventHandle(HANDLE) {}

}  // namespace kest

#include "graph/PinFlowControl.h"

#include <array>
#include <mutex>
#include <utility>

namespace kest {
namespace {

/// Gives the gate back unless the bracket has begun: also when the thread is ended by force at a blocked pin.
class CGateHold {
public:
    explicit CGateHold(CEvent* pGate) : m_pGate(pGate) {}
    ~CGateHold() {
        if (m_pGate) m_pGate->Set();
    }
    CGateHold(const CGateHold&) = delete;
    CGateHold& operator=(const CGateHold&) = delete;

    void Keep() { m_pGate = nullptr; }

private:
    CEvent* m_pGate;  // null: there is nothing to give back
};

}  // namespace

HRESULT CPinFlowControl::Block(DWORD dwBlockFlags, HANDLE hEvent) {
    if (dwBlockFlags & ~AM_PIN_FLOW_CONTROL_BLOCK) return E_INVALIDARG;
    if (!dwBlockFlags) return hEvent ? E_INVALIDARG : Unblock();
    return hEvent ? BeginBlock(CEventRef(hEvent)) : BlockAndWait();
}

HRESULT CPinFlowControl::BeginBlock(CEventRef notify, CEvent* pOwnNotify) {
    if (notify) notify.Reset();
    CAutoLock lock(m_cs);
    if (m_state != EState::NotBlocked) {
        return m_blockingThread == std::this_thread::get_id() ? VFW_E_PIN_ALREADY_BLOCKED_ON_THIS_THREAD
                                                              : VFW_E_PIN_ALREADY_BLOCKED;
    }
    m_blockingThread = std::this_thread::get_id();
    m_evUnblock.Reset();
    m_state = EState::Pending;
    m_evNotify = std::move(notify);
    m_pOwnNotify = pOwnNotify;
    if (m_nUsers == 0) CompleteBlock();
    return S_OK;
}

/// Blocks and waits for the block, through an event of its own.
HRESULT CPinFlowControl::BlockAndWait() {
    CEvent evBlocked;
    if (const HRESULT hr = BeginBlock(CEventRef(), &evBlocked); FAILED(hr)) return hr;
    CEvent* const apEvents[] = {&evBlocked, m_pStopEvent.load()};
    if (CEvent::WaitAny(std::span(apEvents).first(apEvents[1] ? 2 : 1)) == 0) return S_OK;
    Unblock();  // the stop event came first
    return VFW_E_STATE_CHANGED;
}

/// The last user is out, or there was none. Under m_cs.
void CPinFlowControl::CompleteBlock() {
    m_state = EState::Blocked;
    Notify();
}

void CPinFlowControl::Notify() {
    if (m_evNotify) m_evNotify.Set();
    m_evNotify = CEventRef();
    if (CEvent* pOwnNotify = std::exchange(m_pOwnNotify, nullptr)) pOwnNotify->Set();
}

HRESULT CPinFlowControl::Unblock() {
    CAutoLock lock(m_cs);
    if (m_state == EState::NotBlocked) return S_FALSE;
    m_state = EState::NotBlocked;
    Notify();  // whoever waits for a block that was called off must not wait on
    m_evUnblock.Set();
    return S_OK;
}

// The gate is waited for before the lock is taken: whoever is inside needs the lock to come out.
HRESULT CPinFlowControl::StartUsing() {
    if (m_bGate) m_evGate.Wait();
    CGateHold gate(m_bGate ? &m_evGate : nullptr);
    for (;;) {
        {
            CAutoLock lock(m_cs);
            if (m_state != EState::Blocked) {
                ++m_nUsers;
                gate.Keep();
                return S_OK;
            }
        }
        CEvent* const apEvents[] = {&m_evUnblock, m_pStopEvent.load()};
        if (CEvent::WaitAny(std::span(apEvents).first(apEvents[1] ? 2 : 1)) != 0) {
            return VFW_E_STATE_CHANGED;
        }
    }
}

void CPinFlowControl::StopUsing() {
    CAutoLock lock(m_cs);
    if (m_bGate) m_evGate.Set();
    if (--m_nUsers == 0 && m_state == EState::Pending) CompleteBlock();
}

void CPinFlowControl::SetStopEvent(CEvent* pStopEvent) { m_pStopEvent = pStopEvent; }

void CPinFlowControl::BeginFlush() {
    if (CEvent* pStopEvent = m_pStopEvent) pStopEvent->Set();
}

void CPinFlowControl::EndFlush() {
    if (CEvent* pStopEvent = m_pStopEvent) pStopEvent->Reset();
}

}  // namespace kest

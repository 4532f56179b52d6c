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

/// Counts a thread that waits, however its wait ends: the flush event stays set until the last is out.
class CPinFlowControl::CWaiting {
public:
    explicit CWaiting(CPinFlowControl& flow) : m_flow(flow) {
        CAutoLock lock(m_flow.m_cs);
        ++m_flow.m_nWaiting;
    }
    ~CWaiting() {
        CAutoLock lock(m_flow.m_cs);
        if (--m_flow.m_nWaiting == 0 && !m_flow.m_bFlushing) m_flow.m_evFlush.Reset();
    }
    CWaiting(const CWaiting&) = delete;
    CWaiting& operator=(const CWaiting&) = delete;

private:
    CPinFlowControl& m_flow;
};

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

/// Waits for an event of this pin. @return false when a flush or the stop event came first.
bool CPinFlowControl::WaitFor(CEvent& event) {
    const CWaiting waiting(*this);
    CEvent* const apEvents[] = {&event, &m_evFlush, m_pStopEvent.load()};
    return CEvent::WaitAny(std::span(apEvents).first(apEvents[2] ? 3 : 2)) == 0;
}

/// Blocks and waits for the block, through an event of its own. The block is called off when the wait ends
/// otherwise, also by force; whoever sets the event does so under the lock, and so is out of it at the end.
HRESULT CPinFlowControl::BlockAndWait() {
    struct CWaitedBlock {
        ~CWaitedBlock() {
            CAutoLock lock(flow.m_cs);
            if (!bDone && flow.m_blockingThread == std::this_thread::get_id()) flow.Unblock();
        }
        CPinFlowControl& flow;
        CEvent evBlocked{};
        bool bDone = true;
    } block{*this};
    if (const HRESULT hr = BeginBlock(CEventRef(), &block.evBlocked); FAILED(hr)) return hr;
    block.bDone = false;
    block.bDone = WaitFor(block.evBlocked);
    return block.bDone ? S_OK : VFW_E_STATE_CHANGED;
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
        if (!WaitFor(m_evUnblock)) return VFW_E_STATE_CHANGED;
    }
}

void CPinFlowControl::StopUsing() {
    CAutoLock lock(m_cs);
    if (m_bGate) m_evGate.Set();
    if (--m_nUsers == 0 && m_state == EState::Pending) CompleteBlock();
}

void CPinFlowControl::BeginFlush() {
    CAutoLock lock(m_cs);
    m_bFlushing = true;
    m_evFlush.Set();
}

void CPinFlowControl::EndFlush() {
    CAutoLock lock(m_cs);
    m_bFlushing = false;
    if (m_nWaiting == 0) m_evFlush.Reset();
}

}  // namespace kest

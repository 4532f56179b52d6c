#pragma once

#include <atomic>
#include <thread>

#include "graph/EventHandle.h"
#include "platform/CritSec.h"
#include "platform/Event.h"

namespace kest {

/// Keeps deliveries and dynamic reconnections apart: `Block` lets no further delivery begin, every delivery
/// is bracketed by `StartUsing` and `StopUsing`.
///
/// With the usage gate only one thread at a time is between the two, and it must not call `StartUsing` again
/// before its own `StopUsing`; without it the brackets are only counted and may be nested. Two events end a
/// wait on a blocked pin: that of a flush, which each pin has of its own, and the stop event of the filter.
/// Neither resets the other. Locking: one lock of its own, held in no wait. Notify events are set under it.
class CPinFlowControl {
public:
    /// @param bGate  use the gate.
    explicit CPinFlowControl(bool bGate) : m_bGate(bGate) {}

    /// Blocks or unblocks, with the semantics of IPinFlowControl::Block.
    /// @param dwBlockFlags  AM_PIN_FLOW_CONTROL_BLOCK to block, 0 to unblock.
    /// @param hEvent        blocking: signalled when the pin is blocked; null: returns when it is blocked.
    /// @return S_OK; S_FALSE for an unblocking without a block; VFW_E_STATE_CHANGED when the stop event or a
    ///         flush ended the wait; E_INVALIDARG for other flags, or an event without the flag;
    ///         VFW_E_PIN_ALREADY_BLOCKED_ON_THIS_THREAD, VFW_E_PIN_ALREADY_BLOCKED.
    HRESULT Block(DWORD dwBlockFlags, HANDLE hEvent);
    /// Begins a delivery, waiting while the pin is blocked.
    /// @return S_OK: `StopUsing` must follow; VFW_E_STATE_CHANGED when the stop event or a flush ended the
    ///         wait: it must not.
    HRESULT StartUsing();
    void StopUsing();

    /// The filter's stop event; null: none. Not owned.
    void SetStopEvent(CEvent* pStopEvent) { m_pStopEvent = pStopEvent; }
    /// Around a flush: `BeginFlush` ends every wait on the blocked pin, however soon `EndFlush` follows.
    void BeginFlush();
    void EndFlush();

private:
    enum class EState { NotBlocked, Pending, Blocked };
    class CWaiting;

    HRESULT BeginBlock(CEventRef notify, CEvent* pOwnNotify = nullptr);
    HRESULT BlockAndWait();
    void CompleteBlock();
    void Notify();
    HRESULT Unblock();
    bool WaitFor(CEvent& event);

    const bool m_bGate;
    CCritSec m_cs;  // guards the members below
    EState m_state = EState::NotBlocked;
    std::thread::id m_blockingThread;  // who blocked, while not NotBlocked
    CEventRef m_evNotify;              // signalled when the block is complete
    CEvent* m_pOwnNotify = nullptr;    // the same, for a wait in this class
    CEvent m_evUnblock{true, true};    // manual-reset; reset while blocked or pending
    CEvent m_evGate{false, true};      // auto-reset; taken by the user inside
    CEvent m_evFlush;                  // manual-reset; set by a flush until all who waited then are out
    bool m_bFlushing = false;          // between BeginFlush and EndFlush
    int m_nWaiting = 0;                // threads that wait for an event or the flush
    std::atomic<CEvent*> m_pStopEvent{nullptr};  // see SetStopEvent
    int m_nUsers = 0;                            // outstanding users
};

/// `StartUsing` and `StopUsing` around a block of code, also when a thread is ended by force in it: the next
/// thread would wait for the gate for ever.
class CPinUse {
public:
    explicit CPinUse(CPinFlowControl& flowControl)
        : m_flowControl(flowControl), m_bUsing(SUCCEEDED(flowControl.StartUsing())) {}
    ~CPinUse() {
        if (m_bUsing) m_flowControl.StopUsing();
    }
    CPinUse(const CPinUse&) = delete;
    CPinUse& operator=(const CPinUse&) = delete;

    /// The pin may be used.
    explicit operator bool() const { return m_bUsing; }

private:
    CPinFlowControl& m_flowControl;
    const bool m_bUsing;
};

}  // namespace kest

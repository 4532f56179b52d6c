#pragma once

#include <atomic>

#include "platform/Event.h"

namespace kest {

/// Ends the waits of a thread that pushes bytes into a buffer, and keeps it out for a while: for a stop, a
/// flush and destruction. Holds of several threads add up.
///
/// One thread pushes; the rest may come from any thread but that one.
class CPushGate {
public:
    /// A push that is under way, for the length of a block: also when it ends by an exception.
    class CInside {
    public:
        explicit CInside(CPushGate& gate) : m_gate(gate) { gate.m_evOutside.Reset(); }
        CInside(const CInside&) = delete;
        CInside& operator=(const CInside&) = delete;
        ~CInside() { m_gate.m_evOutside.Set(); }

    private:
        CPushGate& m_gate;
    };
    /// Asked inside, before every wait: the push is to end with what it has done.
    bool IsHeld() const { return m_nHolds != 0; }

    /// Ends a push that is under way and lets none begin to wait until `Release`. When it returns, no thread is
    /// inside, and who comes inside later finds the gate held.
    /// @param wake  ends the wait that the push is in, if it has begun. Called again and again, since the thread
    ///              may be on its way into the wait.
    template <class Wake>
    void Hold(Wake wake) {
        ++m_nHolds;
        while (!m_evOutside.IsSignalled()) {
            wake();
            m_evOutside.Wait(1);
        }
    }
    void Release() { --m_nHolds; }

private:
    std::atomic<int> m_nHolds{0};    // Hold less Release
    CEvent m_evOutside{true, true};  // no thread is inside
};

}  // namespace kest

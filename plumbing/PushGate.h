#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Event.h"
#include "platform/Termination.h"

namespace kest {

/// Ends the waits of a thread that pushes bytes into a buffer, and keeps it out for a while: for a stop, a
/// flush and destruction. Holds of several threads add up.
///
/// Any thread may be inside, but for those that hold.
class CPushGate {
public:
    /// A push that is under way, for the length of a block: also when it ends by an exception.
    class CInside {
    public:
        explicit CInside(CPushGate& gate) : m_gate(gate) {
            ++gate.m_nInside;
            gate.m_evOutside.Reset();
        }
        CInside(const CInside&) = delete;
        CInside& operator=(const CInside&) = delete;
        ~CInside() {
            if (--m_gate.m_nInside == 0) m_gate.m_evOutside.Set();
        }

    private:
        CPushGate& m_gate;
    };
    /// Asked inside, before every wait: the push is to end with what it has done.
    bool IsHeld() const { return m_nHolds != 0; }
    /// Counts the holds that have begun: shows one that has begun and ended meanwhile.
    std::uint32_t CountHolds() const { return m_nHoldsBegun; }

    /// Ends a push that is under way and lets none begin to wait until `Release`. When it returns, no thread is
    /// inside, and who comes inside later finds the gate held.
    /// @param wake  ends the wait that the push is in, if it has begun. Called again and again, since the thread
    ///              may be on its way into the wait.
    template <class Wake>
    void Hold(Wake wake) {
        BeginHold();
        FinishHold(wake);
    }
    /// The first half of `Hold`: the gate is held from here on, and a push that is under way goes on. The second
    /// half must follow.
    void BeginHold() {
        ++m_nHolds;
        ++m_nHoldsBegun;
    }
    /// The second half: waits until no thread is inside.
    template <class Wake>
    void FinishHold(Wake wake) {
        const CTerminationHold noForcedEnd;  // would leave a hold that nobody releases
        while (m_nInside != 0) {
            wake();
            m_evOutside.Wait(1);
        }
    }
    void Release() { --m_nHolds; }

private:
    std::atomic<int> m_nHolds{0};                 // Hold less Release
    std::atomic<std::uint32_t> m_nHoldsBegun{0};  // see CountHolds
    std::atomic<int> m_nInside{0};                // threads inside
    CEvent m_evOutside{true, true};               // set when the last one leaves
};

}  // namespace kest

// How a thread is ended by force: cooperatively, by a signal that its waits throw. Outside platform/ only
// CThreadTermination, CTerminationHold and ThrowIfTerminated are of use.
#pragma once

#include <atomic>

#include "platform/Condition.h"

namespace kest {

/// Thrown out of a wait of a thread that is ended by force. It is no std::exception, so that no handler takes it for an
/// error. The thread entry catches it, and Guard keeps it from foreign callers.
struct CThreadTermination {};

/// One thread's part in its forced end, and what it sleeps on in its waits.
class CTermination {
public:
    /// The lock that every wait of the module sleeps with, and that is held to wake one.
    static CCondition::Mutex& GetWaitMutex();

    /// Asks for the forced end and wakes the thread from the wait it is in. Any thread.
    void Request();
    bool IsRequested() const { return m_bRequested; }

    // ---- called in the thread

    /// Throws CThreadTermination when the end is requested, again and again until the signal has reached the thread
    /// entry. It does not throw where that would end the process: while an exception is under way (destructors may then
    /// wait as usual) and under a CTerminationHold.
    void ThrowIfRequested();
    /// The signal was thrown at least once.
    bool WasThrown() const { return m_bThrown; }
    void Hold() { ++m_nHolds; }
    void EndHold() { --m_nHolds; }
    CCondition& GetWake() { return m_wake; }

private:
    CCondition m_wake;                      // what the thread sleeps on in a wait
    std::atomic<bool> m_bRequested{false};  // see IsRequested
    bool m_bThrown = false;                 // used by the thread alone
    int m_nHolds = 0;                       // living CTerminationHold; used by the thread alone
};

/// That of the calling thread; null for a thread that no CThread started.
CTermination* CurrentTermination();
/// Called in a thread that a CThread started, first and last. @param pTermination  null at the end.
void SetCurrentTermination(CTermination* pTermination);

/// Ends the calling thread by the termination signal when it is to be ended by force.
inline void ThrowIfTerminated() {
    if (CTermination* pTermination = CurrentTermination()) pTermination->ThrowIfRequested();
}

/// While one lives, no wait of the calling thread throws the termination signal; the first wait afterwards does. For
/// destructors that wait.
class CTerminationHold {
public:
    CTerminationHold() : m_pTermination(CurrentTermination()) {
        if (m_pTermination) m_pTermination->Hold();
    }
    ~CTerminationHold() {
        if (m_pTermination) m_pTermination->EndHold();
    }
    CTerminationHold(const CTerminationHold&) = delete;
    CTerminationHold& operator=(const CTerminationHold&) = delete;

private:
    CTermination* const m_pTermination;  // of the calling thread
};

}  // namespace kest

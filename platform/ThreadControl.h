// What CThread, CEvent and the sleep share about one running thread. Outside platform/ only ThreadTimes,
// CTerminationHold and ThrowIfTerminated are of use.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Condition.h"
#include "platform/Event.h"

namespace kest {

/// Thrown out of a wait of a thread that is ended by force. It is no std::exception, so that no handler takes it for an
/// error. The thread entry catches it, and Guard keeps it from foreign callers.
struct CThreadTermination {};

/// Times of a thread: creation and exit as file times (exit 0 while it runs), the others in 100 ns.
struct ThreadTimes {
    std::uint64_t nCreation = 0;
    std::uint64_t nExit = 0;
    std::uint64_t nKernel = 0;
    std::uint64_t nUser = 0;
};

/// The state of one CThread's thread, shared by its owner and itself.
struct CThreadControl {
    CThreadControl();
    ~CThreadControl();
    CThreadControl(const CThreadControl&) = delete;
    CThreadControl& operator=(const CThreadControl&) = delete;

    /// Marks the thread to be ended by force and wakes it from the wait it is in.
    void RequestTermination(std::int32_t nExitCode);
    /// Called in the thread: throws CThreadTermination when the thread is to be ended by force, again and again until
    /// the signal has reached the thread entry. It does not throw where that would end the process: while an exception
    /// is under way (destructors may then wait as usual) and under a CTerminationHold.
    void ThrowIfTerminated();
    /// Called in the thread, first and last.
    void OnEnter();
    void OnLeave(std::int32_t nExitCode);

    ThreadTimes GetTimes() const;
    int GetPriority() const;

    CEvent evEnded;                               // manual-reset; set when the body has ended
    CCondition wake;                              // what the thread sleeps on in a wait
    std::atomic<std::uint32_t> dwThreadId{0};     // the system's identifier, 0 before the thread runs
    std::atomic<std::int32_t> nExitCode{0};       // valid once evEnded is set
    std::atomic<std::int32_t> nTerminateCode{0};  // exit code of a forced end
    std::atomic<bool> bTerminate{false};          // to be ended by force
    bool bTerminationThrown = false;  // the signal was thrown at least once; used by the thread alone
    int nHolds = 0;                   // living CTerminationHold; used by the thread alone
    ThreadTimes times;                // exit and durations are valid once evEnded is set
#ifdef _WIN32
    std::atomic<HANDLE> hThread{nullptr};  // the thread; null before it runs
#endif
};

/// The control of the calling thread; null for a thread that no CThread started.
CThreadControl* CurrentThreadControl();

/// Ends the calling thread by the termination signal when it is to be ended by force.
inline void ThrowIfTerminated() {
    if (CThreadControl* pControl = CurrentThreadControl()) pControl->ThrowIfTerminated();
}

/// While one lives, no wait of the calling thread throws the termination signal; the first wait afterwards does. For
/// destructors that wait.
class CTerminationHold {
public:
    CTerminationHold() : m_pControl(CurrentThreadControl()) {
        if (m_pControl) ++m_pControl->nHolds;
    }
    ~CTerminationHold() {
        if (m_pControl) --m_pControl->nHolds;
    }
    CTerminationHold(const CTerminationHold&) = delete;
    CTerminationHold& operator=(const CTerminationHold&) = delete;

private:
    CThreadControl* const m_pControl;  // of the calling thread
};

}  // namespace kest

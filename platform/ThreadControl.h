// What CThread, CEvent and the sleep share about one running thread. Outside platform/ only ThreadTimes and
// ThrowIfTerminated are of use.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "platform/Event.h"

#ifndef _WIN32
#include <condition_variable>
#endif

namespace kest {

#ifndef _WIN32
/// On what one thread sleeps; whoever signals an event it waits for, or ends it by force, wakes it.
class CWaiter {
public:
    void Wake() {
        {
            std::lock_guard lock(m_mutex);
            m_bWoken = true;
        }
        m_condition.notify_one();
    }
    /// Sleeps until woken since the last sleep. False when the deadline came first; null: no deadline.
    bool Sleep(const std::chrono::steady_clock::time_point* pDeadline) {
        std::unique_lock lock(m_mutex);
        auto woken = [this] { return m_bWoken; };
        if (!pDeadline) {
            m_condition.wait(lock, woken);
        } else if (!m_condition.wait_until(lock, *pDeadline, woken)) {
            return false;
        }
        m_bWoken = false;
        return true;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_bWoken = false;
};
#endif

/// Thrown out of a wait of a thread that is ended by force; only the thread entry catches it. It is no
/// std::exception, so that no handler takes it for an error.
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

    /// Marks the thread and wakes it from the wait it is in.
    void RequestTermination(std::int32_t nExitCode);
    /// Called in the thread: throws CThreadTermination, once, when it has been marked.
    void ThrowIfTerminated();
    /// Called in the thread, first and last.
    void OnEnter();
    void OnLeave(std::int32_t nExitCode);

    ThreadTimes GetTimes() const;
    int GetPriority() const;

    CEvent evEnded;                               // manual-reset; set when the body has ended
    std::atomic<std::uint32_t> dwThreadId{0};     // the system's identifier, 0 before the thread runs
    std::atomic<std::int32_t> nExitCode{0};       // valid once evEnded is set
    std::atomic<std::int32_t> nTerminateCode{0};  // exit code to end with once marked
    std::atomic<bool> bTerminate{false};          // marked to be ended by force
    bool bTerminationThrown = false;              // used by the thread alone
    ThreadTimes times;                            // exit and durations are valid once evEnded is set
#ifdef _WIN32
    CEvent evTerminate;  // set with bTerminate; every wait includes it
    std::atomic<HANDLE> hThread{nullptr};
#else
    CWaiter waiter;
#endif
};

/// The control of the calling thread; null for a thread that no CThread started.
CThreadControl* CurrentThreadControl();

/// Ends the calling thread by the termination signal when it has been marked.
inline void ThrowIfTerminated() {
    if (CThreadControl* pControl = CurrentThreadControl()) pControl->ThrowIfTerminated();
}

/// Called where the termination signal was caught on its way out of an interface method: the calling thread's next
/// wait throws it again.
inline void PostponeTermination() {
    if (CThreadControl* pControl = CurrentThreadControl()) pControl->bTerminationThrown = false;
}

}  // namespace kest

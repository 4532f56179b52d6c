#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "platform/CritSec.h"
#include "platform/api/Types.h"

namespace kest {

struct CThreadControl;
struct ThreadTimes;

/// One operating-system thread that its owner can wait for and, where it must, end by force. At most one at a time.
///
/// Force is cooperative: `Terminate` marks the thread, and the wait that it is in or enters next (events, sleep, and
/// all that is built on them) throws a signal that unwinds its body, so that locks and resources are given back. The
/// signal does not pass through foreign code: interface methods return E_ABORT instead, and the next wait throws again.
/// It is not thrown out of a destructor either: a reference that is given back, and the operations of this class, wait
/// to their end.
///
/// Every operation may be called from any thread but the one it is about. None throws.
class CThread {
public:
    using Body = std::function<std::int32_t()>;

    CThread() = default;
    /// Waits for a thread that is still there.
    ~CThread() { Close(); }
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    /// Starts `body`; what it returns becomes the exit code. Closes an earlier thread first.
    /// @return false when the system gives no thread or no memory.
    bool Start(Body body);
    /// There is a thread that has not been closed, ended or not.
    bool Exists() const;
    /// There is one, and it has not ended: costs much less than a wait.
    bool IsRunning() const;
    /// @param nTimeoutMs  milliseconds; kInfinite: without limit.
    /// @return WAIT_OBJECT_0 when the thread has ended, WAIT_TIMEOUT, or WAIT_FAILED when there is none.
    std::uint32_t Wait(std::uint32_t nTimeoutMs) const;
    /// Ends the thread with nExitCode at its wait and returns when it has ended; one that ends by itself first keeps its
    /// own exit code. A thread inside foreign code is waited for; a debug text says so every nNoticeMs milliseconds.
    void Terminate(std::int32_t nExitCode, std::uint32_t nNoticeMs = 1000);
    /// Waits for the thread and forgets it; its exit code, identifier and times stay. Until it has ended `Exists` and
    /// `Wait` go on as before.
    void Close();

    /// The system's identifier of the present or last thread, 0 before it runs.
    std::uint32_t GetId() const;
    /// Exit code of the present or last thread, 0 while it runs.
    std::int32_t GetExitCode() const;
    ThreadTimes GetTimes() const;
    /// The system's priority of the thread: niceness on POSIX systems, -15 to 15 on Windows.
    int GetPriority() const;

private:
    std::shared_ptr<CThreadControl> LastControl() const;
    std::shared_ptr<CThreadControl> PresentControl() const;

    // Lock order as declared.
    CCritSec m_csOwner;                          // held through Start and Close; guards m_thread
    mutable CCritSec m_cs;                       // guards the members below; never held in a wait
    std::shared_ptr<CThreadControl> m_pControl;  // of the present or last thread
    bool m_bExists = false;                      // the thread has not been closed
    std::thread m_thread;                        // the present thread
};

}  // namespace kest

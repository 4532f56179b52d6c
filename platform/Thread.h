#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/api/Types.h"

namespace kest {

struct CThreadControl;
struct ThreadTimes;

/// One operating-system thread that its owner can wait for and, where it must, end by force.
///
/// Force is cooperative: `Terminate` marks the thread, and the wait that it is in or enters next (events,
/// sleep, and all that is built on them) throws a signal that unwinds its body, so that locks and resources
/// are given back. At most one thread at a time; every operation may be called from any other thread.
class CThread {
public:
    using Body = std::function<std::int32_t()>;

    CThread() = default;
    /// Waits for a thread that is still there.
    ~CThread() { Close(); }
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;

    /// Starts `body`; what it returns becomes the exit code. Closes an earlier thread first.
    /// @return false when the system gives no thread.
    bool Start(Body body);
    /// There is a thread that has not been closed, ended or not.
    bool Exists() const;
    /// @return WAIT_OBJECT_0 when the thread has ended, WAIT_TIMEOUT, or WAIT_FAILED when there is none.
    std::uint32_t Wait(std::uint32_t nTimeoutMs) const;
    /// Ends the thread with nExitCode at its wait and returns when it has ended. A thread inside foreign
    /// code is waited for; a debug text says so once a second.
    void Terminate(std::int32_t nExitCode);
    /// Waits for the thread and forgets it; its exit code and identifier stay.
    void Close();

    /// The system's identifier of the present or last thread, 0 before it runs.
    std::uint32_t GetId() const;
    /// Exit code of the present or last thread, 0 while it runs.
    std::int32_t GetExitCode() const;
    ThreadTimes GetTimes() const;
    /// The system's priority of the thread: niceness on POSIX systems, -15 to 15 on Windows.
    int GetPriority() const;

private:
    std::shared_ptr<CThreadControl> Control() const;

    mutable std::mutex m_mutex;                  // guards the members below; never held in a wait
    std::shared_ptr<CThreadControl> m_pControl;  // of the present or last thread
    std::thread m_thread;                        // the present thread
};

}  // namespace kest

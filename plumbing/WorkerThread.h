#pragma once

#include <cstdint>
#include <span>

#include "platform/Event.h"
#include "platform/Thread.h"

namespace kest {

/// Base of every long-running worker: a thread with a run event and a stop event, through which its owner
/// holds, resumes and ends it without interrupting its work.
///
/// A derived class supplies `ThreadProc`, usually a stronger `Stop` that also unblocks what the body waits
/// on, and ends its thread in its own destructor (`CloseThread`), before its members go.
///
/// The contract of a body: loop until `m_evStop` is signalled; wait on `m_evRun` wherever it may be held;
/// after every wait that `Stop` can end, test `m_evStop` and return when it is set. After `Restart` both
/// events are reset, so a new body holds until `Resume`. The stop event stays set after a stop until the next
/// `Restart` or `CloseThread`: a body started by `StartThread` before would end at once.
///
/// `Resume`, `Pause`, `Stop`, `IsRunning` and `WaitForThread` may be called from any thread. `StartThread`,
/// `Restart`, `KillThread`, `CloseThread` and destruction belong to one control thread at a time, never to
/// the worker itself. No lock is taken here. These operations throw nothing, also on a thread that is being
/// ended by force: they finish, and its next wait ends it. So destructors may wait for a worker.
class CWorkerThread {
public:
    /// Exit codes that do not come from a body.
    static constexpr std::int32_t kExitKilled = 100;      // ended by force
    static constexpr std::int32_t kExitException = -100;  // an exception left the body

    CWorkerThread() = default;
    CWorkerThread(const CWorkerThread&) = delete;
    CWorkerThread& operator=(const CWorkerThread&) = delete;

    /// Lets the body run.
    virtual void Resume();
    /// Asks the body to end, waking it when it is held.
    virtual void Stop();
    /// Makes the body hold at its next wait on the run event.
    virtual void Pause();

    /// Starts the thread with the events as they are. `IsRunning` shows whether the system gave one.
    void StartThread();
    /// Replaces the thread with a fresh one that holds until `Resume`. The old one is asked to end and, when
    /// it has not after 10 ms, ended by force.
    void Restart();
    /// The thread exists and has not ended.
    bool IsRunning() const;
    /// @param nTimeoutMs  kInfinite: without limit.
    /// @return WAIT_OBJECT_0 when the thread has ended, WAIT_TIMEOUT, WAIT_FAILED when there is none.
    std::uint32_t WaitForThread(std::uint32_t nTimeoutMs) const;
    /// Ends a thread that does not end by itself within 10 ms by force and forgets it.
    void KillThread();
    /// `KillThread`, and forgets a thread that ended by itself too; both events are reset, as at the
    /// beginning.
    void CloseThread();
    /// Exit code of the present or last thread: the body's, kExitKilled or kExitException; 0 while it runs.
    std::int32_t GetExitCode() const { return m_hThread.GetExitCode(); }

    /// Writes identifier, times, priority and events as text, cut to the buffer and always terminated.
    void DumpStatus(std::span<char> text) const;

protected:
    /// Asks the body to end and closes the thread.
    ~CWorkerThread();

    /// The thread body. @return the thread's exit code.
    virtual std::int32_t ThreadProc() = 0;

    CThread m_hThread;    // the present thread, or none
    CEvent m_evRun;       // signalled: the body may run; else it holds at its next wait
    CEvent m_evStop;      // signalled: the body must end
    char m_szName[32]{};  // shown by the status dump; a derived class may fill it

private:
    static constexpr std::uint32_t kEndGraceMs = 10;  // time to end before force

    std::int32_t ThreadEntry();
};

}  // namespace kest

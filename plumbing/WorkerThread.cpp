#include "plumbing/WorkerThread.h"

#include <chrono>
#include <exception>

#include "platform/DebugText.h"
#include "platform/ThreadControl.h"
#include "plumbing/KestException.h"
#include "plumbing/StatusText.h"

namespace kest {
namespace {

/// One line of the dump: a file time as calendar date and time of day.
void AddFileTime(CStatusText& text, const char* pszLabel, std::uint64_t nFileTime) {
    using namespace std::chrono;
    constexpr sys_days kFileTimeEpoch = year(1601) / January / 1;
    const milliseconds sinceEpoch(nFileTime / 10000);
    const auto sinceEpochDays = floor<days>(sinceEpoch);
    const year_month_day date = kFileTimeEpoch + sinceEpochDays;
    const hh_mm_ss time(sinceEpoch - sinceEpochDays);
    text.Add(" %s: %4d-%2u-%2u %2d:%2d:%2d %3d\n", pszLabel, static_cast<int>(date.year()),
             static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
             static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
             static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count()));
}

}  // namespace

CWorkerThread::~CWorkerThread() {
    CWorkerThread::Stop();
    CWorkerThread::Resume();
    CloseThread();
}

void CWorkerThread::Resume() { m_evRun.Set(); }

void CWorkerThread::Stop() {
    m_evStop.Set();
    m_evRun.Set();
}

void CWorkerThread::Pause() { m_evRun.Reset(); }

void CWorkerThread::StartThread() {
    m_hThread.Start([this] { return ThreadEntry(); });
}

void CWorkerThread::Restart() {
    CWorkerThread::Stop();
    CWorkerThread::Resume();
    if (m_hThread.Wait(kEndGraceMs) == WAIT_TIMEOUT) m_hThread.Terminate(kExitKilled);
    m_evRun.Reset();
    m_evStop.Reset();
    StartThread();
}

bool CWorkerThread::IsRunning() const { return m_hThread.IsRunning(); }

std::uint32_t CWorkerThread::WaitForThread(std::uint32_t nTimeoutMs) const {
    return m_hThread.Wait(nTimeoutMs);
}

void CWorkerThread::KillThread() {
    if (m_hThread.Wait(kEndGraceMs) != WAIT_TIMEOUT) return;
    m_hThread.Terminate(kExitKilled);
    m_hThread.Close();
}

void CWorkerThread::CloseThread() {
    KillThread();
    m_hThread.Close();
    m_evRun.Reset();
    m_evStop.Reset();
}

std::int32_t CWorkerThread::ThreadEntry() {
    try {
        return ThreadProc();
    } catch (const KestException&) {
        DebugText("\n *** Capture exception!!!\n");
        return kExitException;
    } catch (const std::exception& error) {  // memory is short: the thread ends, not the process
        DebugText("A worker thread has ended: %s\n", error.what());
        return kExitException;
    }
}

void CWorkerThread::DumpStatus(std::span<char> buffer) const {
    const ThreadTimes times = m_hThread.GetTimes();
    CStatusText text(buffer);
    text.Add("*************** Begin Debug Thread  ************\n");
    text.Add("Thread ID=%d \n Name=%s\n", static_cast<int>(m_hThread.GetId()), m_szName);
    text.Add("Time information:\n");
    AddFileTime(text, "CreationTime ", times.nCreation);
    AddFileTime(text, "ExitTime     ", times.nExit);
    AddFileTime(text, "KernelTime   ", times.nKernel);
    AddFileTime(text, "UserTime     ", times.nUser);
    text.Add(" The Thread Priority: %d\n", m_hThread.GetPriority());
    text.Add("\nStatus of Thread:\n    %s\n    %s\n",
             m_evRun.IsSignalled() ? "Thread may running" : "Thread Pause",
             m_evStop.IsSignalled() ? "Thread Stop" : "Thread not Stop");
    text.Add(" ************** End **************\n");
}

}  // namespace kest

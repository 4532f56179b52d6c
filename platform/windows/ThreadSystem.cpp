// What CThreadControl asks of Windows.
#include "platform/ThreadControl.h"
#include "platform/Time.h"

namespace kest {
namespace {

std::uint64_t ToUnsigned(const FILETIME& time) {
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

/// Fills in the processor times of a thread that has not been closed.
void ReadProcessorTimes(HANDLE hThread, ThreadTimes& times) {
    FILETIME creation, exit, kernel, user;
    if (!hThread || !GetThreadTimes(hThread, &creation, &exit, &kernel, &user)) return;
    times.nKernel = ToUnsigned(kernel);
    times.nUser = ToUnsigned(user);
}

}  // namespace

CThreadControl::CThreadControl() { times.nCreation = FileTimeNow(); }

CThreadControl::~CThreadControl() {
    if (HANDLE hOwn = hThread) CloseHandle(hOwn);
}

void CThreadControl::OnEnter() {
    dwThreadId = GetCurrentThreadId();
    HANDLE hOwn = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &hOwn, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    hThread = hOwn;
}

void CThreadControl::OnLeave(std::int32_t nCode) {
    ReadProcessorTimes(hThread, times);
    times.nExit = FileTimeNow();
    nExitCode = nCode;
    evEnded.Set();
}

ThreadTimes CThreadControl::GetTimes() const {
    if (evEnded.IsSignalled()) return times;
    ThreadTimes live;
    live.nCreation = times.nCreation;
    ReadProcessorTimes(hThread, live);
    return live;
}

int CThreadControl::GetPriority() const { return hThread.load() ? GetThreadPriority(hThread) : 0; }

}  // namespace kest

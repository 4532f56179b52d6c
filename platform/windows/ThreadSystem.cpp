// What CThreadControl asks of Windows.
#include "platform/ThreadControl.h"
#include "platform/Time.h"

namespace kest {
namespace {

std::uint64_t ToUnsigned(const FILETIME& time) {
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

}  // namespace

CThreadControl::CThreadControl() { times.nCreation = FileTimeNow(); }

CThreadControl::~CThreadControl() {
    if (HANDLE hOwn = hThread) CloseHandle(hOwn);
}

void CThreadControl::RequestTermination(std::int32_t nCode) {
    nTerminateCode = nCode;
    bTerminate = true;
    evTerminate.Set();
}

void CThreadControl::OnEnter() {
    dwThreadId = GetCurrentThreadId();
    HANDLE hOwn = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &hOwn, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    hThread = hOwn;
}

void CThreadControl::OnLeave(std::int32_t nCode) {
    times = GetTimes();
    times.nExit = FileTimeNow();
    nExitCode = nCode;
    evEnded.Set();
}

ThreadTimes CThreadControl::GetTimes() const {
    if (evEnded.IsSignalled()) return times;
    ThreadTimes live;
    live.nCreation = times.nCreation;
    FILETIME creation, exit, kernel, user;
    if (hThread.load() && GetThreadTimes(hThread, &creation, &exit, &kernel, &user)) {
        live.nCreation = ToUnsigned(creation);
        live.nKernel = ToUnsigned(kernel);
        live.nUser = ToUnsigned(user);
    }
    return live;
}

int CThreadControl::GetPriority() const { return hThread.load() ? GetThreadPriority(hThread) : 0; }

}  // namespace kest

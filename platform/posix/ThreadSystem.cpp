// What CThreadControl asks of a POSIX system.
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>

#include "platform/ThreadControl.h"
#include "platform/Time.h"

namespace kest {
namespace {

std::uint64_t ToHundredNs(const timeval& time) {
    return static_cast<std::uint64_t>(time.tv_sec) * 10000000 + static_cast<std::uint64_t>(time.tv_usec) * 10;
}

/// Reads the processor times of a live thread from the process file system; 0 where there is none.
void ReadLiveTimes(std::uint32_t dwThreadId, ThreadTimes& times) {
    char szPath[64];
    std::snprintf(szPath, sizeof szPath, "/proc/self/task/%u/stat", dwThreadId);
    std::FILE* pFile = std::fopen(szPath, "r");
    if (!pFile) return;
    unsigned long nUser = 0, nKernel = 0;
    // Fields 14 and 15, behind the parenthesised name, in clock ticks.
    if (std::fscanf(pFile, "%*d (%*[^)]) %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &nUser,
                    &nKernel) == 2) {
        const auto nTicks = static_cast<unsigned long>(sysconf(_SC_CLK_TCK));
        times.nUser = nUser * (10000000 / nTicks);
        times.nKernel = nKernel * (10000000 / nTicks);
    }
    std::fclose(pFile);
}

}  // namespace

CThreadControl::CThreadControl() { times.nCreation = FileTimeNow(); }
CThreadControl::~CThreadControl() = default;

void CThreadControl::OnEnter() { dwThreadId = static_cast<std::uint32_t>(syscall(SYS_gettid)); }

void CThreadControl::OnLeave(std::int32_t nCode) {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    times.nExit = FileTimeNow();
    times.nKernel = ToHundredNs(usage.ru_stime);
    times.nUser = ToHundredNs(usage.ru_utime);
    nExitCode = nCode;
    evEnded.Set();
}

ThreadTimes CThreadControl::GetTimes() const {
    if (evEnded.IsSignalled()) return times;
    ThreadTimes live;
    live.nCreation = times.nCreation;
    ReadLiveTimes(dwThreadId, live);
    return live;
}

int CThreadControl::GetPriority() const {
    return evEnded.IsSignalled() ? 0 : getpriority(PRIO_PROCESS, dwThreadId);
}

}  // namespace kest

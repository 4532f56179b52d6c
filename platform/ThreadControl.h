// What CThread and the system share about one running thread. Outside platform/ only ThreadTimes is of use.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Event.h"
#include "platform/Termination.h"

namespace kest {

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

    /// Called in the thread, first and last.
    void OnEnter();
    void OnLeave(std::int32_t nExitCode);

    ThreadTimes GetTimes() const;
    int GetPriority() const;

    CEvent evEnded;                               // manual-reset; set when the body has ended
    CTermination termination;                     // its forced end
    std::atomic<std::uint32_t> dwThreadId{0};     // the system's identifier, 0 before the thread runs
    std::atomic<std::int32_t> nExitCode{0};       // valid once evEnded is set
    std::atomic<std::int32_t> nTerminateCode{0};  // exit code of a forced end
    ThreadTimes times;                            // exit and durations are valid once evEnded is set
#ifdef _WIN32
    std::atomic<HANDLE> hThread{nullptr};  // the thread; null before it runs
#endif
};

}  // namespace kest

#pragma once

#include <mutex>

#include "platform/api/Types.h"

namespace kest {

/// The recursive lock: the thread that holds it may take it again.
///
/// On Windows it is the system's own. The standard library's of the cross compiler allocates at the first use, may fail
/// there, and never frees.
class CCritSec {
public:
    CCritSec(const CCritSec&) = delete;
    CCritSec& operator=(const CCritSec&) = delete;

#ifdef _WIN32
    CCritSec() { InitializeCriticalSectionEx(&m_cs, 0, CRITICAL_SECTION_NO_DEBUG_INFO); }
    ~CCritSec() { DeleteCriticalSection(&m_cs); }

    void lock() { EnterCriticalSection(&m_cs); }
    /// @return false when another thread holds it.
    bool try_lock() { return TryEnterCriticalSection(&m_cs) != FALSE; }
    void unlock() { LeaveCriticalSection(&m_cs); }

private:
    CRITICAL_SECTION m_cs;
#else
    CCritSec() = default;

    void lock() { m_mutex.lock(); }
    bool try_lock() { return m_mutex.try_lock(); }
    void unlock() { m_mutex.unlock(); }

private:
    std::recursive_mutex m_mutex;
#endif
};

/// Holds a CCritSec for the length of a block.
using CAutoLock = std::lock_guard<CCritSec>;

}  // namespace kest

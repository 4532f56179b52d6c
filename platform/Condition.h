#pragma once

#include <chrono>
#include <mutex>

#include "platform/api/Types.h"

#ifndef _WIN32
#include <condition_variable>
#endif

namespace kest {

/// What a thread sleeps on in a wait, and the lock that belongs to it.
///
/// On Windows both are the system's own: they are no kernel objects and allocate nothing. The cross compiler's standard
/// library makes several kernel objects for each condition, and is many times slower.
class CCondition {
public:
#ifdef _WIN32
    class Mutex {
    public:
        void lock() { AcquireSRWLockExclusive(&m_lock); }
        void unlock() { ReleaseSRWLockExclusive(&m_lock); }

    private:
        friend class CCondition;

        SRWLOCK m_lock = SRWLOCK_INIT;
    };
#else
    using Mutex = std::mutex;
#endif
    using TimePoint = std::chrono::steady_clock::time_point;

    CCondition() = default;
    CCondition(const CCondition&) = delete;
    CCondition& operator=(const CCondition&) = delete;

    /// Wakes one thread that sleeps here.
    void Notify();
    /// Sleeps until woken, perhaps for no reason, with the mutex unlocked meanwhile.
    void Sleep(std::unique_lock<Mutex>& lock);
    /// The same with a deadline. @return false when it has passed.
    bool SleepUntil(std::unique_lock<Mutex>& lock, TimePoint deadline);

private:
#ifdef _WIN32
    CONDITION_VARIABLE m_condition = CONDITION_VARIABLE_INIT;
#else
    std::condition_variable m_condition;
#endif
};

}  // namespace kest

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

#include "platform/api/Types.h"

namespace kest {

/// What a thread sleeps on in a wait, and the lock that belongs to it.
///
/// On Windows both are the system's own: they are no kernel objects and allocate nothing. The cross compiler's standard
/// library makes several kernel objects for each condition, and is many times slower.
///
/// Elsewhere the thread is woken without the lock, by the address of the condition alone. A condition of the standard
/// library, which must outlive its waking, would have to be woken with the lock, and the woken thread would sleep again
/// until the lock is free.
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

    /// A notification that is to be completed without the lock; the condition may be gone by then.
    class CWake {
    public:
        /// Wakes the thread that slept when this was made, perhaps others too. Called once.
        void Complete() const;

    private:
        friend class CCondition;
        explicit CWake(const void* pAddress) : m_pAddress(pAddress) {}

        const void* m_pAddress;  // of what the thread sleeps on; null: it has been woken
    };

    CCondition() = default;
    CCondition(const CCondition&) = delete;
    CCondition& operator=(const CCondition&) = delete;

    /// Ends the sleep of the thread here. With the lock held.
    /// @return what wakes the thread when the lock has been given back.
    [[nodiscard]] CWake Notify();
    /// Sleeps until woken, perhaps for no reason, with the mutex unlocked meanwhile.
    void Sleep(std::unique_lock<Mutex>& lock);
    /// The same with a deadline. @return false when it has passed.
    bool SleepUntil(std::unique_lock<Mutex>& lock, TimePoint deadline);

private:
#ifdef _WIN32
    CONDITION_VARIABLE m_condition = CONDITION_VARIABLE_INIT;
#else
    bool SleepFor(std::unique_lock<Mutex>& lock, const TimePoint* pDeadline);

    std::atomic<std::uint32_t> m_nNotified{
        0};  // notifications so far; a thread sleeps while it stays the same
#endif
};

}  // namespace kest

#pragma once

#include <mutex>

namespace kest {

/// The recursive lock: the thread that holds it may take it again.
class CCritSec {
public:
    CCritSec() = default;
    CCritSec(const CCritSec&) = delete;
    CCritSec& operator=(const CCritSec&) = delete;

    void lock() { m_mutex.lock(); }
    /// @return false when another thread holds it.
    bool try_lock() { return m_mutex.try_lock(); }
    void unlock() { m_mutex.unlock(); }

private:
    std::recursive_mutex m_mutex;
};

/// Holds a CCritSec for the length of a block.
using CAutoLock = std::lock_guard<CCritSec>;

}  // namespace kest

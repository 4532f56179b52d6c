#include "platform/Condition.h"

#include <algorithm>

namespace kest {

/// The system's condition must be there when it is woken, so that this is done with the lock.
CCondition::CWake CCondition::Notify() {
    WakeConditionVariable(&m_condition);
    return CWake(nullptr);
}

void CCondition::CWake::Complete() const {}

void CCondition::Sleep(std::unique_lock<Mutex>& lock) {
    SleepConditionVariableSRW(&m_condition, &lock.mutex()->m_lock, INFINITE, 0);
}

bool CCondition::SleepUntil(std::unique_lock<Mutex>& lock, TimePoint deadline) {
    using namespace std::chrono;
    constexpr milliseconds kLongest = hours(1);  // of one sleep: a wait without limit has a number of its own
    const auto rest = std::min(ceil<milliseconds>(deadline - steady_clock::now()), kLongest);
    if (rest <= milliseconds::zero()) return false;
    SleepConditionVariableSRW(&m_condition, &lock.mutex()->m_lock, static_cast<DWORD>(rest.count()), 0);
    return true;
}

}  // namespace kest

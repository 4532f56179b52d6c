#include "platform/Condition.h"

#include <algorithm>

namespace kest {

void CCondition::Notify() { WakeConditionVariable(&m_condition); }

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

#include "platform/Condition.h"

namespace kest {

void CCondition::Notify() { m_condition.notify_one(); }
void CCondition::Sleep(std::unique_lock<Mutex>& lock) { m_condition.wait(lock); }

bool CCondition::SleepUntil(std::unique_lock<Mutex>& lock, TimePoint deadline) {
    return m_condition.wait_until(lock, deadline) == std::cv_status::no_timeout;
}

}  // namespace kest

#include "platform/Condition.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace kest {
namespace {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));  // what the system compares

}  // namespace

CCondition::CWake CCondition::Notify() {
    ++m_nNotified;
    return CWake(&m_nNotified);
}

void CCondition::CWake::Complete() const {
    syscall(SYS_futex, m_pAddress, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void CCondition::Sleep(std::unique_lock<Mutex>& lock) { SleepFor(lock, nullptr); }

bool CCondition::SleepUntil(std::unique_lock<Mutex>& lock, TimePoint deadline) {
    return SleepFor(lock, &deadline);
}

/// A notification between the unlocking and the system's comparison changes the number, and the thread does not sleep.
/// @param pDeadline  null: none. @return false when it has passed.
bool CCondition::SleepFor(std::unique_lock<Mutex>& lock, const TimePoint* pDeadline) {
    using namespace std::chrono;
    timespec until{};
    if (pDeadline) {
        const nanoseconds sinceEpoch = pDeadline->time_since_epoch();  // of the monotonic clock
        until.tv_sec = static_cast<time_t>(duration_cast<seconds>(sinceEpoch).count());
        until.tv_nsec = static_cast<long>((sinceEpoch % seconds(1)).count());
    }
    const std::uint32_t nNotified = m_nNotified;
    lock.unlock();
    const long nResult = syscall(SYS_futex, &m_nNotified, FUTEX_WAIT_BITSET_PRIVATE, nNotified,
                                 pDeadline ? &until : nullptr, nullptr, FUTEX_BITSET_MATCH_ANY);
    const bool bPassed = nResult != 0 && errno == ETIMEDOUT;
    lock.lock();
    return !bPassed;
}

}  // namespace kest

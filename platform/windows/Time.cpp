#include "platform/Time.h"

#include "platform/Event.h"

namespace kest {

std::uint32_t TickCount() { return GetTickCount(); }

void SleepMs(std::uint32_t nMilliseconds) { CEvent::WaitAny({}, nMilliseconds); }

std::uint64_t FileTimeNow() {
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

}  // namespace kest

#include "platform/Time.h"

#include <chrono>

#include "platform/Event.h"

namespace kest {

std::uint32_t TickCount() {
    using namespace std::chrono;
    return static_cast<std::uint32_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

void SleepMs(std::uint32_t nMilliseconds) { CEvent::WaitAny({}, nMilliseconds); }

std::uint64_t FileTimeNow() {
    using namespace std::chrono;
    constexpr std::uint64_t kUnixEpoch = 116444736000000000;  // 1970-01-01 as a file time
    const auto sinceUnixEpoch = system_clock::now().time_since_epoch();
    return kUnixEpoch + static_cast<std::uint64_t>(duration_cast<nanoseconds>(sinceUnixEpoch).count() / 100);
}

}  // namespace kest

// The tick counter, the sleep, and file times.
#pragma once

#include <cstdint>

namespace kest {

/// The system's 32-bit tick counter in milliseconds; it wraps after 49.7 days.
std::uint32_t TickCount();

/// Sleeps. It is a wait like any other: the termination signal ends it when the calling CThread is ended by force.
void SleepMs(std::uint32_t nMilliseconds);

/// The system time in file-time units: 100 ns since 1601-01-01 00:00 UTC.
std::uint64_t FileTimeNow();

}  // namespace kest

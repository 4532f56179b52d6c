#pragma once

#include <atomic>
#include <cstdint>

#include "platform/api/Interfaces.h"

namespace kest {

/// A time base that is not set.
constexpr REFERENCE_TIME kNoTimeBase = -1;

/// A pin's timing, as the other pin and the filter see it. One thread writes most of it, the pin's delivery
/// thread; the flags that ask for a restart are set by others and cleared by it.
struct PinTiming {
    std::atomic<bool> bFirstTime{true};  // m_bFirstTime: the next frame restarts the timing
    std::atomic<bool> bRestartPending{
        false};  // m_bRestartPending: set by a reset; queued frames are dropped first
    std::atomic<bool> bReadyToReset{false};  // m_bReadyToReset: the thread is between two deliveries
    std::atomic<REFERENCE_TIME> rtTimeBase{kNoTimeBase};  // m_rtTimeBase: origin of the stream time, 100 ns
    std::atomic<REFERENCE_TIME> rtStart{0};      // m_rtStart: start of the sample being delivered, 100 ns
    std::atomic<REFERENCE_TIME> rtStop{0};       // m_rtStop: always start + 1
    std::atomic<REFERENCE_TIME> rtLastStart{0};  // m_rtLastStart: start last stamped on a sample, 100 ns
    std::atomic<std::int32_t> nAccessCount{0};   // m_nAccessCount: frames since the last timing restart
};

}  // namespace kest

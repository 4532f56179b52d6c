#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "platform/Event.h"
#include "platform/ThreadControl.h"

namespace kest {

/// One side's wait in a queue: until `isReady()`, the time-out, or a break (the side was closed or emptied).
///
/// The waiting side resets its own event, the other side sets it after every step that may help. The
/// condition is tested again once the event is reset, so a wake-up given just before is not lost; and a
/// wake-up that turns out to bring too little does not end the wait. The open mark is tested too: a closing
/// between the caller's look at it and the wait counts its break before the wait begins.
/// @param event       the waiting side's own manual-reset event.
/// @param bOpen       the side is open; cleared before the event is set.
/// @param nBreaks     counts the breaks; each is followed by a set of the event.
/// @param nTimeoutMs  milliseconds, kInfinite: without limit; a wait of length 0 resets the event too.
/// @return whether it became ready before the time-out, a closing and a break. A thread that is to end by
/// force
///         ends here, ready or not.
template <class IsReady>
bool WaitFor(CEvent& event, const std::atomic<bool>& bOpen, const std::atomic<std::uint32_t>& nBreaks,
             std::uint32_t nTimeoutMs, IsReady isReady) {
    using namespace std::chrono;
    ThrowIfTerminated();
    if (isReady()) return true;
    const std::uint32_t nBreaksBefore = nBreaks;
    const auto begin = steady_clock::now();
    for (;;) {
        event.Reset();
        if (!bOpen || nBreaks != nBreaksBefore) return false;
        if (isReady()) return true;
        std::uint32_t nRest = nTimeoutMs;
        if (nTimeoutMs != kInfinite) {
            const auto elapsed = duration_cast<milliseconds>(steady_clock::now() - begin).count();
            if (elapsed >= nTimeoutMs) return false;
            nRest -= static_cast<std::uint32_t>(elapsed);
        }
        event.Wait(nRest);
    }
}

}  // namespace kest

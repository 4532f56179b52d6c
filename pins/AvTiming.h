#pragma once

#include <cstdint>
#include <optional>

#include "pins/SharedLine.h"
#include "platform/CritSec.h"
#include "platform/api/Interfaces.h"

namespace kest {

/// A time base that is not set.
constexpr REFERENCE_TIME kNoTimeBase = -1;

/// The timing of one pin, as both pins and the filter see it. Times in 100 ns.
struct PinTiming {
    bool bFirstTime = true;        // m_bFirstTime: the next frame restarts the timing
    bool bRestartPending = false;  // m_bRestartPending: set by a reset; queued frames are dropped first
    bool bReadyToReset = false;    // m_bReadyToReset: the delivery thread is between two deliveries
    bool bAbsent = false;  // the pin delivers nothing in this run: not connected, or its loop has ended
    REFERENCE_TIME rtTimeBase = kNoTimeBase;  // m_rtTimeBase: origin of the stream time
    REFERENCE_TIME rtStart = 0;      // m_rtStart: start of the sample being delivered; its stop is start + 1
    REFERENCE_TIME rtLastStart = 0;  // m_rtLastStart: the start that the next frame is measured against
    std::int32_t nAccessCount = 0;   // m_nAccessCount: frames since the last timing restart

    bool operator==(const PinTiming&) const = default;
};

/// Where a seek by time has gone: the media time that the segment begins with. Both pins count their sample times from
/// it, whatever the variant of their rules, until a reset or a jump of the timestamps.
struct SeekTarget {
    std::int64_t llTimestamp =
        0;  // 90 kHz, of that media time: counted on from that of the access point, which lies
            // before it, beyond 33 bits if need be
    REFERENCE_TIME rtMedia = 0;  // the media time, 100 ns

    bool operator==(const SeekTarget&) const = default;
};

/// The timing of both pins.
struct AvTimes {
    PinTiming video;
    PinTiming audio;
    SharedLine line;  // of both; for CRobustTimeline
    std::optional<SeekTarget> seekTarget;  // of the present segment; none: it was not sought by time

    PinTiming& Of(EPin pin) { return pin == EPin::Video ? video : audio; }
    const PinTiming& Of(EPin pin) const { return pin == EPin::Video ? video : audio; }
    bool operator==(const AvTimes&) const = default;
};

/// What the two output pins share: the timing of both, under one lock, so that a restart by one pin (time
/// bases and flags together) is one step for the other. The filter makes it before the pins.
///
/// Callable from any thread. The lock is a leaf: nothing is waited for and no other lock is taken under it.
class CAvTiming {
public:
    AvTimes Get() const;
    PinTiming Get(EPin pin) const { return Get().Of(pin); }
    /// Changes the timing in one step. @param change  gets an AvTimes&; what it returns is returned.
    template <class Change>
    auto Update(Change change) {
        CAutoLock lock(m_cs);
        return change(m_times);
    }
    /// The next frames begin the timing of a stream that has not begun. A reset of the run before is forgotten: its
    /// frames are gone with their queue.
    void Forget();
    /// The next frames begin the timing anew, in the middle of a stream: queued frames are dropped first.
    void Restart();

private:
    mutable CCritSec m_cs;  // guards the times
    AvTimes m_times;
};

}  // namespace kest

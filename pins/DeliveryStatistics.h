#pragma once

#include <cstdint>

#include "pins/DeliveryContext.h"
#include "pins/Timeline.h"

namespace kest {

/// Counts what one run of a delivery loop delivers, and writes the statistics line of each sample to the
/// trace.
class CDeliveryStatistics {
public:
    CDeliveryStatistics(const DeliveryContext& context, ETimeline variant)
        : m_context(context), m_variant(variant) {}

    /// A frame of so many bytes has been read.
    void CountFrame(int nLength) { m_llDataCount += nLength; }
    /// A frame has its place. @param nLength  its bytes. @param dwTick  tick count when its timing was begun.
    void OnPlaced(const Placement& place, int nLength, std::uint32_t dwTick);
    /// A delivery begins.
    void OnDeliver();
    /// It has ended.
    void Write(const TimedFrame& frame, const Placement& place);

private:
    void WriteElementary(const Placement& place, std::uint32_t dwAfter) const;
    void WriteTimed(const TimedFrame& frame, const Placement& place, std::uint32_t dwAfter) const;

    const DeliveryContext& m_context;
    const ETimeline m_variant;
    std::int64_t m_llDataCount = 0;        // bytes of frames read since the thread began
    std::uint32_t m_dwStartTick = 0;       // tick count at the last timing restart
    std::uint32_t m_dwDeliverTick = 0;     // tick count before the present delivery
    std::int32_t m_nAhead = 0;             // ms that the stream runs ahead of the wall clock
    REFERENCE_TIME m_rtPreviousStart = 0;  // of the sample before, 100 ns (elementary stream)
};

}  // namespace kest

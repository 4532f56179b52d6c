#include "pins/DeliveryStatistics.h"

#include <cinttypes>
#include <cstdio>

#include "graph/TimeArithmetic.h"
#include "platform/DebugText.h"
#include "platform/Time.h"

namespace kest {

void CDeliveryStatistics::OnPlaced(const Placement& place, int nLength, std::uint32_t dwTick) {
    const std::uint32_t dwNow = TickCount();
    if (place.bRestart) m_dwStartTick = dwTick;
    if (m_variant == ETimeline::ElementaryStream) {
        if (place.bRestart) m_llDataCount = nLength;
        const auto nStreamMs = static_cast<std::uint64_t>(place.rtFromBase) / 10000;
        m_nAhead = static_cast<std::int32_t>(nStreamMs - (dwNow - m_dwStartTick));
    } else if (!place.bRestart) {  // in 32 bits, on the low halves
        const auto nStream = static_cast<std::uint32_t>(place.rtFromBase);
        m_nAhead = static_cast<std::int32_t>(nStream - (dwNow - m_dwStartTick) * 10000) / 10000;
    }
}

void CDeliveryStatistics::OnDeliver() { m_dwDeliverTick = TickCount(); }

void CDeliveryStatistics::Write(const TimedFrame& frame, const Placement& place) {
    if (HasTraceSink()) {
        const std::uint32_t dwAfter = TickCount();
        if (m_variant == ETimeline::ElementaryStream) {
            WriteElementary(place, dwAfter);
        } else {
            WriteTimed(frame, place, dwAfter);
        }
    }
    m_rtPreviousStart = place.rtStart;
}

void CDeliveryStatistics::WriteElementary(const Placement& place, std::uint32_t dwAfter) const {
    const std::int64_t llTime = place.rtOwn, llStep = SaturatedSubtract(place.rtStart, m_rtPreviousStart);
    Trace("AC=%d Wbms=%3d Rbms=%2d CT =%" PRId64 "  dT =%" PRId64 "  Data=%" PRId64
          " timehere=%ld  Afterdecoding=%ld dt=%d td=%d\n",
          m_context.timing.Get(m_context.pin).nAccessCount,
          static_cast<int>(m_context.frames.GetFreeBlocks()), static_cast<int>(m_context.frames.GetPending()),
          llTime, llStep, m_llDataCount, static_cast<long>(m_dwDeliverTick), static_cast<long>(dwAfter),
          static_cast<int>(dwAfter - m_dwDeliverTick), m_nAhead);
}

void CDeliveryStatistics::WriteTimed(const TimedFrame& frame, const Placement& place,
                                     std::uint32_t dwAfter) const {
    const std::int64_t llStart = place.rtStart, llClock = frame.rtClock.value_or(0);
    char szTimes[64] = "", szLead[48];  // which times stand in front and at the end depends on the variant
    std::snprintf(szLead, sizeof szLead, "td=%d", m_nAhead);
    if (m_variant == ETimeline::ClockFollowing) {
        std::snprintf(szTimes, sizeof szTimes, "SC=%" PRId64 " ST=%" PRId64 " ", llClock, llStart);
        std::snprintf(szLead, sizeof szLead, "stime=%" PRId64, llClock);
    } else if (m_variant == ETimeline::ProgramStream || m_variant == ETimeline::JumpClamping) {
        const char* pszName = m_variant == ETimeline::ProgramStream ? "ST" : "TS";
        std::snprintf(szTimes, sizeof szTimes, "%s=%" PRId64 " ", pszName, llStart);
    }
    struct Labels {
        const char *pszStream, *pszTimestamp, *pszStep, *pszAfter, *pszInDelivery;
    };
    static constexpr Labels kVideo = {"Video", "PTS", "dPTS", "Adecod", "DT"};
    static constexpr Labels kAudio = {"Audio", "DTS", "dPts", "ADecod", "dt"};
    const Labels& labels = m_context.IsVideo() ? kVideo : kAudio;
    Trace("%s::AC=%5d Wbms=%2d Rbms=%2d %s%s=%" PRId64 " %s=%" PRId64 " DC=%" PRId64
          " there=%ld  %s=%ld %s=%d %s\n",
          labels.pszStream, m_context.timing.Get(m_context.pin).nAccessCount,
          static_cast<int>(m_context.frames.GetFreeBlocks()), static_cast<int>(m_context.frames.GetPending()),
          szTimes, labels.pszTimestamp, frame.llTimestamp, labels.pszStep, place.llStep, m_llDataCount,
          static_cast<long>(m_dwDeliverTick), labels.pszAfter, static_cast<long>(dwAfter),
          labels.pszInDelivery, static_cast<int>(dwAfter - m_dwDeliverTick), szLead);
}

}  // namespace kest

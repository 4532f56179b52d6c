#include "pins/Timeline.h"

#include <cstdarg>
#include <cstdio>

#include "demux/TimestampArithmetic.h"
#include "graph/TimeArithmetic.h"
#include "platform/DebugText.h"

namespace kest {
namespace {

constexpr std::int64_t kBrokenTicks = 90090;  // timestamps further apart are broken
constexpr std::uint64_t kLastTimestamp = kTimestampRange - 1;
constexpr std::uint64_t kWrapTicks = 20000;         // a wrap leads less far than this
constexpr REFERENCE_TIME kWrapTime = 954437176777;  // kLastTimestamp in 100 ns, rounded down

/// As ToTime, but divides without a sign: the conversion of repaired timestamps.
REFERENCE_TIME ToUnsignedTime(std::int64_t llTimestamp) {
    return static_cast<REFERENCE_TIME>(static_cast<std::uint64_t>(llTimestamp) * 1000 / 9);
}

}  // namespace

REFERENCE_TIME CTimeline::ToTime(std::int64_t llTimestamp) { return MulDiv(llTimestamp, 1000, 9); }

bool CTimeline::IsTimestampBroken(std::int64_t llTimestamp, std::int64_t llLast) {
    const std::int64_t llStep = SaturatedSubtract(llTimestamp, llLast);
    return llStep > kBrokenTicks || llStep < -kBrokenTicks;
}

Placement CTimeline::Ask(ERequest request) {
    Placement place;
    place.request = request;
    return place;
}

REFERENCE_TIME CTimeline::BaseOf(const SeekTarget& target, std::int64_t llTimestamp) {
    const std::int64_t llAhead =
        SaturatedAdd(SaturatedSubtract(llTimestamp, target.llTimestamp), kTimestampRange / 2);
    const std::int64_t llWraps = llAhead / kTimestampRange - (llAhead % kTimestampRange < 0 ? 1 : 0);
    return ToTime(SaturatedAdd(target.llTimestamp, llWraps * kTimestampRange));
}

Placement CTimeline::Begin(const TimedFrame& frame, PinTiming& own) {
    Placement place = Continue(frame, own);
    place.bRestart = place.bDiscontinuity = true;
    own.nAccessCount = 0;
    m_llLast = frame.llTimestamp;
    return place;
}

Placement CTimeline::Continue(const TimedFrame& frame, const PinTiming& own) const {
    Placement place;
    place.rtStart = place.rtFromBase = SaturatedSubtract(ToTime(frame.llTimestamp), own.rtTimeBase);
    return place;
}

void CTimeline::ClampJump(Placement& place, const PinTiming& own, REFERENCE_TIME rtLimit,
                          REFERENCE_TIME rtFrame) {
    const REFERENCE_TIME rtJump = SaturatedSubtract(place.rtStart, own.rtLastStart);
    if (rtJump <= rtLimit && rtJump >= -rtLimit) return;
    place.rtStart = SaturatedAdd(own.rtLastStart, rtFrame);
    place.bDiscontinuity = true;
}

void CTimeline::Publish(const Placement& place, PinTiming& own) {
    own.rtStart = own.rtLastStart = place.rtStart;
}

bool CTimeline::RepairWrap(const TimedFrame& frame, PinTiming& own, Placement& place) const {
    const auto nNow = static_cast<std::uint64_t>(frame.llTimestamp);
    const auto nLast = static_cast<std::uint64_t>(m_llLast);
    if (nNow >= nLast || nNow + kLastTimestamp - nLast >= kWrapTicks) return false;
    own.rtTimeBase = SaturatedSubtract(own.rtTimeBase, kWrapTime);
    place.rtStart = SaturatedSubtract(ToTime(frame.llTimestamp), own.rtTimeBase);
    Publish(place, own);
    return true;
}

bool CTimeline::RepairBroken(const TimedFrame& frame, PinTiming& own, Placement& place, bool bSyncPoint) {
    if (!IsTimestampBroken(frame.llTimestamp, m_llLast)) return false;
    m_llLast = SaturatedAdd(m_llLast, m_llFrameTicks);
    place.rtStart = SaturatedSubtract(ToUnsignedTime(m_llLast), own.rtTimeBase);
    place.bDiscontinuity = true;
    place.bPreroll = false;
    place.bSyncPoint = bSyncPoint;
    own.rtStart = place.rtStart;  // the next frame is measured against the start before
    return true;
}

void CTimeline::RequestReset(Placement& place) { place.bRequestReset = m_bResetRequested = true; }

void CTimeline::AddTrace(std::string& traces, const char* pszFormat, ...) {
    if (!HasTraceSink()) return;
    char szText[160];
    std::va_list arguments;
    va_start(arguments, pszFormat);
    std::vsnprintf(szText, sizeof szText, pszFormat, arguments);
    va_end(arguments);
    traces += szText;
}

void CTimeline::Finish(const TimedFrame& frame, AvTimes&, Placement& place) {
    place.llStep = SaturatedSubtract(frame.llTimestamp, m_llLast);
    if (!m_bResetRequested) m_llLast = frame.llTimestamp;
}

}  // namespace kest

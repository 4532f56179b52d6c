#include "demux/TimeSearch.h"

#include <algorithm>

#include "demux/TimestampArithmetic.h"

namespace kest {
namespace {

constexpr std::int64_t kMostBefore = 10 * kTicksPerSecond;  // of a timestamp before time 0
constexpr std::int64_t kLeastByteRate = 1000;          // bytes a second; less than that is a jump in time
constexpr std::int64_t kMostReorder = 45000;           // a PTS is not further behind its DTS
constexpr std::int64_t kLeastRead = 65536;             // bytes
constexpr std::int64_t kMostRead = 4 << 20;            // a bound of memory: reads that go on grow up to it
constexpr std::int64_t kMostEnds = 8 << 20;            // read in search of the first and the last timestamps
constexpr std::int64_t kMostSearched = 64 << 20;       // and of one packet, or of an access point
constexpr std::int64_t kCloseEnough = 4 * kLeastRead;  // the bisection ends here
constexpr std::int64_t kOverlap = 2 * kLeastRead;      // of two stretches; the longest packet is within it
constexpr std::int64_t kMostHeader = kPesFixedHeader + 255;  // of a PES packet

bool HasTimestamps(const CPsStretch::Packet& packet) { return packet.timestamps.has_value(); }

/// The first packet with timestamps, or null.
const CPsStretch::Packet* FindTimed(const std::vector<CPsStretch::Packet>& packets) {
    const auto found = std::find_if(packets.begin(), packets.end(), HasTimestamps);
    return found == packets.end() ? nullptr : &*found;
}

/// A time by which packets are in order, as far as they are: the DTS, or a bound of it.
std::int64_t OrderOf(const PesTimestamps& timestamps, const TimeExtent& extent) {
    const bool bHasDts = timestamps.llDts != timestamps.llPts;
    return extent.TimeOf(timestamps.llDts) - (bHasDts ? 0 : kMostReorder);
}

/// The choice of an access point among the pictures before a time, the last of them first. An I picture without a
/// header is taken when the two before it have none either: where headers are not repeated. The first picture of a
/// source has one always, so that it says nothing about that.
struct Choice {
    std::optional<TimedPicture> picture;  // the access point
    std::optional<TimedPicture> last;     // the last picture, whatever it is
    int nWithout = 0;                     // I pictures without a header

    /// @param bFirst  it is the first picture of the source.
    /// @return whether the choice is made.
    bool Take(const TimedPicture& next, bool bFirst) {
        constexpr int kEnoughWithout = 3;
        if (!last) last = next;
        if (!next.bIntra) return false;
        const bool bWithHeader = next.bHeader && !(bFirst && nWithout > 0);
        if (bWithHeader || nWithout == 0) picture = next;
        return bWithHeader || ++nWithout == kEnoughWithout;
    }
};

}  // namespace

std::int64_t TimeExtent::TimeOf(std::int64_t llTimestamp) const {
    return ((llTimestamp - llFirst + kMostBefore) & (kTimestampRange - 1)) - kMostBefore;
}

/// Reads a stretch of the source, no further than it goes.
bool CTimeSearch::Load(std::int64_t llBegin, std::int64_t llEnd) {
    const std::int64_t llSize = std::min(llEnd, m_llLength) - llBegin;
    m_bytes.resize(static_cast<std::size_t>(std::max(llSize, std::int64_t{0})));
    if (m_bytes.empty()) return false;
    if (m_pReader->SyncRead(llBegin, static_cast<LONG>(llSize), m_bytes.data()) != S_OK) return false;
    m_stretch.Parse(m_bytes, llBegin);
    return true;
}

// ---------------- first and last timestamps

std::optional<TimeExtent> CTimeSearch::Measure() {
    m_extent.reset();
    m_llEnd = m_llLength;
    m_bVideo = m_bAudio = false;
    if (!FindFirst() || !FindLast()) m_extent.reset();
    return m_extent;
}

/// Reads on until both streams have begun; one of them may not be there.
bool CTimeSearch::FindFirst() {
    std::optional<std::int64_t> llVideo, llAudio;
    std::int64_t llRead = kLeastRead;
    for (std::int64_t llBegin = 0; llBegin < std::min(m_llLength, kMostEnds) && !(llVideo && llAudio);) {
        if (!Load(llBegin, llBegin + llRead)) return false;
        const auto *pVideo = FindTimed(m_stretch.GetVideo()), *pAudio = FindTimed(m_stretch.GetAudio());
        if (!llVideo && pVideo) llVideo = pVideo->timestamps->llPts;
        if (!llAudio && pAudio) llAudio = pAudio->timestamps->llPts;
        llBegin += llRead - kMostHeader;
        llRead = std::min(2 * llRead, kMostRead);
    }
    m_bVideo = llVideo.has_value();
    m_bAudio = llAudio.has_value();
    if (!m_bVideo && !m_bAudio) return false;
    m_extent.emplace(TimeExtent{.llFirst = m_bVideo ? *llVideo : *llAudio});
    if (m_bVideo && m_bAudio && m_extent->TimeOf(*llAudio) < 0) m_extent->llFirst = *llAudio;
    return true;
}

/// Reads back from the end until both streams' last timestamps have been found.
bool CTimeSearch::FindLast() {
    bool bVideo = false, bAudio = false;
    std::int64_t llRead = kLeastRead, llLast = -1;
    for (std::int64_t llEnd = m_llLength; llEnd > std::max(m_llLength - kMostEnds, std::int64_t{0});) {
        const std::int64_t llBegin = std::max(llEnd - llRead, std::int64_t{0});
        if (!Load(llBegin, llEnd + kOverlap)) return false;
        for (const auto* pPackets : {&m_stretch.GetVideo(), &m_stretch.GetAudio()}) {
            for (const auto& packet : *pPackets) {
                if (!packet.timestamps || packet.llPosition >= llEnd) continue;
                (pPackets == &m_stretch.GetVideo() ? bVideo : bAudio) = true;
                llLast = std::max(llLast, m_extent->TimeOf(packet.timestamps->llPts));
            }
        }
        if (bVideo == m_bVideo && bAudio == m_bAudio) break;
        llEnd = llBegin;
        llRead = std::min(2 * llRead, kMostRead);
    }
    m_extent->llDuration = llLast;
    const auto bJumps = HasJump();
    return llLast > 0 && bJumps && (!*bJumps || FindEndOfFirstPart());
}

/// Whether the times of some places in the source do not grow from its beginning to its end.
/// @return nothing when it cannot be read.
std::optional<bool> CTimeSearch::HasJump() {
    constexpr int kPlaces = 4;
    if (!IsPlausible(m_extent->llDuration, m_llLength)) return true;
    std::int64_t llBefore = -kMostBefore;
    for (int i = 1; i < kPlaces; ++i) {
        const auto llFound = FindPacket(m_llLength / kPlaces * i, m_llLength);
        if (!llFound) return std::nullopt;
        if (*llFound == m_llLength) break;
        const std::int64_t llTime = OrderOf(m_found, *m_extent);
        if (llTime < llBefore - kMostReorder || llTime > m_extent->llDuration) return true;
        llBefore = llTime;
    }
    return false;
}

/// Whether a stream that comes to this time at this position has not jumped before.
bool CTimeSearch::IsPlausible(std::int64_t llTime, std::int64_t llPosition) const {
    constexpr std::int64_t kAlwaysPlausible = 60 * kTicksPerSecond;
    return llTime >= -kMostBefore &&
           llTime <= kAlwaysPlausible + llPosition / kLeastByteRate * kTicksPerSecond;
}

/// The timestamps jump somewhere: the duration is the time up to where they do.
bool CTimeSearch::FindEndOfFirstPart() {
    std::int64_t llBegin = 0, llEnd = m_llLength;
    m_extent->llDuration = 0;
    while (llEnd - llBegin > kLeastRead) {
        const std::int64_t llMiddle = llBegin + (llEnd - llBegin) / 2;
        const auto llFound = FindPacket(llMiddle, llEnd);
        if (!llFound) return false;
        const std::int64_t llTime = m_extent->TimeOf(m_found.llPts);
        if (*llFound < llEnd && IsPlausible(llTime, *llFound) &&
            llTime > m_extent->llDuration - kMostReorder) {
            m_extent->llDuration = std::max(m_extent->llDuration, llTime);
            llBegin = *llFound;
        } else {
            llEnd = llMiddle;
        }
    }
    m_llEnd = llEnd;
    return m_extent->llDuration > 0;
}

// ---------------- access points

/// Finds the first packet with timestamps from llBegin on, whose timestamps m_found then has.
/// @return its position; llEnd when there is none before; nothing when the source cannot be read.
std::optional<std::int64_t> CTimeSearch::FindPacket(std::int64_t llBegin, std::int64_t llEnd) {
    const std::int64_t llFarthest = std::min(llEnd, llBegin + kMostSearched);
    for (std::int64_t llRead = kLeastRead; llBegin < llFarthest; llRead = std::min(2 * llRead, kMostRead)) {
        if (!Load(llBegin, llBegin + llRead)) return std::nullopt;
        if (const auto* pPacket = FindTimed(KeyPackets())) {
            m_found = *pPacket->timestamps;
            return std::min(pPacket->llPosition, llEnd);
        }
        llBegin += llRead - kMostHeader;
    }
    return llEnd;
}

/// A position behind all packets that may be decoded at this time or before, and not far behind.
std::optional<std::int64_t> CTimeSearch::FindUpperBound(std::int64_t llTime) {
    std::int64_t llBegin = 0, llEnd = m_llEnd;
    while (llEnd - llBegin > kCloseEnough) {
        const std::int64_t llMiddle = llBegin + (llEnd - llBegin) / 2;
        const auto llFound = FindPacket(llMiddle, llEnd);
        if (!llFound) return std::nullopt;
        if (*llFound < llEnd && OrderOf(m_found, *m_extent) <= llTime) {
            llBegin = *llFound;
        } else {
            llEnd = llMiddle;
        }
    }
    return llEnd;
}

/// The pictures of what was read last; without video the audio packets, each of which can be decoded.
std::vector<TimedPicture> CTimeSearch::FindPictures() const {
    if (m_bVideo) return m_stretch.FindPictures(m_coding);
    std::vector<TimedPicture> pictures;
    for (const auto& packet : m_stretch.GetAudio()) {
        if (packet.timestamps) pictures.push_back({packet.llPosition, packet.timestamps->llPts, true, true});
    }
    return pictures;
}

// Reads back from the upper bound, more at a time.
std::optional<AccessPoint> CTimeSearch::FindAccessPoint(std::int64_t llTime) {
    if (!m_extent) return std::nullopt;
    llTime = std::clamp(llTime, std::int64_t{0}, m_extent->llDuration);
    const auto llBound = FindUpperBound(llTime);
    if (!llBound) return std::nullopt;

    Choice choice;
    bool bDone = false;
    std::int64_t llRead = kCloseEnough;
    const std::int64_t llFarthest = std::max(*llBound - kMostSearched, std::int64_t{0});
    for (std::int64_t llEnd = *llBound; llEnd > llFarthest && !bDone;) {
        const std::int64_t llBegin = std::max(llEnd - llRead, std::int64_t{0});
        if (!Load(llBegin, llEnd + kOverlap)) return std::nullopt;
        const auto pictures = FindPictures();
        for (auto it = pictures.rbegin(); it != pictures.rend() && !bDone; ++it) {
            const bool bHadBefore = it->llPosition >= llEnd && llEnd != *llBound;
            if (bHadBefore || m_extent->TimeOf(it->llTimestamp) > llTime) continue;
            bDone = choice.Take(*it, llBegin == 0 && it + 1 == pictures.rend());
        }
        llEnd = llBegin;
        llRead = std::min(2 * llRead, kMostRead);
    }
    if (!choice.picture && llFarthest > 0) choice.picture = choice.last;  // no access point within reach
    if (!choice.picture) return AccessPoint{0, m_extent->llFirst};
    return AccessPoint{choice.picture->llPosition, choice.picture->llTimestamp};
}

}  // namespace kest

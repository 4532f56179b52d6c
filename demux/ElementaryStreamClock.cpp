#include "demux/ElementaryStreamClock.h"

#include <optional>

#include "demux/StartCodeSearch.h"
#include "demux/VideoStartCodes.h"

namespace kest {
namespace {

constexpr std::uint64_t kClockUnit = 10000000;  // ticks a second of sample times

}  // namespace

void CElementaryStreamClock::Reset() {
    InitHeaderState(m_state);
    m_state.nClockUnit = kClockUnit;
    m_bHeaderSeen = false;
    m_reference.reset();
}

bool CElementaryStreamClock::ParseFrame(Bytes frame) {
    constexpr std::size_t kObjectHeaders = 12;  // what the layer parser has read of an object's start codes
    while (const auto nPrefix = FindStartCodePrefix(frame)) {
        frame = frame.subspan(*nPrefix);
        if (frame.size() < 4) return false;
        const std::uint8_t nCode = frame[3];
        std::size_t nTaken = 3;  // the code's last byte may begin the next prefix
        if (nCode <= kLastVideoObjectLayer) {
            ParseVol(m_state, frame);
            m_bHeaderSeen = true;
            if (nCode <= kLastVideoObject) nTaken = kObjectHeaders;
        } else if (m_bHeaderSeen) {
            if (nCode == kVop) return ParseVop(frame);
            if (nCode == kGroupOfVop) ParseGov(m_state, frame);
            if (nCode == kSequenceEnd) Reset();
        }
        frame = BytesFrom(frame, nTaken);
    }
    return false;
}

bool CElementaryStreamClock::ParseVop(Bytes vop) {
    if (m_rules == ERules::Simple) return ParseVopTime(m_state, vop) == 0;
    const auto fields = ReadVopFields(m_state, vop);
    if (!fields) return false;
    constexpr std::uint32_t kBidirectional = 2;
    const bool bBetween = fields->vop_coding_type == kBidirectional && m_reference;
    const std::int64_t llTicks = bBetween ? PlaceBetween(*fields) : PlaceReference(*fields);
    const std::int64_t llUnit = kClockUnit, llResolution = m_state.vop_time_increment_resolution;
    m_state.nTime = static_cast<std::uint64_t>(llTicks / llResolution * llUnit +
                                               llTicks % llResolution * llUnit / llResolution);
    return true;
}

std::int64_t CElementaryStreamClock::PlaceReference(const VopFields& vop) {
    const std::int64_t llResolution = m_state.vop_time_increment_resolution;
    const auto Place = [&] {
        const auto nSeconds = static_cast<std::int64_t>(m_state.nSeconds);
        return Reference{nSeconds, nSeconds * llResolution + vop.vop_time_increment};
    };
    m_state.nSeconds += vop.nModuloSeconds;
    // An increment that falls back by more than half a second began a new one, said or not.
    if (m_reference && m_reference->nSeconds == Place().nSeconds &&
        Place().llTicks + llResolution / 2 < m_reference->llTicks) {
        ++m_state.nSeconds;
    }
    m_earlier = m_reference.value_or(Place());
    m_reference = Place();
    return m_reference->llTicks;
}

/// A B-VOP lies between the last two references. Where its seconds do not lead there, because a group of VOPs has set
/// the clock in between or the stream begins here, it lies in the second before the last one.
std::int64_t CElementaryStreamClock::PlaceBetween(const VopFields& vop) const {
    const std::int64_t llResolution = m_state.vop_time_increment_resolution;
    const std::int64_t llTicks =
        (m_earlier.nSeconds + vop.nModuloSeconds) * llResolution + vop.vop_time_increment;
    if (llTicks > m_earlier.llTicks && llTicks < m_reference->llTicks) return llTicks;
    const std::int64_t llLast = m_reference->nSeconds * llResolution + vop.vop_time_increment;
    return llLast < m_reference->llTicks ? llLast : llLast - llResolution;
}

}  // namespace kest

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
            if (nCode == kVop) return ParseVopTime(m_state, frame) == 0;
            if (nCode == kGroupOfVop) ParseGov(m_state, frame);
            if (nCode == kSequenceEnd) Reset();
        }
        frame = BytesFrom(frame, nTaken);
    }
    return false;
}

}  // namespace kest

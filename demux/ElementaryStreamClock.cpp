#include "demux/ElementaryStreamClock.h"

#include <optional>

namespace kest {
namespace {

constexpr std::uint64_t kClockUnit = 10000000;  // ticks a second of sample times

// Start codes, ISO/IEC 14496-2 table 6-3.
constexpr std::uint32_t kFirstObject = 0x100;
constexpr std::uint32_t kLastObject = 0x11F;
constexpr std::uint32_t kLastLayer = 0x12F;
constexpr std::uint32_t kSequenceEnd = 0x1B1;
constexpr std::uint32_t kGroupOfVop = 0x1B3;
constexpr std::uint32_t kVop = 0x1B6;

}  // namespace

void CElementaryStreamClock::Reset() {
    InitHeaderState(m_state);
    m_state.nClockUnit = kClockUnit;
    m_bHeaderSeen = false;
}

bool CElementaryStreamClock::ParseFrame(std::span<const std::uint8_t> frame) {
    constexpr std::size_t kObjectHeader = 8;  // what the layer parser has read of an object's start codes
    std::uint32_t nCode = 0xFFFFFFFF;
    for (std::size_t i = 0; i < frame.size(); ++i) {
        nCode = nCode << 8 | frame[i];
        if (nCode < kFirstObject || nCode > kVop || i < 3) continue;
        const auto bytes = frame.subspan(i - 3);
        if (nCode <= kLastLayer) {
            ParseVol(m_state, bytes);
            m_bHeaderSeen = true;
            if (nCode <= kLastObject) i += kObjectHeader;
        } else if (!m_bHeaderSeen) {
            continue;
        } else if (nCode == kSequenceEnd) {
            Reset();
        } else if (nCode == kGroupOfVop) {
            ParseGov(m_state, bytes);
        } else if (nCode == kVop) {
            return ParseVopTime(m_state, bytes) == 0;
        }
    }
    return false;
}

}  // namespace kest

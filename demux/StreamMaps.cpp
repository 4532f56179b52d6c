#include "demux/StreamMaps.h"

#include <utility>

#include "demux/SystemLayer.h"
#include "platform/DebugText.h"

namespace kest {

void CStreamMaps::InitStreamMaps() {
    m_active.fill(kIgnore);
    m_active[kFirstAudioStreamId] = kAudio;
    m_active[kFirstVideoStreamId] = kVideo;
    m_active[0xFF] = 0xFF;
    m_staged = m_active;
}

std::uint8_t CStreamMaps::ClassifyStreamId(std::uint8_t nStreamId) const {
    switch (nStreamId) {
        case kProgramEndId:
        case kPackHeaderId:
        case kSystemHeaderId:
        case kProgramStreamMapId:
        case kPaddingStreamId: return nStreamId;
        default: return m_active[nStreamId];
    }
}

void CStreamMaps::ApplyMap(std::span<const std::uint8_t> map) {
    constexpr std::size_t kFixedSize = 10;  // of a map's length: all but descriptors and entries
    constexpr std::size_t kMaxInfoLength = 1018;
    if (map.size() < kFixedSize) return;
    const bool bCurrent = map[0] & 0x80;  // current_next_indicator
    const std::size_t nInfoLength = Read16(map, 2);
    if (nInfoLength > kMaxInfoLength || nInfoLength + kFixedSize > map.size()) return;
    const std::size_t nEntriesLength = Read16(map, 4 + nInfoLength);
    if (nEntriesLength != map.size() - nInfoLength - kFixedSize) return;

    Table staged = m_staged;
    const auto entries = map.subspan(6 + nInfoLength, nEntriesLength);
    std::size_t nPos = 0;
    while (nPos + 4 <= entries.size()) {
        const std::uint8_t nStreamId = entries[nPos + 1];
        staged[nStreamId] = NoteEntry(entries[nPos], nStreamId);
        nPos += 4u + Read16(entries, nPos + 2);
    }
    if (nPos != entries.size()) return;
    m_staged = staged;
    if (bCurrent) SwapStreamMaps();
}

std::uint8_t CStreamMaps::NoteEntry(std::uint8_t nStreamType, std::uint8_t nStreamId) {
    switch (nStreamType) {
        case kStreamTypeMpeg1Audio:
        case kStreamTypeMpeg2Audio:
        case 0x81:  // user private types that carry audio
        case 0x90:
        case 0x91:
        case 0x92:
        case 0x99:
            m_nAudioStreamType = nStreamType;
            if (nStreamId != kFirstAudioStreamId) Trace("0C");
            return kAudio;
        case kStreamTypeMpeg1Video:
        case kStreamTypeMpeg2Video:
        case kStreamTypeMpeg4Video:
            m_nVideoStreamType = nStreamType;
            if (nStreamId != kFirstVideoStreamId) Trace("0E");
            return kVideo;
        default: return kIgnore;
    }
}

void CStreamMaps::SwapStreamMaps() { std::swap(m_active, m_staged); }

}  // namespace kest

#include "demux/StreamMaps.h"

#include <utility>

#include "demux/MapEntries.h"
#include "demux/SystemLayer.h"
#include "platform/DebugText.h"

namespace kest {

void CStreamMaps::InitStreamMaps(const ParseSettings& settings) {
    m_settings = settings;
    m_listed = {};
    m_bAudioListed = m_bVideoListed = false;
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
        default: break;
    }
    const std::uint8_t nCategory = m_active[nStreamId];
    return nCategory == kIgnore && !m_listed[nStreamId] ? AssumeCategory(nStreamId) : nCategory;
}

std::uint8_t CStreamMaps::AssumeCategory(std::uint8_t nStreamId) const {
    const auto IsAssumed = [&](bool bListed, std::int32_t nChosen) {
        return (m_settings.bAssumeMap && !bListed) || nStreamId == nChosen;
    };
    if (IsAudioStreamId(nStreamId) && IsAssumed(m_bAudioListed, m_settings.nAudioStream)) return kAudio;
    if (IsVideoStreamId(nStreamId) && IsAssumed(m_bVideoListed, m_settings.nVideoStream)) return kVideo;
    return kIgnore;
}

void CStreamMaps::ApplyMap(Bytes map) {
    constexpr std::size_t kFixedSize = 10;  // of a map's length: all but descriptors and entries
    constexpr std::size_t kMaxInfoLength = 1018;
    if (map.size() < kFixedSize) return;
    const bool bCurrent = map[0] & 0x80;  // current_next_indicator
    const std::size_t nInfoLength = Read16(map, 2);
    if (nInfoLength > kMaxInfoLength || nInfoLength + kFixedSize > map.size()) return;
    const std::size_t nEntriesLength = Read16(map, 4 + nInfoLength);
    if (nEntriesLength != map.size() - nInfoLength - kFixedSize) return;

    const CMapEntries entries(map.subspan(6 + nInfoLength, nEntriesLength),
                              CMapEntries::ELayout::ProgramStream);
    CMapEntries check = entries;
    while (check.Next()) continue;
    if (!check.IsComplete()) return;
    CMapEntries walk = entries;
    while (const auto entry = walk.Next()) {
        StageEntry(entry->nStreamType, static_cast<std::uint8_t>(entry->nId));
    }
    if (bCurrent) SwapStreamMaps();
}

void CStreamMaps::StageEntry(std::uint8_t nStreamType, std::uint8_t nStreamId) {
    m_listed[nStreamId] = true;
    switch (nStreamType) {
        case kStreamTypeMpeg1Audio:
        case kStreamTypeMpeg2Audio:
        case 0x81:  // user private types that carry audio
        case 0x90:
        case 0x91:
        case 0x92:
        case 0x99:
            m_staged[nStreamId] = kAudio;
            m_nAudioStreamType = nStreamType;
            m_bAudioListed = true;
            if (nStreamId != kFirstAudioStreamId) Trace("0C");
            return;
        case kStreamTypeMpeg1Video:
        case kStreamTypeMpeg2Video:
        case kStreamTypeMpeg4Video:
            m_staged[nStreamId] = kVideo;
            m_nVideoStreamType = nStreamType;
            m_bVideoListed = true;
            if (nStreamId != kFirstVideoStreamId) Trace("0E");
            return;
        default: m_staged[nStreamId] = kIgnore;
    }
}

void CStreamMaps::SwapStreamMaps() { std::swap(m_active, m_staged); }

}  // namespace kest

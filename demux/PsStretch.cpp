#include "demux/PsStretch.h"

#include <algorithm>

#include "demux/StartCodeSearch.h"
#include "demux/SystemLayer.h"
#include "demux/VideoStartCodes.h"

namespace kest {
namespace {

constexpr std::size_t kCodeSize = 4;
constexpr std::size_t kLengthEnd = 6;  // of start code and packet length

bool IsAudio(std::uint8_t nId) { return nId >= kFirstAudioStreamId && nId < kFirstVideoStreamId; }
bool IsVideo(std::uint8_t nId) { return nId >= kFirstVideoStreamId && nId < kFirstReservedDataId; }

/// Bytes of the structure that begins with this start code; 0: it is none of the system layer's, or broken.
std::size_t SizeOf(Bytes unit) {
    constexpr std::size_t kPackHeaderSize = 14;
    const std::uint8_t nId = unit[3];
    if (nId < kProgramEndId) return 0;
    if (nId == kProgramEndId) return kCodeSize;
    if (nId == kPackHeaderId) {
        const unsigned nStuffing = unit.size() >= kPackHeaderSize ? unit[kPackHeaderSize - 1] & 0x07 : 0;
        return kPackHeaderSize + nStuffing;
    }
    if (unit.size() < kPesFixedHeader) return unit.size();
    const bool bPes = IsAudio(nId) || IsVideo(nId);
    if (bPes && unit[6] >> 6 != 2) return 0;  // ISO/IEC 13818-1 2.4.3.6: '10'
    return kLengthEnd + Read16(unit, 4);
}

/// Whether a structure can end where these bytes begin: at a start code, at zero bytes, or at the end.
bool MayFollow(Bytes rest) {
    constexpr std::size_t kPrefix = 3;
    if (rest.size() < kPrefix) return true;
    return rest[0] == 0 && rest[1] == 0 && rest[2] <= 1;
}

}  // namespace

void CPsStretch::Parse(Bytes bytes, std::int64_t llPosition) {
    m_video.clear();
    m_audio.clear();
    m_payload.clear();
    while (const auto nFound = FindStartCodePrefix(bytes)) {
        bytes = bytes.subspan(*nFound);
        llPosition += static_cast<std::int64_t>(*nFound);
        if (bytes.size() < kCodeSize) return;
        const std::size_t nSize = std::min(ParseUnit(bytes, llPosition), bytes.size());
        bytes = bytes.subspan(nSize);
        llPosition += static_cast<std::int64_t>(nSize);
    }
}

/// @return the bytes to go on behind.
std::size_t CPsStretch::ParseUnit(Bytes unit, std::int64_t llPosition) {
    constexpr std::size_t kPrefix = 3;
    const std::size_t nSize = SizeOf(unit);
    if (nSize == 0 || !MayFollow(BytesFrom(unit, nSize))) return kPrefix;
    if (IsAudio(unit[3]) || IsVideo(unit[3]))
        TakePacket(unit.first(std::min(nSize, unit.size())), llPosition);
    return nSize;
}

/// Takes a PES packet, which the end of the stretch may have cut off.
void CPsStretch::TakePacket(Bytes packet, std::int64_t llPosition) {
    const std::uint8_t nId = packet[3];
    if (IsVideo(nId) && m_nVideoId == 0) m_nVideoId = nId;
    if (IsVideo(nId) && nId != m_nVideoId) return;
    if (packet.size() < kPesFixedHeader) return;
    const std::size_t nHeaderEnd = kPesFixedHeader + packet[8];  // PES_header_data_length
    if (packet.size() < nHeaderEnd) return;
    const Bytes header = packet.subspan(kPesFixedHeader, packet[8]);
    auto& packets = IsVideo(nId) ? m_video : m_audio;
    packets.push_back({llPosition, m_payload.size(), ParsePtsDts(packet[7] >> 6, header)});
    if (IsVideo(nId))
        m_payload.insert(m_payload.end(), packet.begin() + static_cast<long>(nHeaderEnd), packet.end());
}

std::vector<TimedPicture> CPsStretch::FindPictures(EVideoCoding coding) const {
    constexpr std::size_t kTypeIndex12 = 5,
                          kTypeIndex4 = 4;  // of the coding type, behind the start code's first byte
    std::vector<TimedPicture> pictures;
    const bool bMpeg4 = coding == EVideoCoding::Mpeg4;
    const Packet* pTimed = nullptr;        // the last packet with timestamps before the start code
    bool bHeader = false, bTaken = false;  // behind its beginning: a header, the first picture
    auto next = m_video.begin();
    const auto Take = [&](std::size_t nIndex, std::uint8_t nCode) {
        for (; next != m_video.end() && next->nPayload <= nIndex; ++next) {
            if (!next->timestamps) continue;
            pTimed = &*next;
            bHeader = bTaken = false;
        }
        const std::size_t nType = nIndex + (bMpeg4 ? kTypeIndex4 : kTypeIndex12);
        if (nCode != (bMpeg4 ? kVop : kPicture)) {
            bHeader = true;
            return true;
        }
        if (!pTimed || bTaken || nType >= m_payload.size()) return true;
        bTaken = true;
        // vop_coding_type 0, picture_coding_type 1
        const bool bIntra = bMpeg4 ? m_payload[nType] >> 6 == 0 : (m_payload[nType] >> 3 & 7) == 1;
        pictures.push_back({pTimed->llPosition, pTimed->timestamps->llPts, bIntra, bHeader || bMpeg4});
        return true;
    };
    if (coding == EVideoCoding::Mpeg4) {
        ForEachStartCodeOf(m_payload, {kVop, kVop, kVop}, Take);
    } else {
        ForEachStartCodeOf(m_payload, {kPicture, kSequenceHeader, kGroupOfPictures}, Take);
    }
    return pictures;
}

}  // namespace kest

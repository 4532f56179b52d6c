#include "demux/PsStretch.h"

#include "demux/PacketHeader.h"
#include "demux/StartCodeSearch.h"
#include "demux/SystemLayer.h"
#include "demux/VideoStartCodes.h"

namespace kest {
void CPsStretch::Parse(Bytes bytes, std::int64_t llPosition) {
    m_video.clear();
    m_audio.clear();
    m_payload.clear();
    WalkProgramStream(bytes, ECutOff::Any, [&](const SystemStructure& structure) {
        TakePacket(structure, llPosition + static_cast<std::int64_t>(structure.nIndex));
        return true;
    });
}

/// Takes a PES packet, which the end of the stretch may have cut off.
void CPsStretch::TakePacket(const SystemStructure& structure, std::int64_t llPosition) {
    constexpr std::size_t kLengthSize = 2;
    const bool bVideo = IsVideoStreamId(structure.nId);
    if (!bVideo && !IsAudioStreamId(structure.nId)) return;
    if (bVideo && m_nVideoId == 0) m_nVideoId = structure.nId;
    if (bVideo && structure.nId != m_nVideoId) return;
    const auto content = ParsePacket(BytesFrom(structure.bytes, kLengthSize));
    if (!content) return;
    (bVideo ? m_video : m_audio).push_back({llPosition, m_payload.size(), content->timestamps});
    if (bVideo) m_payload.insert(m_payload.end(), content->payload.begin(), content->payload.end());
}

std::vector<TimedPicture> CPsStretch::FindPictures(EVideoCoding coding) const {
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
        if (nCode != (bMpeg4 ? kVop : kPicture)) {
            bHeader = true;
            return true;
        }
        const Bytes picture = Bytes(m_payload).subspan(nIndex);
        const auto bIntra = bMpeg4 ? IsIntraVop(picture) : IsIntraPicture(picture);
        if (!pTimed || bTaken || !bIntra) return true;
        bTaken = true;
        pictures.push_back({pTimed->llPosition, pTimed->timestamps->llPts, *bIntra, bHeader || bMpeg4});
        return true;
    };
    if (bMpeg4) {
        ForEachStartCodeOf(m_payload, {kVop, kVop, kVop}, Take);
    } else {
        ForEachStartCodeOf(m_payload, {kPicture, kSequenceHeader, kGroupOfPictures}, Take);
    }
    return pictures;
}

}  // namespace kest

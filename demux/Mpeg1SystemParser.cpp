#include "demux/Mpeg1SystemParser.h"

#include <utility>

#include "demux/StartCodeSearch.h"
#include "demux/SystemLayer.h"
#include "platform/DebugText.h"

namespace kest {
namespace {

/// The low 32 bits of a timestamp, as a signed number.
std::int64_t Low32(std::int64_t llTimestamp) { return static_cast<std::int32_t>(llTimestamp); }

}  // namespace

void CMpeg1SystemParser::Begin() {
    Reset();
    m_audioFramer.Begin();
}

void CMpeg1SystemParser::Reset() {
    m_video.Drop();
    m_audioPackets.Reset();
    m_audioFramer.Reset();
    m_videoTimestamps = m_audioTimestamps = kNoTimestamps;
    m_sequenceHeader.Reset();
    m_nSkipped = 0;
}

EParsed CMpeg1SystemParser::ParseUnit() {
    constexpr std::uint32_t kStartCodeSize = 4;
    const EParsed found = FindStartCode();
    if (found != EParsed::Unit) return found;
    const std::uint32_t nSkipped = std::exchange(m_nSkipped, 0);
    const Bytes streamId = m_input.Read(1);
    if (streamId.empty()) return EParsed::NoData;
    if (nSkipped > 0) Trace("start code is wrong %d\n", static_cast<int>(nSkipped + kStartCodeSize));
    return ParseStructure(streamId[0]) ? EParsed::Unit : EParsed::NoData;
}

/// Takes the bytes up to and with the next start code prefix; as far as they have been fetched.
EParsed CMpeg1SystemParser::FindStartCode() {
    constexpr std::uint32_t kPrefixSize = 3;
    const Bytes bytes = m_input.PeekFetched(kPrefixSize);
    if (bytes.empty()) return EParsed::NoData;
    const auto nPrefix = FindStartCodePrefix(bytes);
    const auto nPassed = static_cast<std::uint32_t>(nPrefix.value_or(bytes.size() - (kPrefixSize - 1)));
    m_nSkipped += nPassed;
    m_input.Skip(nPrefix ? nPassed + kPrefixSize : nPassed);
    return nPrefix ? EParsed::Unit : EParsed::Searching;
}

/// Parses what the start code begins. @return false when the input has not all of it.
bool CMpeg1SystemParser::ParseStructure(std::uint8_t nStreamId) {
    constexpr std::uint32_t kPackHeaderSize = 8;  // the SCR and the mux rate are not used
    constexpr std::uint8_t kAudioMask = 0xE0, kVideoMask = 0xF0;
    switch (nStreamId) {
        case kPackHeaderId: return !m_input.Read(kPackHeaderSize).empty();
        case kSystemHeaderId: return m_input.SkipSection();
        case kProgramEndId: return true;
        default: break;
    }
    if ((nStreamId & kAudioMask) == kFirstAudioStreamId) return ParsePacket(/*bVideo=*/false);
    if ((nStreamId & kVideoMask) == kFirstVideoStreamId) return ParsePacket(/*bVideo=*/true);
    return SkipPacket(nStreamId);
}

bool CMpeg1SystemParser::SkipPacket(std::uint8_t nStreamId) {
    switch (nStreamId) {
        case kProgramStreamMapId: Trace("reserved stream!!\n"); break;  // of an MPEG-2 stream
        case kPrivateStream1Id: Trace("private stream1!!\n"); break;
        case kPaddingStreamId: Trace("padding stream!!\n"); break;
        case kPrivateStream2Id: Trace("private stream2!!\n"); break;
        default:
            if (nStreamId >= kFirstReservedDataId) Trace("reserved data stream\n");
    }
    return m_input.SkipSection();
}

/// Reads a packet behind its start code (ISO/IEC 11172-1 2.4.3.3). Its timestamps count whether it has a
/// payload or not.
bool CMpeg1SystemParser::ParsePacket(bool bVideo) {
    const Bytes length = m_input.Read(2);
    if (length.empty()) return false;
    const std::int64_t nPacketLength = Read16(length, 0);
    const auto header = ReadPacketHeader();
    if (!header) return false;
    PesTimestamps& current = bVideo ? m_videoTimestamps : m_audioTimestamps;
    const PesTimestamps ended = current;
    if (header->timestamps) current = *header->timestamps;
    if (nPacketLength <= header->nSize) return true;
    const auto nPayload = static_cast<std::uint32_t>(nPacketLength - header->nSize);
    const PesTimestamps* pEnded = header->timestamps ? &ended : nullptr;
    return bVideo ? OnVideoPayload(nPayload, pEnded) : OnAudioPayload(nPayload, pEnded);
}

/// Reads a packet's header behind its length: stuffing bytes, the size of the decoder's buffer, timestamps.
std::optional<CMpeg1SystemParser::PacketHeader> CMpeg1SystemParser::ReadPacketHeader() {
    constexpr std::uint8_t kStuffingByte = 0xFF;
    constexpr unsigned kPtsOnly = 2, kPtsAndDts = 3;
    PacketHeader header;
    Bytes next = m_input.Peek(1);
    for (; !next.empty() && next[0] == kStuffingByte; next = m_input.Peek(1)) {
        m_input.Skip(1);
        ++header.nSize;
    }
    if (!next.empty() && next[0] >> 6 == 1) {  // STD_buffer_scale, STD_buffer_size
        if (m_input.Read(2).empty()) return std::nullopt;
        header.nSize += 2;
        next = m_input.Peek(1);
    }
    if (next.empty()) return std::nullopt;
    const unsigned nKind = next[0] >> 4;  // has the meaning of PTS_DTS_flags in a PES packet
    const std::uint32_t nRest = nKind == kPtsOnly ? 5 : nKind == kPtsAndDts ? 10 : 1;
    const Bytes rest = m_input.Read(nRest);
    if (rest.empty()) return std::nullopt;
    header.nSize += nRest;
    header.timestamps = ParsePtsDts(nKind, rest);
    if (header.timestamps) {
        header.timestamps->llPts = Low32(header.timestamps->llPts);
        header.timestamps->llDts = Low32(header.timestamps->llDts);
    }
    return header;
}

/// Assembles the video's frame.
/// @param n       bytes of payload that the input has next.
/// @param pEnded  timestamps of the frame that ends before them; null: it goes on.
/// @return false when the input has not all of the payload.
bool CMpeg1SystemParser::OnVideoPayload(std::uint32_t n, const PesTimestamps* pEnded) {
    if (pEnded && (pEnded->llPts != kNoTimestamps.llPts || pEnded->llDts != kNoTimestamps.llDts)) {
        FRAME_INFO info{};
        info.llPts = pEnded->llPts;
        info.llDts = pEnded->llDts;
        m_video.Queue(info);
    }
    if (pEnded) m_video.Drop();
    if (!m_video.HasRoom(n)) {  // the payload is searched for the next start code
        m_video.Drop();
        return true;
    }
    const Bytes payload = m_input.Read(n);
    if (payload.empty()) return false;
    m_video.Append(payload);
    m_sequenceHeader.Capture(payload);
    return true;
}

/// Collects the audio's payload up to the next timestamp; otherwise as OnVideoPayload.
bool CMpeg1SystemParser::OnAudioPayload(std::uint32_t n, const PesTimestamps* pEnded) {
    if (pEnded && pEnded->llPts != kNoTimestamps.llPts)
        m_audioFramer.Push(m_audioPackets.GetBytes(), pEnded->llPts);
    if (pEnded) m_audioPackets.Reset();
    if (!m_audioPackets.HasRoom(n)) {
        m_audioPackets.Reset();
        return true;
    }
    const Bytes payload = m_input.Read(n);
    m_audioPackets.Append(payload);
    return !payload.empty();
}

}  // namespace kest

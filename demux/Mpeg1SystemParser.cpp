#include "demux/Mpeg1SystemParser.h"

#include <algorithm>
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
    m_audioFramer.SetDrain(m_settings.bDrain);
    m_audioCutter.SetDrain(m_settings.bDrain);
    m_nVideoId = m_nAudioId = 0;
}

void CMpeg1SystemParser::Reset() {
    m_video.Drop();
    m_audioPackets.Reset();
    m_audioFramer.Reset();
    m_audioCutter.Reset();
    m_bVideoContinues = m_bAudioContinues = false;
    m_videoTimestamps = m_audioTimestamps = kNoTimestamps;
    m_sequenceHeader.Reset();
    m_nSkipped = 0;
    m_bSearching = false;
}

EParsed CMpeg1SystemParser::ParseUnit() {
    const EParsed found = FindStartCode();
    if (found != EParsed::Unit) return found;
    const std::uint32_t nSkipped = std::exchange(m_nSkipped, 0);
    m_bSearching = false;
    const Bytes streamId = m_input.Read(1);
    if (streamId.empty()) return EParsed::NoData;
    if (nSkipped > 0) Trace("start code is wrong %d\n", static_cast<int>(nSkipped + kStartCodeSize));
    return ParseStructure(streamId[0]) ? EParsed::Unit : EParsed::NoData;
}

void CMpeg1SystemParser::Drain() {
    while (!m_input.IsAtPadding()) ParseUnit();
    EndVideoFrame(m_videoTimestamps);
    EndAudioPayload(m_audioTimestamps.llPts);
    m_audioFramer.Flush();
    m_audioCutter.Flush();
    m_videoTimestamps = m_audioTimestamps = kNoTimestamps;
}

void CMpeg1SystemParser::End() {
    m_video.Lose();
    m_audio.Lose();
    m_audio.CountLost(m_audioPackets.GetFill() + m_audioCutter.GetFill());
}

/// The next n bytes. A structure that the end of the input cuts short is padded when draining.
Bytes CMpeg1SystemParser::Read(std::uint32_t n) {
    const Bytes bytes = m_input.Read(n);
    return bytes.empty() && m_settings.bDrain && m_input.Pad() ? m_input.Read(n) : bytes;
}

/// Takes the bytes up to and with the next start code prefix; as far as they have been fetched.
EParsed CMpeg1SystemParser::FindStartCode() {
    constexpr std::uint32_t kPrefixSize = 3;
    if (m_input.IsAtPadding()) return EParsed::NoData;
    const Bytes bytes = m_input.PeekFetched(kPrefixSize);
    if (bytes.empty()) return EParsed::NoData;
    const auto nPrefix = FindStartCodePrefix(bytes);
    const auto nPassed = static_cast<std::uint32_t>(nPrefix.value_or(bytes.size() - (kPrefixSize - 1)));
    CountSkipped(m_input.TrimPadding(bytes.first(nPassed)));
    m_nSkipped += nPassed;
    m_input.Skip(nPrefix ? nPassed + kPrefixSize : nPassed);
    return nPrefix ? EParsed::Unit : EParsed::Searching;
}

/// Counts bytes that were passed over; not zeros, which may stand in front of a start code as stuffing.
void CMpeg1SystemParser::CountSkipped(Bytes passed) {
    if (std::ranges::all_of(passed, [](std::uint8_t n) { return n == 0; })) return;
    if (!std::exchange(m_bSearching, true)) ++m_counters.nResyncs;
    m_counters.llBytesSkipped += passed.size();
}

/// Parses what the start code begins. @return false when the input has not all of it.
bool CMpeg1SystemParser::ParseStructure(std::uint8_t nStreamId) {
    constexpr std::uint32_t kPackHeaderSize = 8;  // the SCR and the mux rate are not used
    constexpr std::uint8_t kAudioMask = 0xE0, kVideoMask = 0xF0;
    switch (nStreamId) {
        case kPackHeaderId: ++m_counters.nPacks; return !m_input.Read(kPackHeaderSize).empty();
        case kSystemHeaderId: return SkipSection();
        case kProgramEndId: return true;
        default: break;
    }
    const bool bAudio = (nStreamId & kAudioMask) == kFirstAudioStreamId;
    const bool bVideo = (nStreamId & kVideoMask) == kFirstVideoStreamId;
    if ((bAudio || bVideo) && IsTaken(bVideo, nStreamId)) return ParsePacket(bVideo);
    return SkipPacket(nStreamId);
}

/// The stream is the chosen one of its kind.
bool CMpeg1SystemParser::IsTaken(bool bVideo, std::uint8_t nStreamId) {
    const std::int32_t nChoice = bVideo ? m_settings.nVideoStream : m_settings.nAudioStream;
    if (nChoice == kAllStreams) return true;
    if (nChoice != kFirstKnownStream) return nChoice == nStreamId;
    std::uint8_t& nFirstId = bVideo ? m_nVideoId : m_nAudioId;
    if (nFirstId == 0) nFirstId = nStreamId;
    return nFirstId == nStreamId;
}

bool CMpeg1SystemParser::SkipPacket(std::uint8_t nStreamId) {
    if (nStreamId >= kPrivateStream1Id && nStreamId != kPaddingStreamId) ++m_counters.nOtherPackets;
    switch (nStreamId) {
        case kProgramStreamMapId: Trace("reserved stream!!\n"); break;  // of an MPEG-2 stream
        case kPrivateStream1Id: Trace("private stream1!!\n"); break;
        case kPaddingStreamId: Trace("padding stream!!\n"); break;
        case kPrivateStream2Id: Trace("private stream2!!\n"); break;
        default:
            if (nStreamId >= kFirstReservedDataId) Trace("reserved data stream\n");
    }
    return SkipSection();
}

bool CMpeg1SystemParser::SkipSection() {
    const Bytes length = Read(2);
    if (length.empty()) return false;
    const unsigned nLength = Read16(length, 0);
    return nLength == 0 || !Read(nLength).empty();
}

/// Reads a packet behind its start code (ISO/IEC 11172-1 2.4.3.3). Its timestamps count whether it has a
/// payload or not.
bool CMpeg1SystemParser::ParsePacket(bool bVideo) {
    ++(bVideo ? m_counters.nVideoPackets : m_counters.nAudioPackets);
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
    for (; !next.empty() && next[0] == kStuffingByte && !m_input.IsAtPadding(); next = m_input.Peek(1)) {
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
    if (pEnded) EndVideoFrame(*pEnded);
    if (!m_video.HasRoom(n)) {
        if (!m_settings.bDrain) {  // the payload is searched for the next start code
            m_video.Lose();
            return true;
        }
        EndVideoFrame(m_videoTimestamps);
        m_bVideoContinues = true;
    }
    const Bytes payload = Read(n);
    if (payload.empty()) return false;
    const Bytes own = m_input.TrimPadding(payload);
    if (!own.empty()) m_video.Append(own);
    m_sequenceHeader.Capture(own);
    return true;
}

/// Queues the frame, if it is one. @param timestamps  none: what comes before the first timestamp.
void CMpeg1SystemParser::EndVideoFrame(const PesTimestamps& timestamps) {
    const bool bTimes = timestamps.llPts != kNoTimestamps.llPts || timestamps.llDts != kNoTimestamps.llDts;
    if (m_settings.bDrain ? !m_video.IsEmpty() : bTimes) {
        FRAME_INFO info{};
        info.llPts = m_bVideoContinues ? kNoFrameTime : timestamps.llPts;
        info.llDts = m_bVideoContinues ? kNoFrameTime : timestamps.llDts;
        m_video.Queue(info);
    }
    m_video.Lose();
    m_bVideoContinues = false;
}

/// Collects the audio's payload up to the next timestamp; otherwise as OnVideoPayload.
bool CMpeg1SystemParser::OnAudioPayload(std::uint32_t n, const PesTimestamps* pEnded) {
    if (pEnded) EndAudioPayload(pEnded->llPts);
    if (!m_audioPackets.HasRoom(n)) {
        if (!m_settings.bDrain) {
            m_audio.CountLost(m_audioPackets.GetFill());
            m_audioPackets.Reset();
            return true;
        }
        EndAudioPayload(m_audioTimestamps.llPts);
        m_bAudioContinues = true;
    }
    const Bytes payload = Read(n);
    m_audioPackets.Append(m_input.TrimPadding(payload));
    return !payload.empty();
}

/// Passes the collected payload on, if it belongs to a timestamp or everything is wanted.
void CMpeg1SystemParser::EndAudioPayload(std::int64_t llPts) {
    const bool bWanted = m_settings.bDrain ? m_audioPackets.GetFill() > 0 : llPts != kNoTimestamps.llPts;
    if (!bWanted) m_audio.CountLost(m_audioPackets.GetFill());
    if (m_bAudioContinues) llPts = kNoFrameTime;
    if (bWanted && m_settings.bAnyAudioHeader) m_audioCutter.Push(m_audioPackets.GetBytes(), llPts);
    if (bWanted && !m_settings.bAnyAudioHeader) m_audioFramer.Push(m_audioPackets.GetBytes(), llPts);
    m_audioPackets.Reset();
    m_bAudioContinues = false;
}

}  // namespace kest

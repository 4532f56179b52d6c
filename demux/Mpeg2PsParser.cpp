#include "demux/Mpeg2PsParser.h"

#include <algorithm>
#include <utility>

#include "demux/StartCodeSearch.h"
#include "demux/SystemLayer.h"
#include "platform/DebugText.h"

namespace kest {
namespace {

constexpr std::array<std::uint8_t, 2> kNoTail = {0xFF, 0xFF};
constexpr std::uint32_t kPackHeaderSize = 10;  // behind its start code, without stuffing
constexpr std::uint32_t kMostStuffing = 7;     // pack_stuffing_length, at most

}  // namespace

void CMpeg2PsParser::Begin() {
    m_maps.InitStreamMaps(m_settings);
    m_video.nChosen = m_settings.nVideoStream;
    m_audio.nChosen = m_settings.nAudioStream;
    Reset();
}

void CMpeg2PsParser::Reset() {
    for (ElementaryStream* pStream : {&m_video, &m_audio}) {
        pStream->output.Drop();
        pStream->llPrevPts = pStream->llPrevDts = NoTime();
    }
    m_abTail = kNoTail;
    m_bSearching = m_bPrefixTaken = false;
    m_bKeepsUntimed = m_settings.bDrain && m_input.IsAtBeginning();
    m_bEndCode = false;
}

/// Goes to the next start code and parses what it begins.
EParsed CMpeg2PsParser::ParseUnit() {
    if (!std::exchange(m_bPrefixTaken, false)) {
        const ESync sync = Resync();
        if (sync == ESync::NoData) return EParsed::NoData;
        if (sync == ESync::Searching) return EParsed::Searching;
        if (sync == ESync::PatPacket) return EParsed::Unit;
    }
    if (m_settings.bDrain && !HasStructure()) {
        m_bPrefixTaken = true;
        return EParsed::NoData;
    }
    const Bytes streamId = m_input.Read(1);
    if (!streamId.empty()) ParseStructure(streamId[0]);
    return EParsed::Unit;
}

/// What the start code begins is there whole, as far as its length says.
bool CMpeg2PsParser::HasStructure() {
    constexpr std::uint32_t kMostOfPack = 1 + kPackHeaderSize + kMostStuffing;
    const Bytes streamId = m_input.Peek(1);
    if (streamId.empty()) return false;
    if (streamId[0] < kPackHeaderId) return true;
    if (streamId[0] == kPackHeaderId) return !m_input.Peek(kMostOfPack).empty();
    const Bytes length = m_input.Peek(3);
    return !length.empty() && !m_input.Peek(3 + std::uint32_t{Read16(length, 1)}).empty();
}

void CMpeg2PsParser::ParseStructure(std::uint8_t nStreamId) {
    switch (m_maps.ClassifyStreamId(nStreamId)) {
        case kProgramStreamMapId: return ParsePsm();
        case kPackHeaderId: return ParsePackHeader();
        case kSystemHeaderId:
        case kPaddingStreamId: m_input.SkipSection(); return;
        case kProgramEndId: m_bEndCode = true; return;
        case CStreamMaps::kAudio: return ParseIfTaken(m_audio, nStreamId);
        case CStreamMaps::kVideo: return ParseIfTaken(m_video, nStreamId);
        default:
            if (nStreamId >= kPrivateStream1Id) SkipPacket();
    }
}

void CMpeg2PsParser::ParseIfTaken(ElementaryStream& stream, std::uint8_t nStreamId) {
    if (stream.nChosen == kFirstKnownStream) stream.nChosen = nStreamId;
    if (stream.nChosen != kAllStreams && stream.nChosen != nStreamId) return SkipPacket();
    ++(&stream == &m_video ? m_counters.nVideoPackets : m_counters.nAudioPackets);
    ParsePes(stream);
}

/// Passes over a PES packet; without extensions the next search for a start code does.
void CMpeg2PsParser::SkipPacket() {
    ++m_counters.nOtherPackets;
    const bool bByLength = m_settings.bDrain || m_settings.bAssumeMap ||
                           m_settings.nVideoStream != kAllStreams || m_settings.nAudioStream != kAllStreams;
    if (bByLength) m_input.SkipSection();
}

/// Parses what is left with the stuffing bytes that the input has behind it: a packet that the end cuts has the payload
/// that is there.
void CMpeg2PsParser::Drain() {
    while (!m_input.IsAtPadding()) ParseUnit();
    for (ElementaryStream* pStream : {&m_video, &m_audio}) {
        EndFrame(*pStream);
        pStream->llPrevPts = pStream->llPrevDts = NoTime();
    }
    m_abTail = kNoTail;
    m_bSearching = false;
}

/// Searches the next 1024 bytes, and takes everything up to and with a start code prefix or the beginning of
/// a PAT packet, whichever comes first; all of them when neither is there.
CMpeg2PsParser::ESync CMpeg2PsParser::Resync() {
    const auto tail = std::exchange(m_abTail, kNoTail);
    const Bytes block = m_input.Peek(kSearchSize);
    if (block.empty()) return ESync::NoData;
    if (tail == kNoTail && FindStartCodePrefix(block.first(3))) {  // mostly it is the next thing
        m_input.Skip(3);
        return ESync::StartCode;
    }

    // Index of the last byte of each. What began in the block before ends at the first or second byte of this.
    const std::array<std::uint8_t, 4> abSeam = {tail[0], tail[1], block[0], block[1]};
    auto EndOf = [](std::optional<std::size_t> inSeam, std::optional<std::size_t> inBlock) {
        if (inSeam) return *inSeam;
        return inBlock ? *inBlock + 2 : std::size_t{kSearchSize};
    };
    const std::size_t nPrefix = EndOf(FindStartCodePrefix(abSeam), FindStartCodePrefix(block));
    const std::size_t nPat = EndOf(FindPatPacket(abSeam), FindPatPacket(block.first(nPrefix)));

    const std::size_t nEnd = std::min(nPrefix, nPat);
    const std::size_t nSkipped = nEnd == kSearchSize ? nEnd : nEnd - std::min<std::size_t>(nEnd, 2);
    CountSkipped(block.first(nSkipped), !std::exchange(m_bSearching, nEnd == kSearchSize));
    if (nEnd == kSearchSize) {
        m_abTail = {block[kSearchSize - 2], block[kSearchSize - 1]};
        m_input.Skip(kSearchSize);
        return ESync::Searching;
    }
    m_input.Skip(static_cast<std::uint32_t>(nEnd + 1));
    if (nPat < nPrefix) return ESync::PatPacket;
    if (nPrefix != 2) Trace("offset is wrong skipped %d bytes\n", static_cast<int>(nPrefix));
    return ESync::StartCode;
}

/// @param skipped     bytes passed over in search of a start code.
/// @param bNewSearch  the search has begun with them.
void CMpeg2PsParser::CountSkipped(Bytes skipped, bool bNewSearch) {
    skipped = m_input.TrimPadding(skipped);
    if (skipped.empty()) return;
    if (bNewSearch) ++m_counters.nResyncs;
    m_counters.llBytesSkipped += skipped.size();
}

/// Reads the pack header behind its start code (ISO/IEC 13818-1 2.5.3.3); the SCR is not used.
void CMpeg2PsParser::ParsePackHeader() {
    const Bytes header = m_input.Read(kPackHeaderSize);
    if (header.empty()) return;
    ++m_counters.nPacks;
    if (const unsigned nStuffing = header[9] & kMostStuffing; nStuffing > 0)
        m_input.Read(nStuffing);  // pack_stuffing_length
}

void CMpeg2PsParser::ParsePsm() {
    const Bytes length = m_input.Read(2);
    if (length.empty()) return;
    if (const unsigned nLength = Read16(length, 0); nLength > 0) m_maps.ApplyMap(m_input.Read(nLength));
}

/// Reads a PES packet behind its start code (ISO/IEC 13818-1 2.4.3.6) and assembles its payload. Its
/// timestamps count before its length does: they begin a frame even when no payload can be taken.
void CMpeg2PsParser::ParsePes(ElementaryStream& stream) {
    const std::int64_t llStart = m_input.GetPosition(kStartCodeSize);
    const Bytes fixed = m_input.Read(kPesFixedHeader - kStartCodeSize);
    if (fixed.empty()) return;
    const int nPacketLength = Read16(fixed, 0);  // PES_packet_length
    const unsigned nPtsDtsFlags = fixed[3] >> 6;
    const std::uint8_t nHeaderLength = fixed[4];  // PES_header_data_length
    if (nHeaderLength > 0) {
        const Bytes header = m_input.Read(nHeaderLength);
        if (header.empty()) return;
        if (const auto timestamps = ParsePtsDts(nPtsDtsFlags, header))
            BeginFrame(stream, *timestamps, llStart);
    }
    const int nPayload = nPacketLength - nHeaderLength - 3;
    if (nPayload <= 0) return;  // unbounded (length 0), empty, or shorter than its own header
    const Bytes payload = m_input.Read(static_cast<std::uint32_t>(nPayload));
    if (!payload.empty()) Append(stream, m_input.TrimPadding(payload), llStart);
}

/// @param llStart  offset in the source of the packet.
void CMpeg2PsParser::Append(ElementaryStream& stream, Bytes payload, std::int64_t llStart) {
    if (!HasTimes(stream) && stream.output.IsEmpty()) stream.llStartPos = llStart;
    if (m_settings.bDrain && !m_bKeepsUntimed && !HasTimes(stream))
        return stream.output.CountLost(payload.size());
    if (!payload.empty()) stream.output.Append(payload, stream.MakeInfo());
}

/// Queues the frame assembled so far, when it is one, and begins the next.
/// @param llStart  offset in the source of the new frame's first packet.
void CMpeg2PsParser::BeginFrame(ElementaryStream& stream, const PesTimestamps& timestamps,
                                std::int64_t llStart) {
    stream.bDiscontinuity = !EndFrame(stream);
    stream.llStartPos = llStart;
    stream.llPrevPts = timestamps.llPts;
    stream.llPrevDts = timestamps.llDts;
}

/// The frame assembled so far was begun by timestamps.
bool CMpeg2PsParser::HasTimes(const ElementaryStream& stream) const {
    return (&stream == &m_video ? stream.llPrevPts : stream.llPrevDts) != NoTime();
}

/// Queues the frame assembled so far, or drops it. @return whether it was one that has times.
bool CMpeg2PsParser::EndFrame(ElementaryStream& stream) {
    const bool bHasTimes = HasTimes(stream) && !stream.output.IsEmpty();
    if (bHasTimes || (m_bKeepsUntimed && !stream.output.IsEmpty())) {
        stream.output.Queue(stream.MakeInfo());
    } else {
        stream.output.Lose();
    }
    return bHasTimes;
}

FRAME_INFO CMpeg2PsParser::ElementaryStream::MakeInfo() const {
    FRAME_INFO info{};
    info.llPts = llPrevPts;
    info.llDts = llPrevDts;
    info.llFilePos = llStartPos;
    info.bDiscontinuity = bDiscontinuity;
    return info;
}

}  // namespace kest

#include "demux/Mpeg2PsParser.h"

#include <algorithm>
#include <utility>

#include "demux/StartCodeSearch.h"
#include "demux/SystemLayer.h"
#include "platform/DebugText.h"

namespace kest {
namespace {

constexpr std::array<std::uint8_t, 2> kNoTail = {0xFF, 0xFF};

}  // namespace

void CMpeg2PsParser::Begin() {
    m_maps.InitStreamMaps();
    Reset();
}

void CMpeg2PsParser::Reset() {
    for (ElementaryStream* pStream : {&m_video, &m_audio}) {
        pStream->output.Drop();
        pStream->llPrevPts = pStream->llPrevDts = kNoTimestamp;
    }
    m_abTail = kNoTail;
    m_bEndCode = false;
}

/// Goes to the next start code and parses what it begins.
EParsed CMpeg2PsParser::ParseUnit() {
    const ESync sync = Resync();
    if (sync == ESync::NoData) return EParsed::NoData;
    if (sync == ESync::Searching) return EParsed::Searching;
    if (sync == ESync::PatPacket) return EParsed::Unit;
    const Bytes streamId = m_input.Read(1);
    if (streamId.empty()) return EParsed::Unit;
    switch (m_maps.ClassifyStreamId(streamId[0])) {
        case kProgramStreamMapId: ParsePsm(); break;
        case kPackHeaderId: ParsePackHeader(); break;
        case kSystemHeaderId:
        case kPaddingStreamId: m_input.SkipSection(); break;
        case kProgramEndId: m_bEndCode = true; break;
        case CStreamMaps::kAudio: ParsePes(m_audio); break;
        case CStreamMaps::kVideo: ParsePes(m_video); break;
        default: break;  // ignored: the next resynchronisation skips it
    }
    return EParsed::Unit;
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

/// Reads the pack header behind its start code (ISO/IEC 13818-1 2.5.3.3); the SCR is not used.
void CMpeg2PsParser::ParsePackHeader() {
    constexpr std::uint32_t kPackHeaderSize = 10;
    const Bytes header = m_input.Read(kPackHeaderSize);
    if (header.empty()) return;
    if (const unsigned nStuffing = header[9] & 0x07; nStuffing > 0)
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
    const Bytes fixed = m_input.Read(5);
    if (fixed.empty()) return;
    const int nPacketLength = Read16(fixed, 0);  // PES_packet_length
    const unsigned nPtsDtsFlags = fixed[3] >> 6;
    const std::uint8_t nHeaderLength = fixed[4];  // PES_header_data_length
    if (nHeaderLength > 0) {
        const Bytes header = m_input.Read(nHeaderLength);
        if (header.empty()) return;
        if (const auto timestamps = ParsePtsDts(nPtsDtsFlags, header)) {
            BeginFrame(stream, *timestamps, nHeaderLength + kPesFixedHeader);
        }
    }
    const int nPayload = nPacketLength - nHeaderLength - 3;
    if (nPayload <= 0) return;  // unbounded (length 0), empty, or shorter than its own header
    const Bytes payload = m_input.Read(static_cast<std::uint32_t>(nPayload));
    if (!payload.empty()) stream.output.Append(payload);
}

/// Queues the frame assembled so far, when it is one, and begins the next.
/// @param nHeaderSize  bytes of the new frame's first packet up to its payload, from its start code on.
void CMpeg2PsParser::BeginFrame(ElementaryStream& stream, const PesTimestamps& timestamps,
                                std::uint32_t nHeaderSize) {
    const std::int64_t llPrevious = &stream == &m_video ? stream.llPrevPts : stream.llPrevDts;
    FRAME_INFO info{};
    info.llPts = stream.llPrevPts;
    info.llDts = stream.llPrevDts;
    info.llFilePos = std::exchange(stream.llStartPos, m_input.GetPosition(nHeaderSize));
    info.bDiscontinuity = std::exchange(stream.bDiscontinuity, false);
    if (llPrevious != kNoTimestamp && !stream.output.IsEmpty()) {
        stream.output.Queue(info);
    } else {
        stream.output.Drop();
        stream.bDiscontinuity = true;
    }
    stream.llPrevPts = timestamps.llPts;
    stream.llPrevDts = timestamps.llDts;
}

}  // namespace kest

#include "demux/TsParseState.h"

#include <new>

#include "demux/StartCodeSearch.h"
#include "demux/SystemLayer.h"
#include "platform/DebugText.h"

namespace kest {
namespace {

/// Index of the start code of a PES packet in a packet's payload. @param nIds  stream_ids from nFirstId on.
std::optional<std::size_t> FindPesStart(Bytes payload, std::uint8_t nFirstId, std::uint8_t nIds) {
    std::optional<std::size_t> nStart;
    ForEachStartCode(payload, [&](std::size_t nIndex, std::uint8_t nId) {
        if (static_cast<std::uint8_t>(nId - nFirstId) < nIds) nStart = nIndex;
        return !nStart;
    });
    return nStart;
}

/// Adds a packet's payload to the stream's PES packet. Where the next one begins, that one is complete.
template <class Framer>
void AssemblePes(Framer& framer, Bytes packet, std::uint8_t nFirstId, std::uint8_t nIds) {
    CPesBuffer& buffer = framer.GetBuffer();
    const Bytes payload = GetTsPayload(packet);
    const auto nStart = HasTsUnitStart(packet) ? FindPesStart(payload, nFirstId, nIds) : std::nullopt;
    if (!nStart) {
        buffer.AppendPes(payload);
        return;
    }
    if (buffer.HasPes()) {
        buffer.AppendPes(payload.first(*nStart));
        framer.OnPes();
    }
    buffer.AppendPes(payload.subspan(*nStart));
}

}  // namespace

int CTsParseState::Prepare(ETsTiming timing) {
    m_tables = CTsTables();
    m_clock.Begin(timing);
    m_video.Begin(timing);
    m_audio.Begin(timing);
    try {
        m_video.GetBuffer().Allocate();
        m_audio.GetBuffer().Allocate();
    } catch (const std::bad_alloc&) {
        Reset();
        Trace("Not enough memory\n");
        return -1;
    }
    return 0;
}

void CTsParseState::Begin() {
    m_reader.Begin();
    m_bTables = false;
    Trace("KestMpeg4TsDemux pin Start!!!\n");
}

void CTsParseState::Reset() {
    m_video.GetBuffer().Free();
    m_audio.GetBuffer().Free();
}

// ---------------- the tables

bool CTsParseState::FindTables() {
    return TryThreeTimes([this] { return m_reader.FindSync(); }) &&
           TryThreeTimes([this] { return ParseTable(0, &CTsTables::ParsePat, "Can not find PAT\n"); }) &&
           TryThreeTimes([this] {
               return ParseTable(m_tables.GetPmtPid(), &CTsTables::ParsePmt, "Can not find MAP\n");
           });
}

/// Reads the table in the next packet that has its PID, and goes behind that packet.
bool CTsParseState::ParseTable(std::uint16_t nPid, bool (CTsTables::*pParse)(Bytes),
                               const char* pszNotFound) {
    for (;;) {
        if (!m_reader.HasPacket()) {
            Trace("%s", pszNotFound);
            return false;
        }
        if (GetTsPid(m_reader.GetPacket()) == nPid) break;
        if (!m_reader.SkipPacket()) return false;
    }
    const bool bParsed = (m_tables.*pParse)(m_reader.GetPacket());
    return m_reader.SkipPacket() && bParsed;
}

// ---------------- the packets

EParsed CTsParseState::ParseUnit() {
    constexpr int kPackets = 16;  // about as many as one window holds
    if (!m_bTables) {
        m_bTables = IsPrepared() && FindTables();
        if (m_bTables) {
            m_video.SetMpeg4(m_tables.IsVideoMpeg4());
            return EParsed::Unit;
        }
        Trace("KestMpeg4TsDemux pin Exited!!!\n");
        return EParsed::Failed;
    }
    for (int i = 0; i < kPackets; ++i) {
        if (!m_reader.HasPacket()) return EParsed::Ended;
        OnPacket(m_reader.GetPacket());
        if (!m_reader.SkipPacket()) return EParsed::Ended;
    }
    return EParsed::Unit;
}

void CTsParseState::OnPacket(Bytes packet) {
    constexpr std::uint8_t kVideoIds = 16, kAudioIds = 32;  // stream_ids, table 2-18
    const std::uint16_t nPid = GetTsPid(packet);
    if (nPid == 0) return;  // the PAT; a stream whose PID is 0 is not there
    if (nPid == m_tables.GetVideoPid()) {
        AssemblePes(m_video, packet, kFirstVideoStreamId, kVideoIds);
    } else if (nPid == m_tables.GetAudioPid()) {
        AssemblePes(m_audio, packet, kFirstAudioStreamId, kAudioIds);
    }
}

void CTsParseState::End() {
    if (!m_bTables) return;  // the run was over before it began
    m_video.Flush();
    m_audio.Flush();
    Reset();
    Trace("KestMpeg4TsDemux Stopped!!!\n");
}

}  // namespace kest

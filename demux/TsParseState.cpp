#include "demux/TsParseState.h"

#include <algorithm>
#include <array>
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

/// The payload begins with a PES packet of any stream_id, as far as it goes.
bool BeginsPes(Bytes payload) {
    constexpr std::array<std::uint8_t, 3> kPrefix = {0, 0, 1};
    return std::equal(kPrefix.begin(), kPrefix.begin() + std::min(kPrefix.size(), payload.size()),
                      payload.begin());
}

}  // namespace

int CTsParseState::Prepare(ETsTiming timing) {
    m_clock.Begin(timing);
    m_video.Begin(timing);
    m_audio.Begin(timing);
    try {
        m_video.GetBuffer().Allocate(m_settings.nVideoBlockSize);
        m_audio.GetBuffer().Allocate(0);
    } catch (const std::bad_alloc&) {
        Reset();
        Trace("Not enough memory\n");
        return -1;
    }
    return 0;
}

void CTsParseState::Begin() {
    m_tables = CTsTables(m_settings);
    m_reader.Begin(m_settings.bDrain);
    m_bTables = false;
    m_kept.clear();
    Trace("KestMpeg4TsDemux pin Start!!!\n");
}

void CTsParseState::Reset() {
    m_kept = {};
    m_video.GetBuffer().Free();
    m_audio.GetBuffer().Free();
}

// ---------------- the tables

bool CTsParseState::FindTables() {
    if (m_settings.bDrain) return AwaitTables();
    return m_reader.Synchronise() &&
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

/// Looks for a PAT and behind it a PMT without fault, to the end of the input, and keeps the packets in front of
/// them. @return whether there are any, or streams are known without.
bool CTsParseState::AwaitTables() {
    bool bFound = false;
    if (!m_reader.Synchronise()) return false;
    while (!bFound && m_reader.HasPacket()) {
        const Bytes packet = m_reader.GetPacket();
        const bool bTable = GetTsPid(packet) == 0 || GetTsPid(packet) == m_tables.GetPmtPid();
        if (bTable) bFound = ParseAnyTable(packet);
        if (!bTable && !Keep(packet)) break;
        if (!m_reader.SkipPacket()) break;
    }
    if (!bFound) Trace("Can not find MAP\n");
    return bFound || m_tables.HasChosenPid();
}

/// Reads a table; one with a fault changes nothing. @return whether both have been read.
bool CTsParseState::ParseAnyTable(Bytes packet) {
    CTsTables tables = m_tables;
    const bool bPat = GetTsPid(packet) == 0;
    const bool bParsed = bPat ? tables.ParsePat(packet) : tables.ParsePmt(packet);
    if (bParsed) m_tables = tables;
    return bParsed && !bPat;
}

/// Keeps a packet that came before the tables. When there are too many, streams that were chosen are parsed without
/// tables, else those before are dropped. @return whether the search goes on.
bool CTsParseState::Keep(Bytes packet) {
    constexpr std::size_t kMostKept = 4 * 1024 * 1024;  // bytes
    if (GetTsPid(packet) == kNullPid) return true;
    if (m_kept.size() + kTsPacketSize > kMostKept) {
        if (m_tables.HasChosenPid()) return false;
        Trace("No tables: %u bytes are dropped\n", static_cast<unsigned>(m_kept.size()));
        ++m_counters.nResyncs;
        m_counters.llBytesSkipped += m_kept.size();
        m_kept.clear();
    }
    m_kept.insert(m_kept.end(), packet.begin(), packet.end());
    return true;
}

void CTsParseState::ParseKept() {
    for (Bytes rest = m_kept; !rest.empty(); rest = rest.subspan(kTsPacketSize)) {
        OnPacket(rest.first(kTsPacketSize));
    }
    m_kept = {};
}

// ---------------- the packets

EParsed CTsParseState::ParseUnit() {
    constexpr int kPackets = 16;  // about as many as one window holds
    if (!m_bTables) {
        m_bTables = IsPrepared() && FindTables();
        if (m_bTables) {
            m_video.SetMpeg4(m_tables.IsVideoMpeg4());
            m_video.SetDrain(m_settings.bDrain);
            m_audio.SetDrain(m_settings.bDrain, m_settings.bDrain && m_tables.GetVideoPid() == 0);
            ParseKept();
            return EParsed::Unit;
        }
        Trace("KestMpeg4TsDemux pin Exited!!!\n");
        return EParsed::Failed;
    }
    for (int i = 0; i < kPackets; ++i) {
        if (!m_reader.HasPacket()) {
            m_reader.SkipRest();
            return EParsed::Ended;
        }
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
        AssemblePes(m_video, packet, {kFirstVideoStreamId, kVideoIds, m_counters.nVideoPackets});
    } else if (nPid == m_tables.GetAudioPid()) {
        AssemblePes(m_audio, packet, {kFirstAudioStreamId, kAudioIds, m_counters.nAudioPackets});
    } else if (HasTsUnitStart(packet) && BeginsPes(GetTsPayload(packet))) {
        ++m_counters.nOtherPackets;
    }
}

/// Adds a packet's payload to the stream's PES packet. Where the next one begins, that one is complete.
template <class Framer>
void CTsParseState::AssemblePes(Framer& framer, Bytes packet, const Kind& kind) {
    CPesBuffer& buffer = framer.GetBuffer();
    const bool bDrain = m_settings.bDrain;
    const auto Append = [&](Bytes bytes) {
        if (buffer.AppendPes(bytes)) return;
        if (!bDrain) return framer.CountLost(bytes.size());
        framer.OnPes();
        buffer.ContinuePes();
        buffer.AppendPes(bytes);
    };
    const Bytes payload = bDrain ? GetTsTruePayload(packet) : GetTsPayload(packet);
    if (payload.empty()) return;
    std::optional<std::size_t> nStart;
    if (HasTsUnitStart(packet)) {
        nStart = bDrain && BeginsPes(payload) ? 0 : FindPesStart(payload, kind.nFirstId, kind.nIds);
    }
    if (nStart) ++kind.nPackets;
    if (nStart && buffer.HasPes()) {
        Append(payload.first(*nStart));
        framer.OnPes();
    }
    const bool bBeganBefore = bDrain && !nStart && !buffer.HasPes();  // its PES packet, before the stream
    if (bBeganBefore) return framer.CountLost(payload.size());
    Append(payload.subspan(nStart.value_or(0)));
}

void CTsParseState::End() {
    if (!m_bTables) return;  // the run was over before it began
    m_video.Flush();
    m_audio.Flush();
    Reset();
    Trace("KestMpeg4TsDemux Stopped!!!\n");
}

}  // namespace kest

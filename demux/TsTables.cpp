#include "demux/TsTables.h"

#include "demux/SystemLayer.h"
#include "demux/TsPacket.h"
#include "platform/DebugText.h"

namespace kest {
namespace {

// table_id, ISO/IEC 13818-1 table 2-26.
constexpr std::uint8_t kPatTableId = 0x00;
constexpr std::uint8_t kPmtTableId = 0x02;

constexpr std::size_t kCrcSize = 4;

/// Shows a fault. @return false.
bool Fail(const char* pszWhat, const char* pszFault) {
    Trace("%s %s error\n", pszWhat, pszFault);
    return false;
}

/// A PID that a stream or a table may have.
bool IsStreamPid(std::uint16_t nPid) { return nPid >= 16 && nPid <= 8190; }

/// The PID that a setting names; 0: none.
std::uint16_t GetChosenPid(std::int32_t nChoice) {
    return nChoice > 0 ? static_cast<std::uint16_t>(nChoice) : std::uint16_t{0};
}

/// A listed stream of a kind is taken. @param nPresent  PID of the one that is; 0: none.
bool IsTaken(std::int32_t nChoice, std::uint16_t nPresent, std::uint16_t nPid) {
    if (nChoice == kFirstKnownStream) return nPresent == 0;
    return nChoice == kAllStreams || nPresent == nPid;
}

/// The section that begins in the packet, with its CRC; empty after a fault.
/// @param nMinSize  bytes that are read whatever the section says, at least 6.
Bytes GetSection(Bytes packet, std::uint8_t nTableId, std::size_t nMinSize, const char* pszTable) {
    auto FailWith = [&](const char* pszFault) { return Fail(pszTable, pszFault), Bytes{}; };
    if (GetTsAdaptation(packet) == 0) return FailWith("adaptation field control");
    const Bytes payload = BytesFrom(packet, GetTsHeaderSize(packet));
    if (payload.empty()) return FailWith("syntax");
    const Bytes rest = BytesFrom(payload, std::size_t{payload[0]} + 1);  // behind the pointer_field
    if (rest.empty()) return FailWith("syntax");
    if (rest[0] != nTableId) return FailWith("table ID");
    if (rest.size() < nMinSize) return FailWith("syntax");
    if ((rest[1] & 0xB0) != 0xB0) return FailWith("syntax");  // section_syntax_indicator, reserved bits
    const std::size_t nSize = 3 + (Read16(rest, 1) & 0x0FFFu);
    if (nSize >= rest.size()) return FailWith("syntax");
    if ((rest[5] & 0xC0) != 0xC0) return FailWith("syntax");  // reserved bits
    return rest.first(std::max(nSize, nMinSize));
}

}  // namespace

CTsTables::CTsTables(const ParseSettings& settings)
    : m_nVideoChoice(settings.nVideoStream),
      m_nAudioChoice(settings.nAudioStream),
      m_nVideoPid(GetChosenPid(m_nVideoChoice)),
      m_nAudioPid(GetChosenPid(m_nAudioChoice)) {}

bool CTsTables::ParsePat(Bytes packet) {
    constexpr std::size_t kReadSize = 6, kFixedSize = 8, kEntrySize = 4;
    const Bytes section = GetSection(packet, kPatTableId, kReadSize, "PAT");
    if (section.empty()) return false;
    for (Bytes rest = BytesFrom(section, kFixedSize); rest.size() > kCrcSize;
         rest = rest.subspan(kEntrySize)) {
        if ((rest[2] & 0xE0) != 0xE0) return Fail("PAT", "syntax");
        if (Read16(rest, 0) == 0) continue;  // the network's PID
        m_nPmtPid = Read16(rest, 2) & 0x1FFF;
        if (!IsStreamPid(m_nPmtPid)) return Fail("program map", "PID");
    }
    return true;
}

bool CTsTables::ParsePmt(Bytes packet) {
    constexpr std::size_t kFixedSize = 12;
    const Bytes section = GetSection(packet, kPmtTableId, kFixedSize, "MAP");
    if (section.empty()) return false;
    if ((section[8] & 0xE0) != 0xE0 || (section[10] & 0xF0) != 0xF0) return Fail("MAP", "syntax");
    m_nPcrPid = Read16(section, 8) & 0x1FFF;
    if (!IsStreamPid(m_nPcrPid)) return Fail("pcr", "PID");

    Bytes rest = BytesFrom(section, kFixedSize + (Read16(section, 10) & 0x0FFFu));
    CMapEntries entries(rest, CMapEntries::ELayout::TransportStream);
    while (const auto entry = entries.Next()) {  // the CRC is too short for one more
        if ((rest[1] & 0xE0) != 0xE0 || (rest[3] & 0xF0) != 0xF0) return Fail("MAP", "syntax");
        if (!ParseEntry(*entry)) return false;
        rest = BytesFrom(rest, entry->nSize);
    }
    return true;
}

bool CTsTables::ParseEntry(const MapEntry& entry) {
    switch (entry.nStreamType) {
        case kStreamTypeMpeg1Video:
            if (m_nVideoChoice == kAllStreams) return true;
            [[fallthrough]];
        case kStreamTypeMpeg2Video:
        case kStreamTypeMpeg4Video:
            if (!IsTaken(m_nVideoChoice, m_nVideoPid, entry.nId)) return true;
            m_bVideoMpeg4 = entry.nStreamType == kStreamTypeMpeg4Video;
            m_nVideoPid = entry.nId;
            return IsStreamPid(entry.nId) || Fail("video stream", "PID");
        case kStreamTypeMpeg1Audio:
        case kStreamTypeMpeg2Audio:
            if (!IsTaken(m_nAudioChoice, m_nAudioPid, entry.nId)) return true;
            m_nAudioPid = entry.nId;
            return IsStreamPid(entry.nId) || Fail("audio stream", "PID");
        default: return true;
    }
}

}  // namespace kest

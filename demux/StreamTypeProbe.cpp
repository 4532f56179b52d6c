#include "demux/StreamTypeProbe.h"

#include <algorithm>
#include <array>
#include <vector>

#include "demux/MapEntries.h"
#include "demux/StartCodeSearch.h"
#include "demux/SystemLayer.h"

namespace kest {
namespace {

constexpr std::int64_t kProbeSize = 0x40000;  // bytes of the source that are classified
constexpr std::size_t kHeaderMargin = 24;     // a header this close to the end counts as absent
constexpr int kPackHeaderSize = 13;           // of a pack header up to program_mux_rate
constexpr std::size_t kTsPacketSize = 188;
constexpr std::uint8_t kTsSyncByte = 0x47;
constexpr unsigned kPatPid = 0;
constexpr unsigned kDefaultPmtPid = 2;

/// Where a transport packet's section begins: behind header, adaptation field and pointer_field
/// (ISO/IEC 13818-1 2.4.3.2, 2.4.4.1).
struct SectionStart {
    unsigned nAdaptationControl;  // adaptation_field_control
    int nAdaptationSize;          // bytes of the adaptation field with its length byte
    std::size_t nOffset;          // of the section in the packet
};
std::optional<SectionStart> FindSection(Bytes packet) {
    if (packet.size() < 5) return std::nullopt;
    SectionStart section{};
    section.nAdaptationControl = packet[3] >> 4 & 3;
    section.nAdaptationSize = section.nAdaptationControl >= 2 ? packet[4] + 1 : 0;
    const std::size_t nHeader = 4 + static_cast<std::size_t>(section.nAdaptationSize);
    if (nHeader >= packet.size()) return std::nullopt;
    section.nOffset = nHeader + packet[nHeader] + 1;
    return section;
}

/// A sync byte with the given PID stands at nIndex; the caller has checked that three bytes are there.
bool IsPacketOf(Bytes data, std::size_t nIndex, unsigned nPid) {
    return data[nIndex] == kTsSyncByte && (Read16(data, nIndex + 1) & 0x1FFFu) == nPid;
}

/// Index of the first of three packets in a row; none when there is no such place early enough.
std::optional<std::size_t> FindPackets(Bytes data) {
    for (std::size_t i = 0; i + 3 * kTsPacketSize < data.size(); ++i) {
        if (data[i] == kTsSyncByte && data[i + kTsPacketSize] == kTsSyncByte &&
            data[i + 2 * kTsPacketSize] == kTsSyncByte) {
            return i + 4 * kTsPacketSize < data.size() ? std::optional(i) : std::nullopt;
        }
    }
    return std::nullopt;
}

/// The PMT's PID from the first entry of a PAT packet; the default where it names none. No value when the
/// section cannot lie in its packet.
std::optional<unsigned> ReadPmtPid(Bytes packet) {
    const auto section = FindSection(packet);
    if (!section || !(section->nAdaptationControl & 1)) return kDefaultPmtPid;
    const Bytes pat = BytesFrom(packet, section->nOffset);
    if (pat.size() < 3) return kDefaultPmtPid;
    const int nSectionLength = Read16(pat, 1) & 0x0FFF;
    if (nSectionLength > 182 - section->nAdaptationSize) return std::nullopt;
    if (nSectionLength <= 9 || pat.size() < 12) return kDefaultPmtPid;
    const bool bNetworkPid = Read16(pat, 8) == 0;  // program_number 0
    return bNetworkPid ? kDefaultPmtPid : Read16(pat, 10) & 0x1FFFu;
}

/// A video_object_start_code directly followed by a video_object_layer_start_code (ISO/IEC 14496-2 6.2.2).
bool HasMpeg4VideoHeader(Bytes data) {
    static constexpr std::array<std::uint8_t, 8> kHeader = {0, 0, 1, 0x00, 0, 0, 1, 0x20};
    constexpr std::size_t kLeast = 11;  // bytes that must be there from the header on
    return data.size() >= kLeast && FindPattern(data.first(data.size() - kLeast + kHeader.size()), kHeader);
}

}  // namespace

void CStreamTypeProbe::SetReader(IAsyncReader* pReader) {
    m_pReader = pReader;
    m_scanner.SetReader(pReader);
}

int CStreamTypeProbe::Probe() {
    LONGLONG llTotal = 0, llAvailable = 0;
    if (!m_pReader || FAILED(m_pReader->Length(&llTotal, &llAvailable))) llTotal = llAvailable = 0;
    m_llTotalLength = std::max<LONGLONG>(llTotal, 0);

    std::vector<std::uint8_t> block(
        static_cast<std::size_t>(std::clamp<LONGLONG>(llAvailable, 0, kProbeSize)));
    // Whatever the read brings is classified; a failure leaves zeros, which are nothing.
    if (!block.empty()) m_pReader->SyncRead(0, static_cast<LONG>(block.size()), block.data());
    const int nClass = ClassifyHeader(block);
    return nClass == kClassProgramMpeg4 || nClass == kClassProgramMpeg12 ? ReadBitRate(nClass) : nClass;
}

/// Takes the bit rate of a program stream from its first pack header. @return nClass, or kClassNotRecognised.
int CStreamTypeProbe::ReadBitRate(int nClass) {
    m_scanner.SeekTo(0);
    if (m_scanner.FindStartCode(kPackStartCode, kProbeSize) < 0) {
        return Reject("a pack header in a whole block of 32768 bytes");
    }
    const Bytes pack = m_scanner.GetBytes(kPackHeaderSize);
    if (pack.empty()) return Reject("32768 bytes from the first pack header on");
    m_nBitRate = (Read24(pack, 10) >> 2 & 0x1FFFFF) * kMuxRateUnit;  // program_mux_rate
    return nClass;
}

int CStreamTypeProbe::ClassifyHeader(Bytes data) {
    m_pszMissing = "";
    m_nVideoStreamType = 0;
    std::optional<int> nClass = ClassifyProgramStream(data);
    if (!nClass) nClass = ClassifyTransportStream(data);
    if (!nClass && HasMpeg4VideoHeader(data)) nClass = kClassMpeg4VideoEs;
    if (!nClass) nClass = Reject("a pack header, transport packets or MPEG-4 video headers");
    if (*nClass != kClassNotRecognised) m_pszMissing = "";
    return *nClass;
}

/// Keeps the first thing found missing: it names the stream family that the source came closest to.
int CStreamTypeProbe::Reject(const char* pszMissing) {
    if (!*m_pszMissing) m_pszMissing = pszMissing;
    return kClassNotRecognised;
}

std::optional<int> CStreamTypeProbe::ClassifyProgramStream(Bytes data) {
    const auto nPack = FindStartCode(data, kPackStartCode);
    if (!nPack || data.size() - *nPack <= kHeaderMargin) return std::nullopt;
    const Bytes pack = data.subspan(*nPack);
    if ((pack[4] & 0xF0) == 0x20) return kClassMpeg1System;
    if ((pack[4] & 0xC0) != 0x40) return Reject("a pack header of MPEG-1 or MPEG-2");

    const char* pszMissing = "a program stream map";
    Bytes rest = pack.subspan(2);
    while (rest.size() > kHeaderMargin) {
        const auto nMap =
            FindStartCode(rest.first(rest.size() - kHeaderMargin), MakeStartCode(kProgramStreamMapId));
        if (!nMap) break;
        if (auto nClass = ClassifyMap(rest.subspan(*nMap + 4))) return nClass;
        pszMissing = "a video stream in the program stream map";
        rest = rest.subspan(*nMap + 1);
    }
    Reject(pszMissing);
    return std::nullopt;
}

/// Decides by the first video entry of a program_stream_map (ISO/IEC 13818-1 2.5.4.1), given the bytes behind
/// its start code. A map whose fields point outside its own length decides nothing; whether the CRC has room
/// in it does not matter.
std::optional<int> CStreamTypeProbe::ClassifyMap(Bytes map) {
    const std::size_t nMapEnd = 2u + Read16(map, 0);
    const std::size_t nEntriesBegin = 8u + Read16(map, 4);  // behind the descriptors
    if (nEntriesBegin > nMapEnd || nEntriesBegin > map.size()) return std::nullopt;
    const std::size_t nEntriesEnd = nEntriesBegin + Read16(map, nEntriesBegin - 2);
    if (nEntriesEnd > nMapEnd) return std::nullopt;
    CMapEntries entries(map.first(std::min(map.size(), nEntriesEnd)).subspan(nEntriesBegin),
                        CMapEntries::ELayout::ProgramStream);
    std::size_t nRest = nMapEnd - nEntriesBegin;  // of the map, from the entry on
    while (const auto entry = entries.Next()) {
        if (entry->nSize > nRest) return std::nullopt;
        nRest -= entry->nSize;
        if (const auto nClass = ClassifyMapEntry(*entry)) return nClass;
    }
    return std::nullopt;
}

std::optional<int> CStreamTypeProbe::ClassifyMapEntry(const MapEntry& entry) {
    switch (entry.nStreamType) {
        case kStreamTypeMpeg4Video: m_nVideoStreamType = entry.nStreamType; return kClassProgramMpeg4;
        case kStreamTypeMpeg1Video:
        case kStreamTypeMpeg2Video: m_nVideoStreamType = entry.nStreamType; return kClassProgramMpeg12;
        default: return std::nullopt;
    }
}

std::optional<int> CStreamTypeProbe::ClassifyTransportStream(Bytes data) {
    const auto nFirst = FindPackets(data);
    if (!nFirst) return std::nullopt;
    const std::size_t nEnd = data.size() - kHeaderMargin;

    unsigned nPmtPid = kDefaultPmtPid;
    for (std::size_t i = *nFirst; i < nEnd; ++i) {
        if (!IsPacketOf(data, i, kPatPid)) continue;
        const auto nPid = ReadPmtPid(data.subspan(i));
        if (!nPid) return Reject("a program association section that fits its packet");
        nPmtPid = *nPid;
        break;
    }
    for (std::size_t i = 0; i < nEnd; ++i) {
        if (!IsPacketOf(data, i, kDefaultPmtPid) && !IsPacketOf(data, i, nPmtPid)) continue;
        if (auto nClass = ClassifyProgramMap(data.subspan(i))) return nClass;
    }
    Reject("a video stream in a program map section");
    return std::nullopt;
}

/// Decides by the first video or MPEG-2 audio entry of the TS_program_map_section (ISO/IEC 13818-1 2.4.4.8)
/// in a packet; its table_id is not checked.
std::optional<int> CStreamTypeProbe::ClassifyProgramMap(Bytes packet) {
    const auto start = FindSection(packet);
    if (!start) return std::nullopt;
    if (start->nOffset + 6 >= kTsPacketSize - 1) return Reject("a program map section that fits its packet");
    const Bytes section = BytesFrom(packet, start->nOffset);
    if (section.size() < 12) return std::nullopt;
    const int nInfoLength = Read16(section, 10) & 0x0FFF;
    const int nEntriesLength = (Read16(section, 1) & 0x0FFF) - nInfoLength - 13;
    const Bytes rest = BytesFrom(section, 12u + static_cast<std::size_t>(nInfoLength));
    CMapEntries entries(
        rest.first(std::min(rest.size(), static_cast<std::size_t>(std::max(nEntriesLength, 0)))),
        CMapEntries::ELayout::TransportStream);
    while (const auto entry = entries.Next()) {
        switch (entry->nStreamType) {
            case kStreamTypeMpeg4Video:
            case kStreamTypeMpeg2Audio: return kClassTransportMpeg4;
            case kStreamTypeMpeg1Video:
            case kStreamTypeMpeg2Video: return kClassTransportMpeg12;
            default: break;
        }
    }
    return std::nullopt;
}

}  // namespace kest

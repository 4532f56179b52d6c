#include "demux/StreamTypeProbe.h"

#include <algorithm>
#include <array>
#include <vector>

#include "demux/SystemLayer.h"

namespace kest {
namespace {

constexpr std::int64_t kProbeSize = 0x40000;  // bytes of the source that are looked at
constexpr std::size_t kHeaderMargin = 24;     // a header this close to the end is not looked at
constexpr int kPackHeaderSize = 13;           // of a pack header up to program_mux_rate
constexpr std::uint32_t kMuxRateUnit = 400;   // program_mux_rate counts 50 bytes per second
constexpr std::size_t kTsPacketSize = 188;
constexpr std::uint8_t kTsSyncByte = 0x47;
constexpr unsigned kPatPid = 0;
constexpr unsigned kDefaultPmtPid = 2;

using Bytes = std::span<const std::uint8_t>;

/// The bytes from nIndex on; empty when it lies behind the end.
Bytes From(Bytes bytes, std::size_t nIndex) { return bytes.subspan(std::min(nIndex, bytes.size())); }

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
    const Bytes pat = From(packet, section->nOffset);
    if (pat.size() < 3) return kDefaultPmtPid;
    const int nSectionLength = Read16(pat, 1) & 0x0FFF;
    if (nSectionLength > 182 - section->nAdaptationSize) return std::nullopt;
    if (nSectionLength <= 9 || pat.size() < 12) return kDefaultPmtPid;
    const bool bNetworkPid = Read16(pat, 8) == 0;  // program_number 0
    return bNetworkPid ? kDefaultPmtPid : Read16(pat, 10) & 0x1FFFu;
}

/// A video_object_start_code directly followed by a video_object_layer_start_code (ISO/IEC 14496-2 6.2.2).
bool HasMpeg4VideoHeader(Bytes data) {
    constexpr std::array<std::uint8_t, 8> kHeader = {0, 0, 1, 0x00, 0, 0, 1, 0x20};
    if (data.size() < 11) return false;
    const Bytes searched = data.first(data.size() - 11 + kHeader.size());
    return std::search(searched.begin(), searched.end(), kHeader.begin(), kHeader.end()) != searched.end();
}

}  // namespace

void CStreamTypeProbe::SetReader(IAsyncReader* pReader) {
    m_pReader = pReader;
    m_scanner.SetReader(pReader);
}

int CStreamTypeProbe::Probe() {
    LONGLONG llTotal = 0, llAvailable = 0;
    if (!m_pReader || FAILED(m_pReader->Length(&llTotal, &llAvailable))) llTotal = llAvailable = 0;
    m_llTotalLength = llTotal;
    m_scanner.SeekTo(0);

    std::vector<std::uint8_t> block(
        static_cast<std::size_t>(std::clamp<LONGLONG>(llAvailable, 0, kProbeSize)));
    // Whatever the read brings is classified; a failure leaves zeros, which are nothing.
    if (!block.empty()) m_pReader->SyncRead(0, static_cast<LONG>(block.size()), block.data());
    const int nClass = ClassifyHeader(block);
    if (nClass != kClassProgramMpeg4 && nClass != kClassProgramMpeg12) return nClass;

    if (m_scanner.FindStartCode(kPackStartCode) < 0)
        return Refuse("a pack header in a whole piece of 32768 bytes");
    const Bytes pack = m_scanner.GetBytes(kPackHeaderSize);
    if (pack.empty()) return Refuse("32768 bytes from the first pack header on");
    const std::uint32_t nMuxRate = (pack[10] & 0x7Fu) << 14 | pack[11] << 6 | pack[12] >> 2;
    m_nBitRate = nMuxRate * kMuxRateUnit;
    return nClass;
}

int CStreamTypeProbe::ClassifyHeader(Bytes data) {
    m_pszMissing = "";
    m_nVideoStreamType = 0;
    std::optional<int> nClass = ClassifyProgramStream(data);
    if (!nClass) nClass = ClassifyTransportStream(data);
    if (!nClass && HasMpeg4VideoHeader(data)) nClass = kClassMpeg4VideoEs;
    if (!nClass) nClass = Refuse("a pack header, transport packets or MPEG-4 video headers");
    if (*nClass != kClassNotRecognised) m_pszMissing = "";
    return *nClass;
}

/// Keeps the first thing found missing: it names the stream family that the source came closest to.
int CStreamTypeProbe::Refuse(const char* pszMissing) {
    if (!*m_pszMissing) m_pszMissing = pszMissing;
    return kClassNotRecognised;
}

std::optional<int> CStreamTypeProbe::ClassifyProgramStream(Bytes data) {
    constexpr std::array<std::uint8_t, 4> kPack = {0, 0, 1, kPackHeaderId};
    constexpr std::array<std::uint8_t, 4> kMap = {0, 0, 1, kProgramStreamMapId};
    const auto found = std::search(data.begin(), data.end(), kPack.begin(), kPack.end());
    if (data.end() - found <= static_cast<std::ptrdiff_t>(kHeaderMargin)) return std::nullopt;
    const Bytes pack(found, data.end());
    if ((pack[4] & 0xF0) == 0x20) return kClassMpeg1System;
    if ((pack[4] & 0xC0) != 0x40) return Refuse("a pack header of MPEG-1 or MPEG-2");

    const char* pszMissing = "a program stream map";
    const Bytes searched = From(pack.first(pack.size() - kHeaderMargin), 2);
    auto map = searched.begin();
    while ((map = std::search(map, searched.end(), kMap.begin(), kMap.end())) != searched.end()) {
        if (auto nClass = ClassifyMap(Bytes(map + kMap.size(), data.end()))) return nClass;
        pszMissing = "a video stream in the program stream map";
        ++map;
    }
    Refuse(pszMissing);
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
    Bytes entries = map.first(std::min(map.size(), nEntriesEnd)).subspan(nEntriesBegin);
    std::size_t nRest = nMapEnd - nEntriesBegin;  // of the map, from the entry on
    while (entries.size() >= 4) {
        const std::size_t nEntry = 4u + Read16(entries, 2);
        if (nEntry > nRest) return std::nullopt;
        nRest -= nEntry;
        m_nVideoStreamType = entries[0];
        if (m_nVideoStreamType == kStreamTypeMpeg4Video) return kClassProgramMpeg4;
        if (m_nVideoStreamType == kStreamTypeMpeg2Video || m_nVideoStreamType == kStreamTypeMpeg1Video) {
            return kClassProgramMpeg12;
        }
        m_nVideoStreamType = 0;
        entries = From(entries, nEntry);
    }
    return std::nullopt;
}

std::optional<int> CStreamTypeProbe::ClassifyTransportStream(Bytes data) {
    const auto nFirst = FindPackets(data);
    if (!nFirst) return std::nullopt;
    const std::size_t nEnd = data.size() - kHeaderMargin;

    unsigned nPmtPid = kDefaultPmtPid;
    for (std::size_t i = *nFirst; i < nEnd; ++i) {
        if (!IsPacketOf(data, i, kPatPid)) continue;
        const auto nPid = ReadPmtPid(data.subspan(i));
        if (!nPid) return Refuse("a program association section that fits its packet");
        nPmtPid = *nPid;
        break;
    }
    for (std::size_t i = 0; i < nEnd; ++i) {
        if (!IsPacketOf(data, i, kDefaultPmtPid) && !IsPacketOf(data, i, nPmtPid)) continue;
        if (auto nClass = ClassifyProgramMap(data.subspan(i))) return nClass;
    }
    Refuse("a video stream in a program map section");
    return std::nullopt;
}

/// Decides by the first video or MPEG-2 audio entry of the TS_program_map_section (ISO/IEC 13818-1 2.4.4.8)
/// in a packet; its table_id is not checked.
std::optional<int> CStreamTypeProbe::ClassifyProgramMap(Bytes packet) {
    const auto start = FindSection(packet);
    if (!start) return std::nullopt;
    if (start->nOffset + 6 >= kTsPacketSize - 1) return Refuse("a program map section that fits its packet");
    const Bytes section = From(packet, start->nOffset);
    if (section.size() < 12) return std::nullopt;
    const int nSectionLength = Read16(section, 1) & 0x0FFF;
    const int nInfoLength = Read16(section, 10) & 0x0FFF;
    int nRest = nSectionLength - nInfoLength - 13;
    Bytes entries = From(section, 12u + static_cast<std::size_t>(nInfoLength));
    while (nRest >= 5 && entries.size() >= 5) {
        const std::uint8_t nStreamType = entries[0];
        if (nStreamType == kStreamTypeMpeg4Video || nStreamType == kStreamTypeMpeg2Audio)
            return kClassTransportMpeg4;
        if (nStreamType == kStreamTypeMpeg1Video || nStreamType == kStreamTypeMpeg2Video)
            return kClassTransportMpeg12;
        const int nEntry = 5 + (Read16(entries, 3) & 0x0FFF);
        nRest -= nEntry;
        entries = From(entries, static_cast<std::size_t>(nEntry));
    }
    return std::nullopt;
}

}  // namespace kest

#include "demux/SourceAnalyzer.h"

#include <algorithm>
#include <optional>
#include <set>
#include <vector>

#include "demux/MapEntries.h"
#include "demux/PacketHeader.h"
#include "demux/ProgramStreamWalk.h"
#include "demux/StreamCollector.h"
#include "demux/StreamTypeProbe.h"
#include "demux/SystemLayer.h"
#include "demux/TransportStreamWalk.h"
#include "demux/TsPacket.h"

namespace kest {
namespace {

constexpr std::size_t kLeastRead = 0x40000;  // bytes of the beginning, and of the end, that are read
constexpr std::size_t kMostRead = 0x400000;  // as long as something is missing

/// What the first pack header in the bytes begins; None: there is no pack header.
EContainer FindPacks(Bytes bytes) {
    EContainer container = EContainer::None;
    WalkProgramStream(bytes, ECutOff::InRow, [&](const SystemStructure& structure) {
        if (structure.nId != kPackHeaderId) return true;
        container = structure.bytes[0] >> 6 == 1 ? EContainer::ProgramStream : EContainer::SystemStream;
        return false;
    });
    return container;
}

/// The container, as the demuxers take it where the probe recognises the source.
EContainer FindContainer(Bytes bytes) {
    CStreamTypeProbe probe;
    switch (probe.ClassifyHeader(bytes.first(std::min(bytes.size(), kLeastRead)))) {
        case kClassProgramMpeg4:
        case kClassProgramMpeg12: return EContainer::ProgramStream;
        case kClassMpeg1System: return EContainer::SystemStream;
        case kClassTransportMpeg4:
        case kClassTransportMpeg12: return EContainer::TransportStream;
        case kClassMpeg4VideoEs: {
            const EContainer packs = FindPacks(bytes);  // around the video's headers
            return packs == EContainer::None ? EContainer::ElementaryStream : packs;
        }
        default: return IsTransportStream(bytes) ? EContainer::TransportStream : FindPacks(bytes);
    }
}

// ---------------- program and system streams

EStreamKind GetKind(std::uint8_t nStreamId) {
    if (IsVideoStreamId(nStreamId)) return EStreamKind::Video;
    return IsAudioStreamId(nStreamId) ? EStreamKind::Audio : EStreamKind::Other;
}

/// The streams of a program stream, and what its headers say of them.
class CProgramStreamContent {
public:
    explicit CProgramStreamContent(Bytes bytes) {
        WalkProgramStream(bytes, ECutOff::InRow, [this](const SystemStructure& structure) {
            TakeStructure(structure.nId, structure.bytes);
            return true;
        });
    }
    const CStreamCollector& GetCollector() const { return m_collector; }
    bool HasMap() const { return m_bHasMap; }
    std::uint32_t GetMuxRate() const { return m_nMuxRate; }
    /// Every stream that the system header announces has been seen.
    bool IsComplete() const {
        return std::all_of(m_announced.begin(), m_announced.end(),
                           [this](std::uint8_t nId) { return m_collector.HasSeen(nId, 0); });
    }

private:
    void TakeStructure(std::uint8_t nId, Bytes structure) {
        switch (nId) {
            case kPackHeaderId: return TakePack(structure);
            case kSystemHeaderId: return TakeSystemHeader(structure);
            case kProgramStreamMapId: return TakeMap(structure);
            case kPrivateStream1Id: return TakePrivatePacket(structure);
            default: break;
        }
        const EStreamKind kind = GetKind(nId);
        if (kind != EStreamKind::Other) TakePacket(nId, kind, structure);
    }

    void TakePack(Bytes pack) {
        if (m_nMuxRate != 0) return;
        if (pack.size() >= 9 && pack[0] >> 6 == 1) m_nMuxRate = (Read24(pack, 6) >> 2) * kMuxRateUnit;
        if (pack.size() == 8) m_nMuxRate = (Read24(pack, 5) >> 1 & 0x3FFFFF) * kMuxRateUnit;
    }

    /// The streams that a system header gives buffers to (ISO/IEC 13818-1 2.5.3.5).
    void TakeSystemHeader(Bytes header) {
        constexpr std::size_t kFixedSize = 8, kEntrySize = 3;
        for (Bytes rest = BytesFrom(header, kFixedSize); rest.size() >= kEntrySize && rest[0] & 0x80;
             rest = rest.subspan(kEntrySize)) {
            if (GetKind(rest[0]) != EStreamKind::Other) m_announced.insert(rest[0]);
        }
    }

    void TakeMap(Bytes map) {
        constexpr std::size_t kLengthSize = 2, kFixedSize = 6, kCrcSize = 4;
        map = BytesFrom(map, kLengthSize);
        if (map.size() < kFixedSize + kCrcSize) return;
        const Bytes body = map.first(map.size() - kCrcSize);
        const Bytes list = BytesFrom(body, 4u + Read16(map, 2));  // behind the descriptors
        if (list.size() < 2) return;
        const std::size_t nSize = std::min<std::size_t>(list.size() - 2, Read16(list, 0));
        CMapEntries entries(list.subspan(2, nSize), CMapEntries::ELayout::ProgramStream);
        while (const auto entry = entries.Next()) m_collector.List(entry->nId, entry->nStreamType);
        m_bHasMap = true;
    }

    void TakePacket(std::uint8_t nId, EStreamKind kind, Bytes structure) {
        const auto content = ParsePacket(BytesFrom(structure, 2));
        if (!content) return;
        m_collector.Take(nId, 0, kind, content->timestamps, content->payload);
    }

    /// Audio behind a substream header of four bytes, as on DVDs, is a stream for each number in it: AC-3 where it has
    /// its sync word at the place that the header says.
    void TakePrivatePacket(Bytes structure) {
        constexpr std::size_t kSubstreamHeader = 4;
        const auto content = ParsePacket(BytesFrom(structure, 2));
        if (!content) return;
        const Bytes payload = content->payload;
        if (payload.size() >= kSubstreamHeader && payload[0] >= 0x80 && payload[0] <= 0x87) {
            const Bytes unit = BytesFrom(payload, kSubstreamHeader - 1u + Read16(payload, 2));
            const bool bSync = unit.size() >= 2 && Read16(unit, 0) == 0x0B77;
            if (bSync || m_collector.HasSeen(kPrivateStream1Id, payload[0]))
                return m_collector.Take(kPrivateStream1Id, payload[0], EStreamKind::Other,
                                        content->timestamps, payload.subspan(kSubstreamHeader));
        }
        m_collector.Take(kPrivateStream1Id, 0, EStreamKind::Other, content->timestamps, payload);
    }

    CStreamCollector m_collector;
    std::set<std::uint8_t> m_announced;  // ids in system headers
    bool m_bHasMap = false;
    std::uint32_t m_nMuxRate = 0;
};

// ---------------- transport streams

/// Collects the streams of a transport stream that are listed.
void TakeTransportStream(Bytes bytes, CStreamCollector& collector) {
    constexpr std::size_t kToLength = 6;  // bytes of a PES packet up to and with PES_packet_length
    WalkTransportStream(bytes, [&](Bytes packet) {
        const std::uint16_t nPid = GetTsPid(packet);
        const bool bScrambled = packet[3] >> 6;
        if (!(GetTsAdaptation(packet) & 1) || bScrambled || !collector.IsListed(nPid)) return;
        const Bytes payload = GetTsPayload(packet);
        if (!HasTsUnitStart(packet)) {
            if (collector.HasSeen(nPid, 0))
                collector.Take(nPid, 0, EStreamKind::Other, std::nullopt, payload);
            return;
        }
        if (payload.size() < kToLength || Read24(payload, 0) != 1) return;
        if (const auto content = ParsePacket(payload.subspan(kToLength)))
            collector.Take(nPid, 0, EStreamKind::Other, content->timestamps, content->payload);
    });
}

// ---------------- any source

/// A description, and whether all of it was found.
struct Findings {
    SourceDescription description;
    bool bComplete = false;
};

Findings Examine(Bytes bytes) {
    Findings findings;
    SourceDescription& description = findings.description;
    bool bAllSeen = true;
    description.container = FindContainer(bytes);
    switch (description.container) {
        case EContainer::ProgramStream:
        case EContainer::SystemStream: {
            const CProgramStreamContent content(bytes);
            description.streams = content.GetCollector().Describe();
            description.bHasMap = content.HasMap();
            description.nMuxRate = content.GetMuxRate();
            bAllSeen = content.IsComplete();
            break;
        }
        case EContainer::TransportStream: {
            CStreamCollector collector;
            ForEachTsMapEntry(bytes,
                              [&](std::uint16_t nPid, std::uint8_t nType) { collector.List(nPid, nType); });
            TakeTransportStream(bytes, collector);
            description.streams = collector.Describe();
            description.bHasMap = !description.streams.empty();
            break;
        }
        case EContainer::ElementaryStream: {
            CStreamCollector collector;
            collector.Take(0, 0, EStreamKind::Video, std::nullopt, bytes);
            description.streams = collector.Describe();
            break;
        }
        case EContainer::None: break;
    }
    for (StreamDescription& stream : description.streams) stream.llLastPts = -1;  // that is at the end
    findings.bComplete = bAllSeen && !description.streams.empty() &&
                         std::all_of(description.streams.begin(), description.streams.end(), HasFormat);
    return findings;
}

/// Reads a part of the source. @return empty: it cannot be read.
std::vector<std::uint8_t> Read(IAsyncReader& reader, std::int64_t llPosition, std::int64_t llSize) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(llSize));
    if (bytes.empty() || reader.SyncRead(llPosition, static_cast<LONG>(llSize), bytes.data()) != S_OK)
        return {};
    return bytes;
}

}  // namespace

SourceDescription CSourceAnalyzer::DescribeBeginning(Bytes beginning) {
    return Examine(beginning).description;
}

bool CSourceAnalyzer::TakeLastTimestamps(SourceDescription& description, Bytes end) {
    std::vector<StreamDescription> last;
    if (description.container == EContainer::TransportStream) {
        CStreamCollector collector;
        for (const StreamDescription& stream : description.streams)
            collector.List(stream.nId, stream.nStreamType);
        TakeTransportStream(end, collector);
        last = collector.Describe();
    } else if (description.container != EContainer::ElementaryStream) {
        last = CProgramStreamContent(end).GetCollector().Describe();
    }
    bool bAll = true;
    for (StreamDescription& stream : description.streams) {
        const auto found = std::find_if(last.begin(), last.end(), [&](const StreamDescription& other) {
            return other.nId == stream.nId && other.nSubstreamId == stream.nSubstreamId;
        });
        if (found != last.end()) stream.llLastPts = found->llLastPts;
        bAll = bAll && (stream.kind == EStreamKind::Other || stream.llFirstPts < 0 || stream.llLastPts >= 0);
    }
    return bAll;
}

SourceDescription CSourceAnalyzer::Describe(IAsyncReader* pReader) {
    LONGLONG llTotal = 0, llAvailable = 0;
    if (!pReader || FAILED(pReader->Length(&llTotal, &llAvailable))) return {};
    llAvailable = std::max<LONGLONG>(llAvailable, 0);

    Findings findings;
    std::vector<std::uint8_t> bytes;
    for (std::size_t nSize = kLeastRead; !findings.bComplete && nSize <= kMostRead; nSize *= 4) {
        bytes = Read(*pReader, 0, std::min<LONGLONG>(llAvailable, static_cast<LONGLONG>(nSize)));
        findings = Examine(bytes);
        if (bytes.size() < nSize) break;  // that was all
    }
    SourceDescription& description = findings.description;
    description.llLength = std::max<LONGLONG>(llTotal, 0);
    if (llAvailable < llTotal) return description;  // the end is still to come
    for (std::size_t nSize = kLeastRead; nSize <= kMostRead; nSize *= 4) {
        const LONGLONG llSize = std::min<LONGLONG>(llTotal, static_cast<LONGLONG>(nSize));
        const std::vector<std::uint8_t> end = Read(*pReader, llTotal - llSize, llSize);
        if (TakeLastTimestamps(description, end) || llSize == llTotal) break;
    }
    return description;
}

}  // namespace kest

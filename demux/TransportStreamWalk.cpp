#include "demux/TransportStreamWalk.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "demux/MapEntries.h"
#include "demux/TsPacket.h"

namespace kest {
namespace {

/// So many packets in a row begin at the index, as far as the bytes go.
bool HasPackets(Bytes bytes, std::size_t nIndex, std::size_t nPackets) {
    for (std::size_t i = 0; i < nPackets; ++i, nIndex += kTsPacketSize) {
        if (nIndex < bytes.size() && bytes[nIndex] != kTsSyncByte) return false;
    }
    return true;
}

/// Puts the sections of one PID together.
class CSection {
public:
    /// @return the section that the packet completes; empty: none.
    Bytes Take(Bytes packet) {
        Bytes payload = GetTsPayload(packet);
        if (HasTsUnitStart(packet)) {  // what a pointer_field leads over ends another section
            payload = BytesFrom(payload, std::size_t{payload[0]} + 1);
            m_bytes.clear();
        } else if (m_bytes.empty()) {
            return {};
        }
        if (m_bytes.size() > kMostBytes) return {};
        m_bytes.insert(m_bytes.end(), payload.begin(), payload.end());
        if (m_bytes.size() < 3) return {};
        const std::size_t nSize = 3u + (Read16(m_bytes, 1) & 0x0FFFu);
        return m_bytes.size() >= nSize ? Bytes(m_bytes).first(nSize) : Bytes();
    }

private:
    static constexpr std::size_t kMostBytes = 4096 + 3;  // of a section
    std::vector<std::uint8_t> m_bytes;                   // from the section's first byte on
};

constexpr std::size_t kCrcSize = 4;

/// The PIDs of the program maps that a PAT lists.
void TakePrograms(Bytes section, std::set<std::uint16_t>& mapPids) {
    constexpr std::size_t kFixedSize = 8, kEntrySize = 4;
    for (Bytes rest = BytesFrom(section, kFixedSize); rest.size() >= kEntrySize + kCrcSize;
         rest = rest.subspan(kEntrySize)) {
        if (Read16(rest, 0) != 0) mapPids.insert(Read16(rest, 2) & 0x1FFF);  // 0: the network's PID
    }
}

void TakeEntries(Bytes section, const std::function<void(std::uint16_t, std::uint8_t)>& take) {
    constexpr std::size_t kFixedSize = 12;
    constexpr std::uint8_t kProgramMapTableId = 2;
    if (section.size() < kFixedSize + kCrcSize || section[0] != kProgramMapTableId) return;
    const Bytes body = section.first(section.size() - kCrcSize);
    CMapEntries entries(BytesFrom(body, kFixedSize + (Read16(section, 10) & 0x0FFFu)),
                        CMapEntries::ELayout::TransportStream);
    while (const auto entry = entries.Next()) take(entry->nId, entry->nStreamType);
}

}  // namespace

void WalkTransportStream(Bytes bytes, const std::function<void(Bytes packet)>& take) {
    constexpr std::size_t kInARow = 3;
    while (bytes.size() >= kTsPacketSize) {
        if (HasPackets(bytes, 0, 2)) {
            take(bytes.first(kTsPacketSize));
            bytes = bytes.subspan(kTsPacketSize);
            continue;
        }
        std::size_t i = 1;
        while (i < bytes.size() && !(bytes[i] == kTsSyncByte && HasPackets(bytes, i, kInARow))) ++i;
        bytes = bytes.subspan(i);
    }
}

void ForEachTsMapEntry(Bytes bytes,
                       const std::function<void(std::uint16_t nPid, std::uint8_t nStreamType)>& take) {
    constexpr std::uint16_t kPatPid = 0;
    std::set<std::uint16_t> mapPids;
    std::map<std::uint16_t, CSection> sections;
    WalkTransportStream(bytes, [&](Bytes packet) {
        const std::uint16_t nPid = GetTsPid(packet);
        if (!(GetTsAdaptation(packet) & 1) || (nPid != kPatPid && !mapPids.contains(nPid))) return;
        const Bytes section = sections[nPid].Take(packet);
        if (section.empty()) return;
        nPid == kPatPid ? TakePrograms(section, mapPids) : TakeEntries(section, take);
    });
}

bool IsTransportStream(Bytes bytes) {
    constexpr std::size_t kInARow = 5;
    if (bytes.size() < 2 * kTsPacketSize) return false;
    for (std::size_t i = 0; i < kTsPacketSize; ++i) {
        if (HasPackets(bytes, i, kInARow)) return true;
    }
    return false;
}

}  // namespace kest

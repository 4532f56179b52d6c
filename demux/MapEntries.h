#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "demux/BigEndian.h"

namespace kest {

/// One elementary stream that a map lists.
struct MapEntry {
    std::uint8_t nStreamType;  // stream_type
    std::uint16_t nId;  // elementary_stream_id of a program stream, elementary_PID of a transport stream
    std::size_t nSize;  // bytes of the entry with its descriptors, as it says itself
};

/// Walks over the entries of a program_stream_map (ISO/IEC 13818-1 2.5.4.1) or a TS_program_map_section
/// (2.4.4.8).
class CMapEntries {
public:
    enum class ELayout { ProgramStream, TransportStream };

    /// @param entries  the bytes of the entries alone.
    CMapEntries(Bytes entries, ELayout layout) : m_rest(entries), m_layout(layout) {}

    /// The next entry; none when fewer bytes are left than an entry has without descriptors. Descriptors that
    /// run past the end end the walk behind their entry.
    std::optional<MapEntry> Next() {
        const bool bTransport = m_layout == ELayout::TransportStream;
        const std::size_t nFixed = bTransport ? 5 : 4;
        if (m_rest.size() < nFixed) return std::nullopt;
        MapEntry entry{};
        entry.nStreamType = m_rest[0];
        entry.nId = bTransport ? Read16(m_rest, 1) & 0x1FFF : m_rest[1];
        entry.nSize = nFixed + (Read16(m_rest, nFixed - 2) & (bTransport ? 0x0FFFu : 0xFFFFu));
        m_bOverrun = entry.nSize > m_rest.size();
        m_rest = BytesFrom(m_rest, entry.nSize);
        return entry;
    }
    /// The entries walked over fill the bytes exactly.
    bool IsComplete() const { return m_rest.empty() && !m_bOverrun; }

private:
    Bytes m_rest;             // entries not walked over yet
    const ELayout m_layout;   // of an entry
    bool m_bOverrun = false;  // the last entry's descriptors run past the end
};

}  // namespace kest

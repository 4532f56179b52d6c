#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "demux/PesHeader.h"
#include "demux/SourceDescription.h"

namespace kest {

/// The elementary streams of a part of a source: collects their bytes and timestamps from the packets, and finds
/// their formats in the end. Used by one thread.
class CStreamCollector {
public:
    /// A map lists a stream. Only the first entry of an id counts.
    void List(std::uint16_t nId, std::uint8_t nStreamType);
    /// Whether a map has listed the id.
    bool IsListed(std::uint16_t nId) const { return m_listed.contains(nId); }
    /// A part of a stream has come.
    /// @param timestamps  of the packet that it begins, if it has any.
    void Take(std::uint16_t nId, std::uint8_t nSubstreamId, EStreamKind kind,
              const std::optional<PesTimestamps>& timestamps, Bytes payload);
    /// Whether parts of a stream have come.
    bool HasSeen(std::uint16_t nId, std::uint8_t nSubstreamId) const {
        return m_seen.contains(GetKey(nId, nSubstreamId));
    }

    /// The streams in the order in which they were seen, then those that were only listed; their `llLastPts` is that
    /// of what was taken.
    std::vector<StreamDescription> Describe() const;

private:
    struct Stream {
        StreamDescription description;    // without codec and formats
        std::vector<std::uint8_t> bytes;  // its payload
        int nTimestamps = 0;              // timestamps taken
    };
    static std::uint32_t GetKey(std::uint16_t nId, std::uint8_t nSubstreamId) {
        return static_cast<std::uint32_t>(nId) << 8 | nSubstreamId;
    }
    static void TakeTimestamps(Stream& stream, const PesTimestamps& timestamps);

    std::map<std::uint16_t, std::uint8_t> m_listed;  // stream_type by id
    std::vector<std::uint16_t> m_listOrder;          // its ids as they came
    std::map<std::uint32_t, std::size_t> m_seen;     // index in m_streams by GetKey
    std::vector<Stream> m_streams;                   // as they came
};

/// Whether everything that can be known of a stream from its headers is known.
bool HasFormat(const StreamDescription& stream);

}  // namespace kest

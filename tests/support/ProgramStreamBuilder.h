#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace kest {

using ByteVector = std::vector<std::uint8_t>;

/// Puts a program stream together from its structures, ISO/IEC 13818-1 2.5.
class CProgramStreamBuilder {
public:
    struct MapEntry {
        std::uint8_t nStreamType;
        std::uint8_t nStreamId;
        ByteVector descriptors = {};
    };

    CProgramStreamBuilder& Bytes(const ByteVector& bytes) {
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        return *this;
    }
    CProgramStreamBuilder& Fill(std::size_t n, std::uint8_t nValue = 0xFF) {
        return Bytes(ByteVector(n, nValue));
    }
    CProgramStreamBuilder& Code(std::uint8_t nId) { return Bytes({0, 0, 1, nId}); }
    CProgramStreamBuilder& Word(std::size_t n) {
        return Bytes({static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n)});
    }

    /// @param nMuxRate  program_mux_rate, in units of 50 bytes per second.
    CProgramStreamBuilder& Pack(std::uint32_t nMuxRate = 25200, std::uint8_t nStuffing = 0) {
        Code(0xBA).Bytes({0x44, 0x00, 0x04, 0x00, 0x04, 0x01});
        Bytes({static_cast<std::uint8_t>(nMuxRate >> 14), static_cast<std::uint8_t>(nMuxRate >> 6),
               static_cast<std::uint8_t>(nMuxRate << 2 | 3), static_cast<std::uint8_t>(0xF8 | nStuffing)});
        return Fill(nStuffing);
    }
    CProgramStreamBuilder& Section(std::uint8_t nId, std::size_t nLength) {
        return Code(nId).Word(nLength).Fill(nLength);
    }
    CProgramStreamBuilder& Map(const std::vector<MapEntry>& entries, bool bCurrent = true,
                               ByteVector info = {}) {
        CProgramStreamBuilder body;
        for (const MapEntry& entry : entries) {
            body.Bytes({entry.nStreamType, entry.nStreamId})
                .Word(entry.descriptors.size())
                .Bytes(entry.descriptors);
        }
        Code(0xBC).Word(10 + info.size() + body.m_bytes.size());
        Bytes({static_cast<std::uint8_t>(bCurrent ? 0xE1 : 0x61), 0xFF}).Word(info.size()).Bytes(info);
        return Word(body.m_bytes.size()).Bytes(body.m_bytes).Bytes({0xDE, 0xAD, 0xBE, 0xEF});
    }
    /// A PES packet; with a DTS only when it differs from the PTS.
    CProgramStreamBuilder& Pes(std::uint8_t nId, const ByteVector& payload,
                               std::optional<std::int64_t> llPts = {},
                               std::optional<std::int64_t> llDts = {}) {
        ByteVector header;
        std::uint8_t nFlags = 0;
        if (llPts) {
            nFlags = llDts ? 0xC0 : 0x80;
            AddStamp(header, llDts ? 3 : 2, *llPts);
            if (llDts) AddStamp(header, 1, *llDts);
        }
        Code(nId).Word(3 + header.size() + payload.size());
        Bytes({0x80, nFlags, static_cast<std::uint8_t>(header.size())});
        return Bytes(header).Bytes(payload);
    }

    const ByteVector& Get() const { return m_bytes; }
    std::size_t Size() const { return m_bytes.size(); }

private:
    static void AddStamp(ByteVector& to, int nPrefix, std::int64_t llStamp) {
        const auto n = static_cast<std::uint64_t>(llStamp);
        to.push_back(static_cast<std::uint8_t>(nPrefix << 4 | (n >> 29 & 0x0E) | 1));
        to.push_back(static_cast<std::uint8_t>(n >> 22));
        to.push_back(static_cast<std::uint8_t>((n >> 14 & 0xFE) | 1));
        to.push_back(static_cast<std::uint8_t>(n >> 7));
        to.push_back(static_cast<std::uint8_t>((n << 1 & 0xFE) | 1));
    }

    ByteVector m_bytes;
};

}  // namespace kest

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kest {

using ByteVector = std::vector<std::uint8_t>;

/// The bytes of a text such as "00 00 01 BA".
inline ByteVector Hex(std::string_view text) {
    ByteVector bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 3) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
    }
    return bytes;
}

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
    CProgramStreamBuilder& Hex(std::string_view text) { return Bytes(kest::Hex(text)); }
    CProgramStreamBuilder& Fill(std::size_t n, std::uint8_t nValue = 0xFF) {
        return Bytes(ByteVector(n, nValue));
    }
    CProgramStreamBuilder& Code(std::uint8_t nId) { return Bytes({0, 0, 1, nId}); }
    CProgramStreamBuilder& Word(std::size_t n) {
        return Bytes({static_cast<std::uint8_t>(n >> 8), static_cast<std::uint8_t>(n)});
    }

    /// @param nMuxRate  program_mux_rate, in units of 50 bytes per second.
    CProgramStreamBuilder& Pack(std::uint32_t nMuxRate = 25200, std::uint8_t nStuffing = 0) {
        Code(0xBA).Hex("44 00 04 00 04 01").Bytes({static_cast<std::uint8_t>(nMuxRate >> 14)});
        Word((nMuxRate << 2 | 3) & 0xFFFF).Bytes({static_cast<std::uint8_t>(0xF8 | nStuffing)});
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
        Code(0xBC).Word(10 + info.size() + body.Size()).Word(bCurrent ? 0xE1FF : 0x61FF);
        Word(info.size()).Bytes(info).Word(body.Size()).Bytes(body.m_bytes);
        return Hex("DE AD BE EF");
    }
    /// A PES packet with or without timestamps.
    CProgramStreamBuilder& Pes(std::uint8_t nId, const ByteVector& payload,
                               std::optional<std::int64_t> llPts = {},
                               std::optional<std::int64_t> llDts = {}) {
        const std::size_t nHeader = llDts ? 10 : llPts ? 5 : 0;
        Code(nId).Word(3 + nHeader + payload.size());
        Word(llDts ? 0x80C0 : llPts ? 0x8080 : 0x8000).Bytes({static_cast<std::uint8_t>(nHeader)});
        if (llPts) Timestamp(llDts ? 3 : 2, *llPts);
        if (llDts) Timestamp(1, *llDts);
        return Bytes(payload);
    }

    const ByteVector& Get() const { return m_bytes; }
    std::size_t Size() const { return m_bytes.size(); }

private:
    void Timestamp(int nPrefix, std::int64_t llTimestamp) {
        const auto n = static_cast<std::uint64_t>(llTimestamp);
        Bytes({static_cast<std::uint8_t>(nPrefix << 4 | (n >> 29 & 0x0E) | 1)});
        Word((n >> 14 | 1) & 0xFFFF).Word((n << 1 | 1) & 0xFFFF);
    }

    ByteVector m_bytes;
};

}  // namespace kest

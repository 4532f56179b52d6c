#pragma once

#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
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
    CProgramStreamBuilder& Pack(std::uint32_t nMuxRate = 25200) {
        Code(0xBA).Bytes({0x44, 0x00, 0x04, 0x00, 0x04, 0x01, static_cast<std::uint8_t>(nMuxRate >> 14)});
        return Word((nMuxRate << 2 | 3) & 0xFFFF).Bytes({0xF8});
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
        return Bytes({0xDE, 0xAD, 0xBE, 0xEF});
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

    /// A packet of an MPEG-1 system stream (ISO/IEC 11172-1 2.4.3.3) with or without timestamps.
    CProgramStreamBuilder& Mpeg1Packet(std::uint8_t nId, const ByteVector& payload,
                                       std::optional<std::int64_t> llPts, std::optional<std::int64_t> llDts) {
        Code(nId).Word((llDts ? 10 : llPts ? 5 : 1) + payload.size());
        if (llPts) Timestamp(llDts ? 3 : 2, *llPts);
        if (llDts) Timestamp(1, *llDts);
        if (!llPts) Bytes({0x0F});
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

/// The bytes of a text of words: two hexadecimal digits are a byte; *9 is nine bytes FF, | as many as make a
/// multiple of 188; "pack" a pack header; v1000/997:4x1 a video packet with its PTS, DTS and payload, 01 01
/// 01 01, v:4x1 one without timestamps. a, b, d and w are packets of the stream ids 0xC0, 0xC1, 0xBD and 0xE1. V, A
/// and B are packets of an MPEG-1 system stream.
inline ByteVector Stream(const std::string& strText) {
    CProgramStreamBuilder b;
    std::istringstream words(strText);
    for (std::string word; words >> word;) {
        const std::size_t nColon = word.find(':'), nSlash = word.find('/'), nTimes = word.find('x');
        if (nColon != std::string::npos) {
            std::optional<std::int64_t> llPts, llDts;
            if (nColon > 1) llPts = std::stoll(word.substr(1));
            if (nSlash != std::string::npos) llDts = std::stoll(word.substr(nSlash + 1));
            const std::size_t nPayload =
                nTimes != std::string::npos ? std::stoul(word.substr(nColon + 1)) : 0;
            const ByteVector payload(nPayload,
                                     static_cast<std::uint8_t>(nPayload ? word[nTimes + 1] - '0' : 0));
            const int nKind = word[0] | 0x20;  // lower case
            const int nId = nKind == 'v'   ? 0xE0
                            : nKind == 'w' ? 0xE1
                            : nKind == 'd' ? 0xBD
                                           : nKind - 'a' + 0xC0;
            if (word[0] == nKind) b.Pes(static_cast<std::uint8_t>(nId), payload, llPts, llDts);
            if (word[0] != nKind) b.Mpeg1Packet(static_cast<std::uint8_t>(nId), payload, llPts, llDts);
        } else if (word == "pack") {
            b.Pack();
        } else if (word[0] == '*' || word[0] == '|') {
            b.Fill(word[0] == '*' ? std::stoul(word.substr(1)) : 187 - (b.Size() + 187) % 188);
        } else {
            b.Bytes({static_cast<std::uint8_t>(std::stoul(word, nullptr, 16))});
        }
    }
    return b.Get();
}

}  // namespace kest

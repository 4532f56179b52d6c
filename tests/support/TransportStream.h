// Makes transport streams, and runs their parser over bytes without a thread.
#pragma once

#include "demux/TsParseState.h"
#include "support/CoreRunner.h"
#include "support/ProgramStreamBuilder.h"

namespace kest {

/// Puts a transport stream together from its packets, ISO/IEC 13818-1 2.4.
class CTransportStreamBuilder {
public:
    static constexpr std::uint16_t kPmtPid = 0x100, kVideoPid = 0x101, kAudioPid = 0x102;

    /// One packet; a short payload gets an adaptation field in front of it.
    CTransportStreamBuilder& Packet(std::uint16_t nPid, bool bStart, Bytes payload) {
        const std::size_t nStuffing = 184 - payload.size();
        Add({0x47, static_cast<std::uint8_t>(nPid >> 8 | (bStart ? 0x40 : 0)),
             static_cast<std::uint8_t>(nPid), static_cast<std::uint8_t>(nStuffing ? 0x30 : 0x10)});
        if (nStuffing > 0) Add({static_cast<std::uint8_t>(nStuffing - 1)});
        if (nStuffing > 1) Add({0}), Add(ByteVector(nStuffing - 2, 0xFF));
        return Add({payload.begin(), payload.end()});
    }
    /// A packet with a table.
    CTransportStreamBuilder& Section(std::uint16_t nPid, ByteVector section) {
        section.insert(section.begin(), 0);  // pointer_field
        section.resize(184, 0xFF);
        return Packet(nPid, true, section);
    }
    /// PAT and PMT of a program with one video and one audio.
    CTransportStreamBuilder& Tables(bool bMpeg4) {
        Section(0, Stream("00 B0 0D 00 01 C1 00 00 00 01 E1 00 01 02 03 04"));
        return Section(kPmtPid, Stream(std::string("02 B0 17 00 01 C1 00 00 E1 01 F0 00 ") +
                                       (bMpeg4 ? "10" : "02") + " E1 01 F0 00 03 E1 02 F0 00 01 02 03 04"));
    }
    /// A PES packet, in as many packets as it takes.
    CTransportStreamBuilder& Pes(std::uint16_t nPid, const ByteVector& payload,
                                 std::optional<std::int64_t> llPts = {}) {
        const auto nId = static_cast<std::uint8_t>(nPid == kVideoPid ? 0xE0 : 0xC0);
        const ByteVector pes = CProgramStreamBuilder().Pes(nId, payload, llPts).Get();
        for (std::size_t n = 0; n < pes.size(); n += 184) {
            Packet(nPid, n == 0, Bytes(pes).subspan(n, std::min<std::size_t>(184, pes.size() - n)));
        }
        return *this;
    }
    CTransportStreamBuilder& Add(const ByteVector& bytes) {
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        return *this;
    }
    /// The stream with so many null packets behind it that all of it is read.
    ByteVector Get() {
        for (int i = 0; i < 24; ++i) Packet(0x1FFF, false, ByteVector(184));
        return m_bytes;
    }
    /// The stream as it is.
    const ByteVector& GetAsItIs() const { return m_bytes; }
    std::size_t Size() const { return m_bytes.size(); }

private:
    ByteVector m_bytes;
};

/// The parser over bytes, any number of times.
class CTsRig : CByteSource {
public:
    /// @param bRead   frames are kept; else there is no reader, and no frame waits for one.
    /// @param nBlock  bytes of a frame, at most.
    explicit CTsRig(bool bRead = true, std::uint32_t nBlock = 65536, std::uint32_t nBlocks = 256)
        : m_bRead(bRead), m_video({1048576, nBlock, nBlocks}), m_audio({1048576, nBlock, nBlocks}) {
        for (CFrameOutput* pOutput : {&m_video, &m_audio}) {
            pOutput->Attach(nullptr);
            bRead ? pOutput->OpenSides() : static_cast<void>(pOutput->GetQueue().WOpen());
        }
    }
    void SetSettings(const ParseSettings& settings) {
        m_parser.SetSettings(settings);
        m_video.SetLimits(settings.nVideoBlockSize, settings.bDrain);
        m_audio.SetLimits(0, settings.bDrain);
    }
    /// Parses until there is no more. @param bEnd  and ends the run, unless it failed.
    Frames Run(Bytes bytes, ETsTiming timing = ETsTiming::Pes, bool bEnd = true) {
        m_rest = bytes;
        m_input.SetSource(this, false);
        m_parser.Prepare(timing);
        m_parser.Begin();
        Frames frames;
        EParsed parsed = EParsed::Unit;
        while (parsed == EParsed::Unit) {
            parsed = m_parser.ParseUnit();
            Take(frames);
        }
        if (parsed == EParsed::Ended && bEnd) m_parser.End();
        Take(frames);
        return frames;
    }

    const ParseCounters& GetCounters() const { return m_parser.GetCounters(); }
    const FrameCounters& GetVideoCounters() const { return m_video.GetCounters(); }
    const FrameCounters& GetAudioCounters() const { return m_audio.GetCounters(); }

private:
    std::uint32_t Fetch(const FetchRequest& request) override {
        const std::size_t n = std::min<std::size_t>(m_rest.size(), request.room.size());
        std::copy_n(m_rest.begin(), n, request.room.begin());
        m_rest = m_rest.subspan(n);
        return static_cast<std::uint32_t>(n);
    }
    void Take(Frames& frames) {
        if (!m_bRead) return;
        while (auto frame = TakeFrame(m_video.GetQueue(), 0)) frames.video.push_back(*frame);
        while (auto frame = TakeFrame(m_audio.GetQueue(), 0)) frames.audio.push_back(*frame);
    }

    const bool m_bRead;
    Bytes m_rest;
    CStreamInput m_input;
    CFrameOutput m_video, m_audio;
    CTsParseState m_parser{m_input, m_video, m_audio};
};

}  // namespace kest

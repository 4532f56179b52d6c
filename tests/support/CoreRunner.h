// Runs the program-stream demuxer over bytes: its parser alone, without a thread, or the whole of it.
#pragma once

#include <optional>
#include <vector>

#include "demux/Mpeg2PsPullDemux.h"
#include "platform/Time.h"
#include "support/MemoryReader.h"
#include "support/ProgramStreamBuilder.h"

namespace kest {

/// One record that a demuxer queued.
struct Frame {
    FRAME_INFO info{};
    ByteVector payload;

    friend bool operator==(const Frame& a, const Frame& b) {
        return std::memcmp(&a.info, &b.info, sizeof(FRAME_INFO)) == 0 && a.payload == b.payload;
    }
};

struct Frames {
    std::vector<Frame> video, audio;
};

/// Takes the next record of a queue that the demuxer made. None when none comes for nTimeoutMs; a read that a
/// new segment breaks off is repeated.
inline std::optional<Frame> TakeFrame(CBlockMemFileEx& queue, std::uint32_t nTimeoutMs) {
    static thread_local ByteVector block(524288);
    FRAME_INFO info{};
    const std::uint32_t nBegin = TickCount();
    do {
        const BlockRead read = queue.ReadEx(0, block, &info, nTimeoutMs);
        if (read.IsTaken()) return Frame{info, {block.begin(), block.begin() + read.nLength}};
    } while (TickCount() - nBegin < nTimeoutMs);
    return std::nullopt;
}

/// The parser over a source in memory.
class CParserRig {
public:
    explicit CParserRig(Bytes bytes) : m_reader(bytes) {
        m_source.SetReader(&m_reader);
        m_source.SetEnd(static_cast<std::int64_t>(bytes.size()));
        m_source.Open();
        m_input.SetSource(&m_source, true);
        for (CFrameOutput* pOutput : {&m_video, &m_audio}) {
            pOutput->Attach(nullptr);
            pOutput->OpenSides();
        }
        m_parser.Begin();
    }
    /// Parses until the source has nothing more.
    Frames Run() {
        Frames frames;
        while (m_parser.ParseUnit() != EParsed::NoData) {
            if (auto frame = TakeFrame(m_video.GetQueue(), 0)) frames.video.push_back(*frame);
            if (auto frame = TakeFrame(m_audio.GetQueue(), 0)) frames.audio.push_back(*frame);
        }
        return frames;
    }

    CMemoryReader m_reader;
    CPulledSource m_source;
    CStreamInput m_input;
    CFrameOutput m_video{{524288, 524288, 2}}, m_audio{{65536, 32768, 2}};
    CMpeg2PsParser m_parser{m_input, m_video, m_audio};
};

}  // namespace kest

// Runs demuxers over bytes: their parsers alone, without a thread, or the whole of the program stream's.
#pragma once

#include <algorithm>
#include <optional>
#include <vector>

#include "demux/ElementaryStreamFramer.h"
#include "demux/Mpeg1SystemParser.h"
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

/// The frames in the words of `Stream`; a ! in the place of the : is a discontinuity.
inline std::string Describe(const Frames& frames) {
    std::string text;
    for (const auto* pFrames : {&frames.video, &frames.audio}) {
        for (const Frame& frame : *pFrames) {
            text += (pFrames == &frames.video ? 'v' : 'a') + std::to_string(frame.info.llPts);
            if (frame.info.llDts != frame.info.llPts) text += "/" + std::to_string(frame.info.llDts);
            text += frame.info.bDiscontinuity ? "!" : ":";
            for (std::size_t i = 0, n = 0; i < frame.payload.size(); i += n) {
                for (n = 1; i + n < frame.payload.size() && frame.payload[i + n] == frame.payload[i];) ++n;
                text += std::to_string(n) + "x" + std::to_string(frame.payload[i]) + ",";
            }
            text.back() = ' ';
        }
    }
    return text;
}

/// Packs, video, audio and other packets, searches, bytes skipped.
using Numbers = std::vector<std::uint64_t>;
inline Numbers NumbersOf(const ParseCounters& n) {
    return {n.nPacks, n.nVideoPackets, n.nAudioPackets, n.nOtherPackets, n.nResyncs, n.llBytesSkipped};
}
/// Frames queued, cut and the bytes, lost and the bytes.
inline Numbers NumbersOf(const FrameCounters& n) {
    return {n.nQueued, n.nCut, n.llBytesCut, n.nLost, n.llBytesLost};
}

/// Takes the next record of a queue that the demuxer made. None when none comes for nTimeoutMs; a read that a
/// new segment breaks off is repeated.
inline std::optional<Frame> TakeFrame(CBlockMemFileEx& queue, std::uint32_t nTimeoutMs) {
    static thread_local ByteVector block;
    block.resize(std::max<std::size_t>(block.size(), queue.GetBlockSize()));
    FRAME_INFO info{};
    const std::uint32_t nBegin = TickCount();
    do {
        const BlockRead read = queue.ReadEx(0, block, &info, nTimeoutMs);
        if (read.IsTaken()) return Frame{info, {block.begin(), block.begin() + read.nLength}};
    } while (TickCount() - nBegin < nTimeoutMs);
    return std::nullopt;
}

/// A parser over a source in memory, with a demuxer's sizes of the video frames.
template <class Parser, std::uint32_t nMaxVideoFrame, std::uint32_t nVideoBlock>
class CParserRigOf {
public:
    /// @param pVideoQueue, pAudioQueue  open; none: queues of its own.
    explicit CParserRigOf(Bytes bytes, const ParseSettings& settings = {},
                          CBlockMemFileEx* pVideoQueue = nullptr, CBlockMemFileEx* pAudioQueue = nullptr)
        : m_reader(bytes), m_bDrain(settings.bDrain) {
        m_source.SetReader(&m_reader);
        m_source.SetEnd(static_cast<std::int64_t>(bytes.size()));
        m_source.Open();
        m_input.SetSource(&m_source, true);
        m_video.Attach(pVideoQueue);
        m_audio.Attach(pAudioQueue);
        for (CFrameOutput* pOutput : {&m_video, &m_audio}) {
            pOutput->SetLimits(0, settings.bDrain);
            pOutput->OpenSides();
        }
        m_parser.SetSettings(settings);
        m_parser.Begin();
    }
    /// Parses until the source has nothing more; to its last byte where the settings say so.
    Frames Run() {
        Frames frames;
        while (m_parser.ParseUnit() != EParsed::NoData) Take(frames);
        if (m_bDrain && m_input.Pad()) m_parser.Drain();
        Take(frames);
        return frames;
    }
    void Take(Frames& frames) {
        while (auto frame = TakeFrame(m_video.GetQueue(), 0)) frames.video.push_back(*frame);
        while (auto frame = TakeFrame(m_audio.GetQueue(), 0)) frames.audio.push_back(*frame);
    }

    CMemoryReader m_reader;
    const bool m_bDrain;
    CPulledSource m_source;
    CStreamInput m_input;
    CFrameOutput m_video{{nMaxVideoFrame, nVideoBlock, 4}}, m_audio{{65536, 32768, 16}};
    Parser m_parser{m_input, m_video, m_audio};
};
using CParserRig = CParserRigOf<CMpeg2PsParser, 524288, 524288>;
using CMpeg1Rig = CParserRigOf<CMpeg1SystemParser, 163840, 262144>;

/// A queue that is open. What a drain queues fits it.
struct CTestQueue : CBlockMemFileEx {
    explicit CTestQueue(std::uint32_t nBlockSize) : CBlockMemFileEx(nBlockSize, 2048, sizeof(FRAME_INFO)) {
        WOpen(), ROpen();
    }
};

/// The frames of a program stream, with extensions.
inline Frames ParseWith(const ParseSettings& settings, Bytes bytes, std::uint32_t nBlockSize = 4096) {
    CTestQueue video(nBlockSize), audio(nBlockSize);
    return CParserRig(bytes, settings, &video, &audio).Run();
}

/// The payloads of frames, one behind the other.
inline ByteVector Join(const std::vector<Frame>& frames) {
    ByteVector bytes;
    for (const Frame& frame : frames) bytes.insert(bytes.end(), frame.payload.begin(), frame.payload.end());
    return bytes;
}

/// The units of an elementary stream that comes in parts of this size. @param bDrain  with the last one.
inline std::vector<Frame> FrameUnits(Bytes data, std::size_t nPart, bool bDrain = false) {
    std::vector<Frame> units;
    CElementaryStreamFramer framer;
    CBlockMemFileEx queue(524288, 512, sizeof(FRAME_INFO));
    queue.WOpen(), queue.ROpen();
    framer.SetDrain(bDrain);
    const auto Take = [&] {
        while (auto unit = TakeFrame(queue, 0)) units.push_back(*unit);
    };
    for (; !data.empty(); data = data.subspan(std::min(nPart, data.size()))) {
        framer.Push(data.first(std::min(nPart, data.size())), queue);
        Take();
    }
    if (bDrain) framer.Flush(queue);
    Take();
    return units;
}

}  // namespace kest

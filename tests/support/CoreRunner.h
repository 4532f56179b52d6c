#pragma once

#include <optional>
#include <thread>
#include <vector>

#include "demux/Mpeg2PsPullDemux.h"
#include "platform/Time.h"
#include "support/ProgramStreamBuilder.h"

namespace kest {

/// One record that a core queued.
struct Frame {
    FRAME_INFO info{};
    ByteVector payload;

    friend bool operator==(const Frame& a, const Frame& b) {
        return a.info.llPts == b.info.llPts && a.info.llDts == b.info.llDts &&
               a.info.llFilePos == b.info.llFilePos && a.info.bDiscontinuity == b.info.bDiscontinuity &&
               a.info.bEndOfStream == b.info.bEndOfStream && a.payload == b.payload;
    }
};

struct Frames {
    std::vector<Frame> video;
    std::vector<Frame> audio;
};

/// Takes the next record of a queue that a core made. None when none comes for nTimeoutMs; a read that a
/// restart of the core broke off is repeated.
inline std::optional<Frame> TakeFrame(CBlockMemFileEx& queue, std::uint32_t nTimeoutMs) {
    Frame frame;
    frame.payload.resize(queue.GetBlockSize());
    const std::uint32_t nBegin = TickCount();
    do {
        const BlockRead read = queue.ReadEx(0, frame.payload, &frame.info, nTimeoutMs);
        if (read.nLength > 0 || (read.IsTaken() && frame.info.bEndOfStream)) {
            frame.payload.resize(read.nLength);
            return frame;
        }
    } while (TickCount() - nBegin < nTimeoutMs);
    return std::nullopt;
}

/// Takes all records of both queues up to the end-of-stream records; what is there when nothing has come for
/// nQuietMs otherwise.
inline Frames TakeAll(KestMpeg2PsDemux& core, std::uint32_t nQuietMs = 2000) {
    auto TakeStream = [nQuietMs](CBlockMemFileEx& queue, std::vector<Frame>& frames) {
        while (auto frame = TakeFrame(queue, nQuietMs)) {
            frames.push_back(std::move(*frame));
            if (frames.back().info.bEndOfStream) break;
        }
    };
    Frames frames;
    std::thread audio([&] { TakeStream(core.GetAudioQueue(), frames.audio); });
    TakeStream(core.GetVideoQueue(), frames.video);
    audio.join();
    return frames;
}

/// Runs the pull core over a source from its beginning to llEnd.
inline Frames RunPullCore(IAsyncReader& reader, std::int64_t llEnd) {
    KestMpeg2PsPullDemux core;
    core.SetReader(&reader);
    core.Open(nullptr, nullptr, nullptr);
    core.NewSegment(0, llEnd);
    core.Resume();
    return TakeAll(core);
}

}  // namespace kest

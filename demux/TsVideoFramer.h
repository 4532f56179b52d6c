#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "demux/FrameOutput.h"
#include "demux/PesBuffer.h"
#include "demux/TsVideoClock.h"

namespace kest {

/// Splits the video of a transport stream into pictures: from its PES packets in, frames with timestamps into
/// a frame output. The frames of a PES packet with timestamps are queued when the next such packet comes, with
/// times at equal distances from one packet's timestamps to the next's; or, with elementary timing, with
/// those of their own headers.
///
/// When draining, every byte of payload is queued: what stands before the first timestamp without times, the last
/// frames as if one more PES packet followed, and frames of which the buffer cannot hold all as a frame and one
/// without times that goes on with it. Where the next packet's timestamps have jumped, frames have the distance of those
/// before.
class CTsVideoFramer {
public:
    /// Both are borrowed.
    CTsVideoFramer(CTsVideoClock& clock, CFrameOutput& output) : m_clock(clock), m_output(output) {}

    /// A run begins; the buffer is empty.
    void Begin(ETsTiming timing);
    /// Nothing is dropped. Before the run's first packet.
    void SetDrain(bool bDrain) { m_bDrain = bDrain; }
    /// The packets go here.
    CPesBuffer& GetBuffer() { return m_buffer; }
    /// Payload that comes into no frame.
    void CountLost(std::size_t nBytes) { m_output.CountLost(nBytes); }
    /// The video is MPEG-4, else MPEG-2.
    void SetMpeg4(bool bMpeg4) { m_bMpeg4 = bMpeg4; }
    /// The PES packet in the buffer is complete.
    void OnPes();
    /// The stream has ended: what there is left is one frame, or when draining split as ever.
    void Flush();

private:
    std::optional<std::size_t> FindFrameStart(Bytes payload) const;
    void Take(Bytes part);
    void SplitFrames(std::int64_t llNextDts);
    void SplitRest(bool bAll);
    std::optional<std::int64_t> FindStep(std::int64_t llNextDts, std::int64_t llFrames) const;
    void QueueFrames(std::optional<std::int64_t> llStep);
    void MoveOn(std::optional<std::int64_t> llStep);
    bool HasFrameStart();
    bool BeginsWithCode() const;
    bool HasTime() const { return m_next.llPts != kNoTimestamps.llPts; }
    void FindFrameEnds(bool bAll);
    void QueueFrame(std::size_t nSize);
    std::optional<PesTimestamps> FindTime(Bytes frame);

    CTsVideoClock& m_clock;
    CFrameOutput& m_output;
    CPesBuffer m_buffer;
    ETsTiming m_timing = ETsTiming::Pes;
    bool m_bMpeg4 = false;                 // see SetMpeg4
    bool m_bDrain = false;                 // see SetDrain
    PesTimestamps m_next = kNoTimestamps;  // of the next frame
    std::optional<std::int64_t> m_llStep;  // last known distance of two frames
    bool m_bContinues = false;             // the buffer goes on with a frame that has been queued
    std::vector<std::size_t> m_ends;       // of the frames in the buffer; kept for its memory
};

}  // namespace kest

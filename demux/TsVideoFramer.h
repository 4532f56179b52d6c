#pragma once

#include <cstdint>
#include <vector>

#include "demux/FrameOutput.h"
#include "demux/PesBuffer.h"
#include "demux/TsVideoClock.h"

namespace kest {

/// Splits the video of a transport stream into pictures: from its PES packets in, frames with timestamps into
/// a frame output. The frames of a PES packet with timestamps are queued when the next such packet comes, with
/// times at equal distances from one packet's timestamps to the next's; or, with elementary timing, with
/// those of their own headers.
class CTsVideoFramer {
public:
    /// Both are borrowed.
    CTsVideoFramer(CTsVideoClock& clock, CFrameOutput& output) : m_clock(clock), m_output(output) {}

    /// A run begins; the buffer is empty.
    void Begin(ETsTiming timing);
    /// The packets go here.
    CPesBuffer& GetBuffer() { return m_buffer; }
    /// The video is MPEG-4, else MPEG-2.
    void SetMpeg4(bool bMpeg4) { m_bMpeg4 = bMpeg4; }
    /// The PES packet in the buffer is complete.
    void OnPes();
    /// The stream has ended: what there is left is one frame.
    void Flush();

private:
    std::optional<std::size_t> FindFrameStart(Bytes payload) const;
    void SplitFrames(std::int64_t llNextDts);
    bool HasFrameStart();
    void FindFrameEnds();
    void QueueFrame(std::size_t nSize);

    CTsVideoClock& m_clock;
    CFrameOutput& m_output;
    CPesBuffer m_buffer;
    ETsTiming m_timing = ETsTiming::Pes;
    bool m_bMpeg4 = false;                 // see SetMpeg4
    PesTimestamps m_next = kNoTimestamps;  // of the next frame
    std::vector<std::size_t> m_ends;       // of the frames in the buffer; kept for its memory
};

}  // namespace kest

#pragma once

#include <cstdint>
#include <optional>

#include "demux/BigEndian.h"
#include "demux/FrameOutput.h"
#include "demux/ParseSettings.h"
#include "plumbing/FrameAccumulator.h"

namespace kest {

/// Cuts MPEG audio (ISO/IEC 11172-3, ISO/IEC 13818-3) at its audio frames, whatever valid header they have. It
/// takes the payload between two timestamps at a time; a block that it queues reaches from the first audio frame
/// that begins in one payload to the first one that begins in the next, and has the timestamp of the former.
///
/// Frames are followed by their lengths with the padding slot. Where no header is in its place, the next frame is
/// the one behind which another of its kind begins, or which ends with what has come; what lies between stays in
/// its block. What comes before the first frame, and payloads without any, are dropped, or queued as they come when
/// draining. Audio in free format has no length, and so no frames.
class CMpegAudioCutter {
public:
    /// @param output  where the blocks go; borrowed.
    explicit CMpegAudioCutter(CFrameOutput& output) : m_output(output) {}

    /// Drops what is being assembled.
    void Reset();
    /// Nothing is dropped, if the output splits long blocks. Before the first `Push` of a run.
    void SetDrain(bool bDrain) { m_bDrain = bDrain; }
    /// Takes the payload that belongs to one timestamp.
    /// @param llPts  the timestamp, 90 kHz; kNoFrameTime: what came before the first one.
    void Push(Bytes data, std::int64_t llPts);
    /// The stream has ended: queues what there is.
    void Flush() { Queue(m_held.GetFill()); }
    /// Bytes that are being assembled.
    std::uint32_t GetFill() const { return m_held.GetFill(); }

private:
    std::optional<std::size_t> FindFrame(Bytes bytes, std::size_t nFrom);
    void Queue(std::size_t nSize);

    CFrameOutput& m_output;
    CFrameAccumulator m_held{70000};      // a payload, and less than an audio frame before it
    bool m_bDrain = false;                // see SetDrain
    bool m_bLocked = false;               // what is held begins with an audio frame
    std::int64_t m_llPts = kNoFrameTime;  // of its block; none: only when draining it is one
};

}  // namespace kest

#pragma once

#include <cstdint>

#include "demux/BigEndian.h"
#include "demux/FrameOutput.h"
#include "demux/ParseSettings.h"

namespace kest {

/// Cuts the audio of an MPEG-1 system stream at the headers of its audio frames (ISO/IEC 11172-3).
///
/// It takes the payload between two packets with timestamps at a time. A block that it queues reaches, as a
/// rule, from the first audio frame that begins in one payload to the first one that begins in the next. It
/// queues nothing before two payloads have shown headers of audio frames of the same length.
///
/// Only some headers are taken for the beginning of an audio frame: those of stereo mode with the copyright,
/// original and emphasis bits clear. To settle the length they must also be of 44100 Hz with a padding slot, or
/// of another rate without; to cut there, of 48000 or 32000 Hz with the private bit clear. Where nothing can be
/// cut, every payload is a block of its own.
///
/// When draining, nothing is lost: before the length is settled, and in front of the first timestamp, every payload is a
/// block of its own.
class CMpeg1AudioFramer {
public:
    /// @param output  where the blocks go; borrowed.
    explicit CMpeg1AudioFramer(CFrameOutput& output) : m_output(output) {}

    /// A run begins: `Reset`, and the calls are counted anew.
    void Begin();
    /// Drops the block that is being assembled, and the length that was settled.
    void Reset();
    /// Nothing is dropped, if the output splits long blocks. Before the first `Push` of a run.
    void SetDrain(bool bDrain) { m_bDrain = bDrain; }
    /// Takes the payload that belongs to one timestamp.
    /// @param data   may be empty.
    /// @param llPts  the timestamp, 90 kHz; kNoFrameTime, when draining, for what has none.
    void Push(Bytes data, std::int64_t llPts);
    /// The stream has ended: queues what there is.
    void Flush();

private:
    enum class EState {
        Locking,    // the first header settles the length of the audio frames
        Verifying,  // a header of another payload must have the same length
        Cutting
    };

    void Settle(Bytes data);
    void Cut(Bytes data, std::int64_t llPts, std::size_t nHeld);
    std::size_t FindCut(Bytes data, std::size_t nHeld) const;
    void Append(Bytes data);
    FRAME_INFO MakeInfo() const;
    void Queue();

    CFrameOutput& m_output;            // where the block is assembled
    EState m_state = EState::Locking;  // see EState
    unsigned m_nCalls = 0;             // of `Push` in this run, as far as kCallsToSettle
    std::uint32_t m_nFrameLength = 0;  // of the reference header, bytes
    std::int64_t m_llPendingPts = 0;   // timestamp of the block that is being assembled
    bool m_bDrain = false;             // see SetDrain
};

}  // namespace kest

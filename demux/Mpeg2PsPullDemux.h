#pragma once

#include <cstdint>

#include "demux/Mpeg2PsDemux.h"

namespace kest {

/// The program-stream demuxer that can read a source itself: frames have byte positions then, parsing can
/// restart at a byte position, and the end of the source puts an end-of-stream record into both queues.
///
/// At other rates than 1.0 it delivers video frames alone, without timestamps (trick play).
///
/// Without a reader it is in push operation and parses what is pushed; positions are 0 then, and the end of
/// the stream is up to whoever pushes.
class KestMpeg2PsPullDemux final : public KestMpeg2PsDemux {
public:
    static constexpr std::uint32_t kStopBoundMs = 1000;

    /// @param nStopBoundMs  see DemuxSizes.
    explicit KestMpeg2PsPullDemux(std::uint32_t nStopBoundMs = kStopBoundMs)
        : KestMpeg2PsDemux(nStopBoundMs) {
        EnableTrickPlay();
    }

    ~KestMpeg2PsPullDemux() { EndThread(); }

    /// The source to read; none for push operation. Borrowed: it stays valid until the thread has ended. Set
    /// before `Open`, or while the thread is stopped.
    using CDemuxWorker::SetReader;
    /// Asks for a restart at a file offset and empties both queues; in push operation, what was pushed before
    /// is dropped. A run of a source begins where the last one was asked to, else at 0. Any thread.
    /// @param llStart  an offset that the source does not have is its end.
    void NewSegment(std::int64_t llStart) { RequestSegment(llStart); }
    /// The same, and sets the byte after the last one to read. Without an end position the last, partial
    /// 16384 bytes of a source are not read.
    void NewSegment(std::int64_t llStart, std::int64_t llStop) {
        SetEnd(llStop);
        RequestSegment(llStart);
    }
    /// Plays at another rate from the present position on, or from that of a segment which is requested: see
    /// CTrickPlay. At 1.0 all is parsed; at other rates a source needs an end position, and pushed bytes bring
    /// nothing. Any thread.
    /// @param dRate  counts to its first decimal.
    /// @return false, with nothing changed, for a rate that is no number or whose tenfold is no `int`.
    bool SetRate(double dRate);
    /// The rate is not 1.0; and there is nothing to deliver at this rate, for now. Any thread.
    using CDemuxWorker::IsTrickPlay;
    using CDemuxWorker::IsTrickPlayIdle;
};

}  // namespace kest

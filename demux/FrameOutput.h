#pragma once

#include <cstdint>
#include <memory>

#include "demux/BigEndian.h"
#include "demux/FrameInfo.h"
#include "plumbing/BlockMemFile.h"
#include "plumbing/FrameAccumulator.h"

namespace kest {

/// Sizes of one elementary stream's output.
struct FrameOutputSizes {
    std::uint32_t nMaxFrame;    // bytes of a frame that are taken in
    std::uint32_t nBlockSize;   // of a queue that the demuxer makes itself: bytes a block
    std::uint32_t nBlockCount;  // and blocks
};

/// The output of one elementary stream: assembles its frames and puts them into its block queue.
///
/// `Append`, `Queue`, `QueueEnd` and `Drop` belong to the demuxer's thread, the rest to its owner's.
class CFrameOutput {
public:
    explicit CFrameOutput(const FrameOutputSizes& sizes) : m_sizes(sizes), m_accumulator(sizes.nMaxFrame) {}

    /// Makes a queue, or takes another's.
    /// @param pQueue  its write side opened by its owner; none: a queue of the output's own, with the writer
    ///                and a reader (handle 0) opened here.
    void Attach(CBlockMemFileEx* pQueue);
    /// Lets go of the queue; its sides are closed.
    void Detach();
    /// Opens or closes the sides of a queue of its own; whoever waits on them gives up then.
    void OpenSides();
    void CloseSides();
    /// The queue in use; only after `Attach`.
    CBlockMemFileEx& GetQueue() { return *m_pQueue; }

    /// Adds bytes to the frame; those that would make it longer than it may be are left out, all of them.
    void Append(Bytes payload);
    /// The frame has no bytes.
    bool IsEmpty() const { return m_accumulator.GetFill() == 0; }
    /// Puts the frame into the queue, waiting for room without limit, and begins an empty one. It is cut to the
    /// queue's blocks. A frame that was begun before the queue was last emptied belongs to what was emptied, and
    /// is dropped.
    void Queue(const FRAME_INFO& info);
    /// Drops the frame and puts an end-of-stream record into the queue, waiting for room without limit.
    /// @param bSuperseded  set, before the queue is emptied, by whoever asks for another place of the stream:
    ///                     the end is then of no interest.
    void QueueEnd(const std::atomic<bool>& bSuperseded);
    /// Drops the frame.
    void Drop() { m_accumulator.Reset(); }

private:
    const FrameOutputSizes m_sizes;
    std::unique_ptr<CBlockMemFileEx> m_pOwnQueue;  // set when the output made it
    CBlockMemFileEx* m_pQueue = nullptr;           // the queue in use
    CFrameAccumulator m_accumulator;               // the frame
    std::uint32_t m_nGeneration = 0;               // of the queue when the frame was begun
};

}  // namespace kest

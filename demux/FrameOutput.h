#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "demux/BigEndian.h"
#include "demux/FrameInfo.h"
#include "demux/PesHeader.h"
#include "plumbing/BlockMemFile.h"

namespace kest {

/// Sizes of one elementary stream's output.
struct FrameOutputSizes {
    std::uint32_t nMaxFrame;    // bytes of a frame that are taken in
    std::uint32_t nBlockSize;   // of a queue that the demuxer makes itself: bytes a block
    std::uint32_t nBlockCount;  // and blocks
};

/// The output of one elementary stream: assembles its frames straight in the blocks of its queue.
///
/// A frame that was begun before the queue was last emptied belongs to what was emptied, and is dropped; so
/// is a frame whose queue was closed when it was begun. `Append`, `Queue`, `QueueFrame`, `QueueEnd` and
/// `Drop` belong to the demuxer's thread, the rest to its owner's.
class CFrameOutput {
public:
    explicit CFrameOutput(const FrameOutputSizes& sizes) : m_sizes(sizes) {}

    /// Makes a queue, or takes another's.
    /// @param pQueue  its write side opened by its owner; none: a queue of the output's own.
    void Attach(CBlockMemFileEx* pQueue);
    /// Lets go of the queue; its sides are closed.
    void Detach();
    /// Opens, or closes, the writer and a reader (handle 0) of a queue of its own. Who waits gives up then.
    void OpenSides();
    void CloseSides();
    /// The queue in use; only after `Attach`.
    CBlockMemFileEx& GetQueue() { return *m_pQueue; }

    /// Adds bytes, at least one, to the frame; with its first bytes it waits without limit for a free block.
    /// Bytes that would make the frame longer than it may be are left out, all of them.
    void Append(Bytes payload);
    /// Whether the frame may have n bytes more.
    bool HasRoom(std::size_t n) const { return n <= m_sizes.nMaxFrame - m_nFill; }
    /// Bytes of the frame, with those that its block has no room for.
    std::uint32_t GetFill() const { return m_nFill; }
    /// The frame has no bytes.
    bool IsEmpty() const { return m_nFill == 0; }
    /// Gives the frame, cut to its block, to the readers of the queue, and begins an empty one. For a frame
    /// without bytes it waits without limit for a free block.
    void Queue(const FRAME_INFO& info);
    /// Queues a frame, of at least one byte, that is complete already.
    void QueueFrame(Bytes frame, const PesTimestamps& timestamps);
    /// Drops the frame and puts an end-of-stream record into the queue, waiting without limit for a free
    /// block.
    /// @param bSuperseded  set, before the queue is emptied, by whoever asks for another place of the stream:
    ///                     the end is then of no interest.
    void QueueEnd(const std::atomic<bool>& bSuperseded);
    /// Drops the frame.
    void Drop() { m_nFill = 0; }

private:
    const FrameOutputSizes m_sizes;
    std::unique_ptr<CBlockMemFileEx> m_pOwnQueue;  // set when the output made it
    CBlockMemFileEx* m_pQueue = nullptr;           // the queue in use
    BlockWrite m_block;                            // where the frame is, as far as it fits; none: it is lost
    std::uint32_t m_nFill = 0;                     // see GetFill
};

}  // namespace kest

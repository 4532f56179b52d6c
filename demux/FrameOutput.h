#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "demux/BigEndian.h"
#include "demux/FrameInfo.h"
#include "demux/ParseCounters.h"
#include "demux/ParseSettings.h"
#include "demux/PesHeader.h"
#include "plumbing/BlockMemFile.h"

namespace kest {

/// Sizes of one elementary stream's output.
struct FrameOutputSizes {
    std::uint32_t nMaxFrame;    // bytes of a frame that are taken in
    std::uint32_t nBlockSize;   // of a queue that the demuxer makes itself: bytes a block
    std::uint32_t nBlockCount;  // and blocks
};

/// The record of a frame without times.
constexpr FRAME_INFO kNoTimes = [] {
    FRAME_INFO info{};
    info.llPts = info.llDts = kNoFrameTime;
    return info;
}();

/// The output of one elementary stream: assembles its frames straight in the blocks of its queue.
///
/// A frame that was begun before the queue was last emptied belongs to what was emptied, and is dropped; so
/// is a frame whose queue was closed when it was begun. `Append`, `Queue`, `QueueFrame`, `QueueEnd`, `Drop` and
/// `Lose` belong to the demuxer's thread, `GetCounters` to any, the rest to its owner's.
class CFrameOutput {
public:
    explicit CFrameOutput(const FrameOutputSizes& sizes) : m_sizes(sizes), m_nMaxFrame(sizes.nMaxFrame) {}

    /// Makes a queue, or takes another's.
    /// @param pQueue  its write side opened by its owner; none: a queue of the output's own.
    void Attach(CBlockMemFileEx* pQueue);
    /// Gives the queue back; its sides are closed.
    void Detach();
    /// Opens, or closes, the writer and a reader (handle 0) of a queue of its own. Who waits gives up then.
    void OpenSides();
    void CloseSides();
    /// The queue in use; only after `Attach`.
    CBlockMemFileEx& GetQueue() { return *m_pQueue; }
    /// Extensions, while no thread uses the output. A queue of its own gets new blocks when they are too short.
    /// @param nLeastFrame  a frame may have as many bytes, if not more; 0: as it was made.
    /// @param bSplits      nothing of a frame is left out: what its block has no room for goes on in the next one, as
    ///                     a frame without times.
    void SetLimits(std::uint32_t nLeastFrame, bool bSplits);

    /// Lets whoever asks for another place of the stream say so, before he empties the queue: what begins then is of no
    /// interest and is dropped. Set before the first frame, if at all.
    void SetSuperseded(const std::atomic<bool>& bSuperseded) { m_pbSuperseded = &bSuperseded; }

    /// Adds bytes, at least one, to the frame; with its first bytes it waits without limit for a free block, and
    /// with those of the next block when it is split. Otherwise, bytes that would make the frame longer than it
    /// may be are left out, all of them.
    /// @param info  of the frame; queued with the first block of one that is split.
    void Append(Bytes payload, const FRAME_INFO& info = kNoTimes);
    /// Whether the frame may have n bytes more.
    bool HasRoom(std::size_t n) const { return m_bSplits || n <= m_nMaxFrame - m_nFill; }
    /// Bytes of the frame, with those that its block has no room for; of one that was split, those of its last block.
    std::uint32_t GetFill() const { return m_nFill; }
    /// The frame has no bytes.
    bool IsEmpty() const { return m_nFill == 0; }
    /// Gives the frame, cut to its block, to the readers of the queue, and begins an empty one. For a frame
    /// without bytes it waits without limit for a free block.
    /// @param info  of the frame; the rest of one that was split has none of its times.
    void Queue(const FRAME_INFO& info);
    /// Queues a frame, of at least one byte, that is complete already.
    void QueueFrame(Bytes frame, const PesTimestamps& timestamps);
    /// Loses the frame and puts an end-of-stream record into the queue, waiting without limit for a free
    /// block.
    void QueueEnd();
    /// Drops the frame, because somebody wants it so: it is not counted. The stream begins, or goes on elsewhere.
    void Drop();
    /// Drops the frame, which is a loss.
    void Lose();
    /// Payload that comes into no frame.
    void CountLost(std::size_t nBytes) { m_counters.llBytesLost += nBytes; }
    /// Counts a frame that was queued past this output.
    void CountQueued(const FRAME_INFO& info);

    /// What has become of the frames so far. Any thread.
    const FrameCounters& GetCounters() const { return m_counters; }

private:
    BlockWrite BeginBlock();
    std::size_t GetBlockRoom() const;
    void Continue(const FRAME_INFO& info);
    void Clear();

    const FrameOutputSizes m_sizes;
    std::uint32_t m_nMaxFrame;                          // bytes of a frame that are taken in
    bool m_bSplits = false;                             // see SetLimits
    std::unique_ptr<CBlockMemFileEx> m_pOwnQueue;       // set when the output made it
    CBlockMemFileEx* m_pQueue = nullptr;                // the queue in use
    const std::atomic<bool>* m_pbSuperseded = nullptr;  // see SetSuperseded
    BlockWrite m_block;             // where the frame is, as far as it fits; none: it is lost
    std::uint32_t m_nFill = 0;      // see GetFill
    bool m_bContinued = false;      // blocks of the frame have been queued
    bool m_bBegins = true;          // no frame with a discontinuity has been queued since `Drop`
    std::uint64_t m_llLeftOut = 0;  // bytes that `Append` has left out of the frame
    FrameCounters m_counters;       // see GetCounters
};

}  // namespace kest

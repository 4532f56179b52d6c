#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "demux/FrameInfo.h"
#include "plumbing/BlockMemFile.h"

namespace kest {

/// The frame queue of an output pin: a demuxer writes it, the pin is its only reader. Any thread may open and
/// close it; one thread reads.
class CFrameQueue {
public:
    static constexpr std::uint32_t kBlocks = 80;

    /// A frame that was taken, or what came instead.
    struct Taken {
        FRAME_INFO info{};  // all zero when nothing was taken
        int nLength = 0;    // bytes of the frame; 0: an empty block, or none; negative: the queue is closed
        std::uint32_t nGeneration = 0;  // of the queue when the frame was taken, see IsPast
    };

    /// @param nBlockSize  bytes of a block. Without memory for the blocks the queue is not there: see Exists.
    explicit CFrameQueue(std::uint32_t nBlockSize) noexcept;

    /// The blocks could be had. If not, opening and closing do nothing and no frame comes.
    bool Exists() const { return m_pQueue != nullptr; }
    /// The write side, for a demuxer.
    CBlockMemFileEx& GetBlocks() { return *m_pQueue; }
    /// Bytes of a block; 0 when there are none.
    std::uint32_t GetBlockSize() const { return m_pQueue ? m_pQueue->GetBlockSize() : 0; }
    /// Makes other blocks, while both sides are closed. Throws for want of memory, and keeps the old ones.
    void SetBlockSize(std::uint32_t nBlockSize);
    void OpenWriter();
    /// Opens the read side; the one before must have been closed.
    void OpenReader();
    /// Closes both sides, which wakes whoever waits on them.
    void Close();

    /// Takes the next frame.
    /// @param nTimeoutMs  kInfinite: until a frame comes, the queue is emptied or closed.
    Taken Read(std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs);
    /// All frames have been taken, and whoever takes them has come back for the next.
    bool IsDrained() const { return GetPending() == 0 && m_bReaderWaits; }  // in this order
    /// The queue has been emptied or closed since a frame of this generation was taken.
    bool IsPast(std::uint32_t nGeneration) const;
    /// Frames that wait for the pin; blocks that the demuxer can write at once; blocks in all.
    std::uint32_t GetPending() const { return m_pQueue ? m_pQueue->GetPending(m_bmHandle) : 0; }
    std::uint32_t GetFreeBlocks() const { return m_pQueue ? m_pQueue->GetFreeBlocks() : 0; }
    static constexpr std::uint32_t GetBlockCount() { return kBlocks; }

private:
    void WaitForFrame(std::uint32_t nTimeoutMs);

    std::unique_ptr<CBlockMemFileEx> m_pQueue;  // null: there was no memory
    std::atomic<int> m_bmHandle{-1};            // the pin's reader; -1 when closed
    std::atomic<bool> m_bReaderWaits{false};    // Read waits for a frame and has taken none
};

}  // namespace kest

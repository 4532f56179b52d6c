#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/CritSec.h"
#include "platform/Event.h"

namespace kest {

/// A ring of a fixed number of fixed-size blocks, treated as a memory file with one write side and up to five
/// read sides. This base keeps the blocks, the sides, their events and locks; CBlockMemFileEx moves the data.
///
/// Every open reader sees every block written after it was opened, in order, at its own pace; the writer
/// waits for the slowest one. To restart, both sides are closed and reopened together: the write side always
/// starts again at block 0.
///
/// Threads: one writer, one reader per handle; `Reset`, `WClose` and `RClose` may come from any other thread.
/// Lock order: m_csWrite, m_csWriter, m_csReaders, a reader's cs. A transfer holds the lock of its own side
/// while it copies, so that a `Reset` or a closing never lets one side overwrite what
/// the other is copying; otherwise nobody contends for these locks. No lock is held while waiting.
class CBlockMemFile {
public:
    static constexpr int kMaxReaders = 5;

    virtual ~CBlockMemFile() = default;
    CBlockMemFile(const CBlockMemFile&) = delete;
    CBlockMemFile& operator=(const CBlockMemFile&) = delete;

    /// Opens the write side at block 0. @return 0, or -2 when it is open already.
    int WOpen();
    /// Closes the write side and wakes a writer that waits.
    void WClose();
    /// Opens a reader at the present write position.
    /// @return its handle, the lowest free one of 0..4; -1 when five are open.
    int ROpen();
    /// Closes a reader and wakes it when it waits; the room it held back is the writer's again. Ignores a
    /// handle that is not open.
    void RClose(int nReader);
    /// Empties the queue for every reader and wakes all waiters, who give up: the block of a writer that
    /// waits for room is not stored. The sides stay as they are.
    void Reset();

    /// Blocks that can be written without waiting; all of them when no reader is open.
    std::uint32_t GetFreeBlocks() const;
    /// Blocks written and not yet taken by this reader; 0 for a handle outside 0..4.
    std::uint32_t GetPending(int nReader) const;
    /// Counts how often this reader's queue has been emptied or the reader closed; 0 for a handle outside
    /// 0..4. A block whose generation is past belongs to what was emptied.
    std::uint32_t GetGeneration(int nReader) const;
    /// Counts how often the queue has been emptied or its write side closed. A block that was gathered in a
    /// past generation belongs to what was emptied: see WriteEx.
    std::uint32_t GetWriteGeneration() const { return m_nWriterBreaks; }
    std::uint32_t GetBlockSize() const { return m_nBlockSize; }
    std::uint32_t GetBlockCount() const { return m_nBlockCount; }

protected:
    struct ReaderRecord {
        std::atomic<bool> bOpen{false};          // this handle is in use
        bool bUsedBefore = false;                // it has been open before: its event is set on reopening
        std::uint32_t nReadIndex = 0;            // the block taken next
        std::atomic<std::uint32_t> nPending{0};  // blocks written and not taken
        std::atomic<std::uint32_t> nBreaks{0};   // closings and resets so far
        CEvent event;                            // manual-reset; set by a write, RClose and Reset
        CCritSec cs;                             // held by the reader while it takes a block, RClose, Reset
    };

    CBlockMemFile(std::uint32_t nBlockSize, std::uint32_t nBlockCount);

    std::span<std::uint8_t> Block(std::uint32_t nIndex);
    std::uint32_t Next(std::uint32_t nIndex) const { return nIndex + 1 == m_nBlockCount ? 0 : nIndex + 1; }
    /// Sets the writer's event when the writer waits and a block is free.
    void WakeWriter();

    const std::uint32_t m_nBlockSize;               // bytes per block
    const std::uint32_t m_nBlockCount;              // number of blocks
    std::unique_ptr<std::uint8_t[]> m_pBlocks;      // block i begins at i × m_nBlockSize
    std::unique_ptr<std::uint32_t[]> m_pLengths;    // stored length of each block
    std::uint32_t m_nReaders = 0;                   // open readers
    CCritSec m_csReaders;                           // guards opening and closing of readers
    CCritSec m_csWriter;                            // guards opening and closing of the write side
    std::atomic<bool> m_bWriterOpen{false};         // the write side is open
    std::uint32_t m_nWriteIndex = 0;                // the block written next; under m_csWrite
    CEvent m_evWriter{true, true};                  // manual-reset; set by a freed block, WClose and Reset
    std::atomic<std::uint32_t> m_nWriterBreaks{0};  // closings of the write side and resets so far
    CCritSec m_csWrite;  // held by the writer while it stores a block, WClose, Reset
    std::array<ReaderRecord, kMaxReaders> m_aReader;  // by handle
};

/// The block queue: whole frames, each with an info record of fixed size beside it.
///
/// A block of length 0 is stored and delivered like any other; since `ReadEx` then returns 0, the info record
/// is the only way to tell it from a read that found nothing: clear the record before reading.
class CBlockMemFileEx : public CBlockMemFile {
public:
    /// @param nBlockSize   bytes per block.
    /// @param nBlockCount  number of blocks, at least 1.
    /// @param nInfoSize    bytes per info record.
    /// All storage is allocated here.
    CBlockMemFileEx(std::uint32_t nBlockSize, std::uint32_t nBlockCount, std::uint32_t nInfoSize);

    /// Stores one block, waiting for a free one.
    /// @param data        cut to the block size when it is longer; a trace text says so.
    /// @param pInfo       nInfoSize bytes, copied.
    /// @param nTimeoutMs  kInfinite: without limit.
    /// @param nGeneration  the generation that the block belongs to; without it, that of the call.
    /// @return the length stored; 0 when no block became free, or its generation is past, be it that a reset
    ///         came meanwhile (or the length is 0); -1 when the write side is not open.
    int WriteEx(std::span<const std::uint8_t> data, const void* pInfo, std::uint32_t nTimeoutMs,
                std::uint32_t nGeneration);
    int WriteEx(std::span<const std::uint8_t> data, const void* pInfo, std::uint32_t nTimeoutMs);
    /// Takes the reader's next block, waiting for one.
    /// @param dest   should hold a whole block; a block that is longer is cut to it, and a trace text says
    /// so.
    /// @param pInfo  receives nInfoSize bytes when a block was taken.
    /// @param pnGeneration  receives the generation that the block was taken in; may be null.
    /// @return the block's length; 0 when none came within the time-out, or the reader was closed or reset
    ///         meanwhile; -1 for a handle outside 0..4; -2 when that reader is not open.
    int ReadEx(int nReader, std::span<std::uint8_t> dest, void* pInfo, std::uint32_t nTimeoutMs,
               std::uint32_t* pnGeneration = nullptr);

private:
    std::span<std::uint8_t> Info(std::uint32_t nIndex);

    const std::uint32_t m_nInfoSize;          // bytes per info record
    std::unique_ptr<std::uint8_t[]> m_pInfo;  // record i belongs to block i
};

}  // namespace kest

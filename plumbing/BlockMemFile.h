#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "plumbing/BufferSides.h"

namespace kest {

/// A ring of a fixed number of fixed-size blocks, treated as a memory file with one write side and up to five
/// read sides. This base keeps the blocks; CBlockMemFileEx moves the data.
///
/// Every open reader sees every block written after it was opened, in order, at its own pace; the writer
/// waits for the slowest one. To restart, both sides are closed and reopened together: the write side always
/// starts again at block 0, and so does a reader that is still open then.
///
/// Threads: one writer, one reader per handle; `Reset`, `WClose` and `RClose` may come from any other thread.
/// Locks and waits: CBufferSides, with a block for a unit. A block is written before it is counted, and copied
/// in and out under the lock of its side.
class CBlockMemFile : public CBufferSides {
public:
    virtual ~CBlockMemFile() = default;

    /// Opens the write side at block 0. @return 0, or -2 when it is open already.
    int WOpen() { return OpenWriteSide(1) ? 0 : -2; }
    /// Closes the write side and wakes a writer that waits.
    void WClose() { CloseWriteSide(); }
    /// Opens a reader at the present write position.
    /// @return its handle, the lowest free one of 0..4; -1 when five are open.
    int ROpen() { return OpenReadSide(1); }
    /// Closes a reader and wakes it when it waits; the room it held back is the writer's again. Ignores a
    /// handle that is not open.
    void RClose(int nReader) { CloseReadSide(nReader); }
    /// Empties the queue for every reader and wakes all waiters, who give up: the block of a writer that
    /// waits for room, or has not yet committed it, is not stored. The sides stay as they are.
    void Reset() { Empty(ESides::Keep, /*bWake=*/true); }

    /// Ends the wait of a writer: it goes on when it has its block, and gives up otherwise.
    void WakeWriter() { WakeWaitingWriter(); }

    /// Blocks that can be written without waiting; all of them when no reader is open.
    std::uint32_t GetFreeBlocks() const { return GetRoom(); }
    /// Blocks written and not yet taken by this reader; 0 when it is not open.
    std::uint32_t GetPending(int nReader) const { return GetPendingUnits(nReader); }
    /// Waits until a block is pending for this reader, and takes nothing.
    /// @return false: the wait gave up, or there is no such reader.
    bool WaitForBlock(int nReader, std::uint32_t nTimeoutMs) {
        return BeginRead(nReader, 1, nTimeoutMs).lock.owns_lock();
    }
    /// Counts how often this reader's queue has been emptied or the reader closed; 0 for a handle outside
    /// 0..4. A block whose generation is past belongs to what was emptied.
    std::uint32_t GetGeneration(int nReader) const;
    /// Counts how often the queue has been emptied or its write side closed. A block that was begun in a past
    /// generation belongs to what was emptied: see WriteEx.
    std::uint32_t GetWriteGeneration() const { return m_writer.nGeneration; }
    std::uint32_t GetBlockSize() const { return m_nBlockSize; }
    /// Makes other blocks, which take memory as they are used. While no side is open; without memory, it throws and
    /// leaves the old ones.
    void SetBlockSize(std::uint32_t nBlockSize);
    std::uint32_t GetBlockCount() const { return m_nUnits; }

protected:
    /// @param nBlockCount  at least 1.
    CBlockMemFile(std::uint32_t nBlockSize, std::uint32_t nBlockCount);

    std::span<std::uint8_t> Block(std::uint32_t nIndex);

    std::uint32_t m_nBlockSize;                   // bytes per block
    std::unique_ptr<std::uint8_t[]> m_pBlocks;    // block i begins at i × m_nBlockSize
    std::unique_ptr<std::uint32_t[]> m_pLengths;  // stored length of each block
};

/// What a read of a block queue brought.
struct BlockRead {
    enum class EStatus {
        Taken,
        Nothing,
        BadHandle,
        NotOpen
    };  // Nothing: time-out, closed or emptied meanwhile

    EStatus status = EStatus::Nothing;
    std::uint32_t nLength = 0;      // bytes of the block; 0 is a length like any other
    std::uint32_t nGeneration = 0;  // of the reader when the block was taken, see GetGeneration

    bool IsTaken() const { return status == EStatus::Taken; }
};

/// The block that is written next, in place.
struct BlockWrite {
    std::span<std::uint8_t>
        storage;                    // the whole block; empty: the wait gave up, or the write side is not open
    std::uint32_t nGeneration = 0;  // of the write side when the block was begun, see GetWriteGeneration
};

/// The block queue: whole frames, each with an info record of fixed size beside it.
class CBlockMemFileEx : public CBlockMemFile {
public:
    /// @param nBlockSize   bytes per block.
    /// @param nBlockCount  number of blocks, at least 1.
    /// @param nInfoSize    bytes per info record.
    /// All storage is allocated here.
    CBlockMemFileEx(std::uint32_t nBlockSize, std::uint32_t nBlockCount, std::uint32_t nInfoSize);

    /// Gives the block that is written next to the writer, who fills it in place, waiting for a free one.
    /// Until it is committed no reader sees it, and every call gives the same block. After a `Reset` or `WClose`
    /// it can no longer be committed, but written to it may be until the writer begins or writes the next.
    BlockWrite BeginBlock(std::uint32_t nTimeoutMs);
    /// Stores the block that was begun.
    /// @param nLength  its bytes, at most the block size.
    /// @param pInfo    nInfoSize bytes, copied.
    /// @return the length stored; 0 when the queue was emptied or the write side closed since the block was
    ///         begun, or it was committed before (or the length is 0); -1 when the write side is not open.
    int CommitBlock(const BlockWrite& block, std::uint32_t nLength, const void* pInfo);
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
    /// @param dest   should hold a whole block; a block that is longer is cut to it, and a trace text says so.
    /// @param pInfo  receives nInfoSize bytes when a block was taken.
    BlockRead ReadEx(int nReader, std::span<std::uint8_t> dest, void* pInfo, std::uint32_t nTimeoutMs);

private:
    int Store(std::uint32_t nLength, const void* pInfo);
    std::uint8_t* Info(std::uint32_t nIndex) { return m_pInfo.get() + std::size_t{nIndex} * m_nInfoSize; }

    const std::uint32_t m_nInfoSize;          // bytes per info record
    std::unique_ptr<std::uint8_t[]> m_pInfo;  // record i belongs to block i
};

}  // namespace kest

#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "plumbing/BufferSides.h"

namespace kest {

/// Results of CRingBuffer's operations that are no byte counts.
enum : int {
    RB_E_WRITER_OPEN = -3001,       // OpenWriter while the write side is open
    RB_E_TOO_BIG = -3002,           // declared chunk too large for the capacity
    RB_E_BAD_SIZE = -3003,          // size 0 or above the side's declared chunk; ReadAll: nothing pending
    RB_E_TOO_MANY_READERS = -3004,  // five readers are open
    RB_E_NOT_OPEN = -3006,          // no such reader, or the side is not open
    RB_E_AT_CODE = -3010,           // ReadToCode: a code stands at the read position, nothing consumed
};

/// The byte pipe between a producer that writes raw stream bytes in chunks and up to five consumers that each
/// read the same bytes at their own pace, in the memory of one process.
///
/// The writer never overtakes the slowest open reader: it waits for room. A reader sees only what is written
/// after it was opened. A transfer moves all of its bytes or none. 0 means that a wait gave up: after its
/// time-out, because its side was closed, a reader also because the buffer was emptied, the writer also because of
/// `WakeWriter` without enough room. The caller decides whether to try again. A write that waits for room is
/// written when the buffer is flushed. Times are milliseconds, kInfinite without limit.
///
/// Threads: one writer and one thread per reader; opening, closing and the operations on the whole buffer may
/// come from any thread. Locks and waits: CBufferSides. A transfer holds its own side's lock while it copies.
/// No operation allocates after construction.
class CRingBuffer : public CBufferSides {
public:
    /// A buffer without storage: every opening of a side fails.
    CRingBuffer() : CRingBuffer(0) {}
    /// @param nCapacity   bytes of storage, zero-filled.
    /// @param nReadBatch  bytes that are worth waking a reader for while they come fast; 0: those that it wants.
    explicit CRingBuffer(std::uint32_t nCapacity, std::uint32_t nReadBatch = 0);
    CRingBuffer(const CRingBuffer&) = delete;
    CRingBuffer& operator=(const CRingBuffer&) = delete;

    // ---------------- write side

    /// Opens the write side at the start of the storage. Readers that are still open go there too, and what
    /// they had pending is dropped.
    /// @param nMaxChunk  the largest write, at most a third of the capacity.
    /// @return 0, RB_E_TOO_BIG, RB_E_WRITER_OPEN.
    int OpenWriter(std::uint32_t nMaxChunk);
    /// Closes the write side and wakes a writer that waits. Readers stay open.
    void CloseWriter();
    /// Copies `data` into the buffer when all of it has room, waiting for the room.
    /// @return the byte count, 0, RB_E_NOT_OPEN.
    int Write(std::span<const std::uint8_t> data, std::uint32_t nTimeoutMs);
    /// `Write` without limit of time.
    int WriteWait(std::span<const std::uint8_t> data);
    /// The storage at the write position, for writing in place up to the end of the storage.
    /// @param nFree  receives the free room in bytes, which may go on at the start of the storage.
    /// @return the bytes from the write position to the end of the storage, or to the end of the room.
    std::span<std::uint8_t> GetWritePointer(std::uint32_t& nFree);
    /// Gives the readers n bytes that were written in place, behind those committed before.
    /// @param n  at most what `GetWritePointer` gave.
    /// @return n; 0 when the buffer was emptied meanwhile, so that the bytes are nobody's; RB_E_NOT_OPEN;
    ///         RB_E_BAD_SIZE when n bytes have no room, or reach beyond the end of the storage.
    int Commit(std::uint32_t n);
    /// The writer's declared chunk; 0 when the side is closed.
    std::uint32_t GetWriterMaxChunk() const;
    /// Waits on the writer's event. @return whether it is signalled.
    bool WaitWriterEvent(std::uint32_t nTimeoutMs) { return m_writer.hEvent.Wait(nTimeoutMs); }
    /// Sets the writer's event when the side is open: a write that waits goes on when it has its room, and
    /// gives up otherwise.
    void WakeWriter();
    /// Nothing more will be written, until something is: readers get no more than is pending, and do not wait.
    using CBufferSides::EndWriting;
    using CBufferSides::HasWritingEnded;
    /// Room for the writer: the capacity less what the slowest open reader has pending.
    std::uint32_t GetFreeSize() const { return GetRoom(); }

    // ---------------- read sides

    /// Opens a reader at the present write position.
    /// @param nMaxChunk  the largest read. The largest over all readers and the writer's chunk together may
    ///                   take half the capacity; with the write side closed, the readers' alone a third.
    /// @return the reader's number, the lowest free one of 0..4; RB_E_TOO_MANY_READERS, RB_E_TOO_BIG.
    int OpenReader(std::uint32_t nMaxChunk);
    /// Closes a reader and wakes it when it waits; the room it held back is the writer's again.
    void CloseReader(int nReader);
    /// Takes dest.size() bytes, waiting without limit and whatever chunk was declared.
    /// @return the byte count, 0, RB_E_NOT_OPEN.
    int Read(int nReader, std::span<std::uint8_t> dest);
    /// `Read` with a time-out; RB_E_BAD_SIZE for no bytes or more than the declared chunk.
    int ReadTimed(int nReader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs);
    /// Takes everything pending, at most dest.size() bytes, without waiting and without waking the writer.
    /// @return the byte count, RB_E_BAD_SIZE when nothing is pending, RB_E_NOT_OPEN.
    int ReadAll(int nReader, std::span<std::uint8_t> dest);
    /// Copies dest.size() bytes without taking them, waiting without limit.
    /// @return the byte count, 0, RB_E_NOT_OPEN, RB_E_BAD_SIZE for no bytes or more than the declared chunk.
    int Peek(int nReader, std::span<std::uint8_t> dest);
    /// `Peek` with a time-out.
    int PeekTimed(int nReader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs);
    /// `Peek` without waiting and without the check of the size; 0 when fewer bytes are pending.
    int PeekNow(int nReader, std::span<std::uint8_t> dest);
    /// Takes n pending bytes without copying them. @return n, 0 when fewer are pending, RB_E_NOT_OPEN.
    int Skip(int nReader, std::uint32_t n);
    /// Takes the bytes that stand before the next start code.
    ///
    /// Waits for dest.size() + 4 bytes, then looks for the first of `codes` (32 bits each, in stream order)
    /// that begins within the first dest.size() bytes.
    /// @param codes  one to three codes.
    /// @param dest   receives the bytes before the code, dest.size() of them when there is none; the content
    ///               behind the returned count is undefined.
    /// @return the byte count taken; RB_E_AT_CODE when a code stands at the read position (nothing is taken);
    ///         0; RB_E_NOT_OPEN; RB_E_BAD_SIZE when dest.size() + 4 is above the declared chunk.
    int ReadToCode(int nReader, std::span<const std::uint32_t> codes, std::span<std::uint8_t> dest,
                   std::uint32_t nTimeoutMs);
    /// Waits until n bytes are pending. @return n, 0, RB_E_NOT_OPEN.
    int WaitForData(int nReader, std::uint32_t n, std::uint32_t nTimeoutMs);
    /// Exposes the storage for parsing in place.
    /// @param storage   receives the whole storage; pending bytes begin at nReadPos and wrap at its end.
    /// @return the bytes pending, RB_E_NOT_OPEN. They stay valid until they are taken or the buffer is
    ///         emptied.
    int GetReadPointer(int nReader, std::span<const std::uint8_t>& storage, std::uint32_t& nReadPos);
    /// Bytes pending for the reader; 0 when it is not open.
    std::uint32_t GetAvailable(int nReader) const { return GetPendingUnits(nReader); }

    // ---------------- whole buffer

    /// Empties the buffer and wakes every waiter; the readers stay open, the write side is open afterwards.
    void Flush();
    /// Empties the buffer, wakes every waiter and closes every side.
    void CloseAll();
    /// Empties the buffer as `Flush` does, without setting an event: a wait that is under way goes on, until
    /// somebody wakes it.
    void ClearQuiet();
    /// Writes the status as text, cut to the caller's buffer and always terminated.
    void DumpStatus(std::span<char> text) const;

private:
    static constexpr std::uint32_t kNowhere = 0xFFFFFFFF;
    static constexpr bool m_bOverRide = false;  // override mode: never set, shown by the dump

    int CheckSize(int nReader, std::size_t n) const;
    int Transfer(int nReader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs, bool bTake);
    void CopyOut(const ReaderRecord& reader, std::span<std::uint8_t> dest) const;
    void Restart(ESides sides, bool bWake);

    std::unique_ptr<std::uint8_t[]> m_pBuffer;  // the storage; a unit of CBufferSides is a byte
    std::uint32_t m_nInPlacePos = kNowhere;     // where the next Commit has its bytes; under m_csWrite
};

}  // namespace kest

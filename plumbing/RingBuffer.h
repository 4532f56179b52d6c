#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/CritSec.h"
#include "platform/Event.h"

namespace kest {

/// Results of CRingBuffer's operations that are no byte counts.
enum : int {
    RB_E_NO_READER = -2,            // no free reader record although the count allowed one
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
/// after it was opened. A transfer moves all of its bytes or none; 0 means that a wait gave up, because of
/// its time-out or because the side was closed or the buffer emptied meanwhile, and the caller decides
/// whether to try again. Times are milliseconds, kInfinite without limit.
///
/// Threads: one writer and one thread per reader; opening, closing and the operations on the whole buffer may
/// come from any thread. Lock order: m_csWrite, m_csWriter, m_csReaders, a reader's cs. A transfer holds the
/// lock of its own side while it copies, so that closing or emptying the buffer waits for it and never lets
/// one side overwrite what the other is copying; nobody else contends for these locks. No lock is held while
/// waiting. No operation allocates after construction.
class CRingBuffer {
public:
    static constexpr int kMaxReaders = 5;

    /// A buffer without storage: every opening of a side fails.
    CRingBuffer() : CRingBuffer(0) {}
    /// @param nCapacity  bytes of storage, zero-filled.
    explicit CRingBuffer(std::uint32_t nCapacity);
    CRingBuffer(const CRingBuffer&) = delete;
    CRingBuffer& operator=(const CRingBuffer&) = delete;

    // ---------------- write side

    /// Opens the write side at the start of the storage.
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
    /// Accounts n bytes that were written in place: the readers may have them.
    /// @param n  not above the room; the caller asked for it before.
    /// @return n, RB_E_NOT_OPEN, RB_E_BAD_SIZE when the room is not there (any more).
    int Commit(std::uint32_t n);
    /// The writer's declared chunk; 0 when the side is closed.
    std::uint32_t GetWriterMaxChunk() const;
    /// Waits on the writer's event. @return whether it is signalled.
    bool WaitWriterEvent(std::uint32_t nTimeoutMs) { return m_evWriter.Wait(nTimeoutMs); }
    /// Sets the writer's event when the side is open.
    void WakeWriter();
    /// Room for the writer: the capacity less what the slowest open reader has pending.
    std::uint32_t GetFreeSize() const;

    // ---------------- read sides

    /// Opens a reader at the present write position.
    /// @param nMaxChunk  the largest read. The largest over all readers and the writer's chunk together may
    /// take
    ///                   half the capacity; with the write side closed, the readers' alone a third.
    /// @return the reader's number, the lowest free one of 0..4; RB_E_TOO_MANY_READERS, RB_E_TOO_BIG,
    ///         RB_E_NO_READER.
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
    /// emptied.
    int GetReadPointer(int nReader, std::span<const std::uint8_t>& storage, std::uint32_t& nReadPos) const;
    /// Bytes pending for the reader; 0 when it is not open.
    std::uint32_t GetAvailable(int nReader) const;

    // ---------------- whole buffer

    /// Empties the buffer and wakes every waiter; the readers stay open, the write side is open afterwards.
    void Flush();
    /// Empties the buffer, wakes every waiter and closes every side.
    void CloseAll();
    /// Empties the buffer as `Flush` does, without waking anybody: a wait that is under way goes on.
    void ClearQuiet();
    /// Writes the status as text, cut to the caller's buffer and always terminated.
    void DumpStatus(std::span<char> text) const;

private:
    struct ReaderRecord {
        std::atomic<bool> bOpen{false};             // this reader number is in use
        bool bEventMade = false;                    // it was open before: its event is set on reopening
        std::atomic<std::uint32_t> nRequired{0};    // bytes this reader waits for when blocked
        std::atomic<std::uint32_t> nMaxChunk{0};    // largest chunk declared at OpenReader
        std::atomic<std::uint32_t> nReadPos{0};     // index of the next byte to read
        std::atomic<std::uint32_t> nPending{0};     // bytes written and not taken
        std::atomic<std::uint32_t> nBreaks{0};      // closings and flushes so far
        std::atomic<std::uint64_t> llTotalRead{0};  // bytes taken since the opening or the last emptying
        CEvent hEvent;                              // manual-reset; set by a write, a closing, an emptying
        mutable CCritSec cs;  // held by the reader while it transfers, and by the others
    };

    ReaderRecord* OpenRecord(int nReader);
    const ReaderRecord* OpenRecord(int nReader) const;
    bool WaitForPending(ReaderRecord& reader, std::size_t n, std::uint32_t nTimeoutMs);
    int TakeWaited(ReaderRecord& reader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs);
    int PeekWaited(int nReader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs);
    void CopyOut(const ReaderRecord& reader, std::span<std::uint8_t> dest) const;
    void Advance(ReaderRecord& reader, std::uint32_t n);
    void Credit(std::uint32_t n);
    void WakeBlockedWriter();
    void Empty(bool bWake, bool bKeepOpen);
    std::uint32_t Moved(std::uint32_t nPos, std::uint32_t n) const { return (nPos + n) % m_nCapacity; }

    const std::uint32_t m_nCapacity;                  // bytes of storage
    std::unique_ptr<std::uint8_t[]> m_pBuffer;        // the storage
    const bool m_bOverRide = false;                   // override mode: never set, shown by the dump
    std::atomic<bool> m_bWriterOpen{false};           // the write side is open
    std::atomic<std::uint32_t> m_nWriterRequired{0};  // room that a blocked writer waits for
    std::atomic<std::uint32_t> m_nWriterMaxChunk{0};  // largest chunk declared at OpenWriter
    std::atomic<std::uint32_t> m_nWritePos{0};        // index of the next byte to write
    std::atomic<std::uint32_t> m_nWriterBreaks{0};    // closings so far
    CEvent m_evWriter;                               // manual-reset; set by the opening and when room is made
    std::atomic<std::uint64_t> m_llTotalWritten{0};  // bytes written since the opening or the last emptying
    CCritSec m_csWrite;  // held by the writer while it transfers, and by the others
    std::array<ReaderRecord, kMaxReaders> m_aReader;  // by reader number
    std::atomic<std::uint32_t> m_nReaders{0};         // open readers
    CCritSec m_csReaders;                             // guards opening and closing of readers
    CCritSec m_csWriter;                              // guards opening and closing of the write side
    const bool m_bError;                              // the buffer has no storage
};

}  // namespace kest

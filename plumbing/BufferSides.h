#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

#include "platform/CritSec.h"
#include "platform/Event.h"

namespace kest {

/// The sides of a buffer with one writer and up to five readers: how they open and close, wait and wake, and
/// how the buffer is emptied. What is moved, and where it is stored, is up to the derived class. Everything
/// is counted in units: bytes of a ring, blocks of a queue.
///
/// A side that waits resets its own event, tests once more and sleeps; the other sides set the event after
/// every step that may help, when it is not set. So no wake-up is lost, and a transfer that nobody waits for
/// makes no system call. Every wait ends when its side is closed or the buffer emptied, and by the
/// termination signal of a thread that is ended by force. To save wake-ups, a reader that finds nothing waits
/// up to 2 ms for a batch before it waits for what it wants, and a writer that was woken by the first room
/// waits up to 2 ms for room for a batch.
///
/// Each side has a generation: the number of its closings and emptyings so far. An operation that began in
/// one generation moves nothing in the next, even where the side was opened again meanwhile. One exception: a
/// flush of the ring (ESides::OpenWriter) brings a writer the room that it waits for, so it writes.
///
/// Threads: one writer and one thread per reader; everything else may come from any thread. Lock order:
/// m_csWrite, a reader's cs. m_csWrite is held by the writer while it stores, and by whoever opens, closes or
/// empties. A reader's cs is held by that reader while it copies, and by whoever opens, closes or empties it:
/// nothing that is being copied is given to the writer. No lock is held in a wait.
class CBufferSides {
public:
    static constexpr int kMaxReaders = 5;

    CBufferSides(const CBufferSides&) = delete;
    CBufferSides& operator=(const CBufferSides&) = delete;

protected:
    struct Side {
        std::atomic<bool> bOpen{false};             // this side is in use
        std::atomic<std::uint32_t> nGeneration{0};  // closings and emptyings so far
        std::atomic<std::uint32_t> nWakes{0};       // wake-ups so far that end a wait without its units
        std::atomic<std::uint32_t> nRequired{0};    // units that it waits for when blocked
        std::atomic<std::uint32_t> nMaxChunk{0};    // largest transfer that it declared when it was opened
        CEvent hEvent;                              // manual-reset; set when it may go on, or must
        std::uint32_t nPos = 0;                     // index of the unit that is moved next; under the lock
        std::uint64_t llTotal = 0;  // units moved since the opening or the last emptying; under the lock
    };
    struct ReaderRecord : Side {
        std::atomic<std::uint32_t> nPending{0};  // units written and not taken
        mutable CCritSec cs;                     // see the lock order
    };
    /// What is to become of the sides when the buffer is emptied.
    enum class ESides { Keep, OpenWriter, CloseAll };
    /// A reader's turn to take.
    struct ReadTurn {
        ReaderRecord* pReader = nullptr;  // null: there is no such reader, or it is not open
        std::unique_lock<CCritSec> lock;  // the reader's; held when the units are there
    };

    /// @param nUnits      the capacity.
    /// @param nReadBatch  units that are worth waking a reader for while they come fast; 0: those that it wants.
    CBufferSides(std::uint32_t nUnits, std::uint32_t nReadBatch)
        : m_nUnits(nUnits), m_nReadBatch(nReadBatch) {}
    ~CBufferSides() = default;

    // ---------------- opening and closing

    /// Opens the write side at position 0. A reader that is still open goes there too; what it had pending is
    /// dropped, and it gives up then if it waits. @return false when the side is open already.
    bool OpenWriteSide(std::uint32_t nMaxChunk);
    /// Closes the write side and wakes a writer that waits.
    void CloseWriteSide();
    /// Opens a reader at the write position. @return the lowest number that is free; -1 when none is.
    int OpenReadSide(std::uint32_t nMaxChunk);
    /// Closes a reader and wakes it when it waits; the room that it held back is the writer's again. Ignores
    /// a number that is not open.
    void CloseReadSide(int nReader);
    /// Drops everything and puts every side back to its start.
    /// @param bWake  readers that wait give up, and the writer too unless it has its room now. Without it all
    ///               wait on.
    void Empty(ESides sides, bool bWake);

    // ---------------- writing

    /// Room for the writer: the capacity less what the slowest open reader has pending.
    std::uint32_t GetRoom() const;
    /// Waits for room for n units.
    /// @param nGeneration  the writer's, when its operation began.
    /// @return m_csWrite, held; or not held: the time-out, a wake-up (WakeWaitingWriter) without enough room,
    ///         a generation that is past.
    std::unique_lock<CCritSec> BeginWrite(std::uint32_t nGeneration, std::uint32_t n,
                                          std::uint32_t nTimeoutMs);
    /// Gives the next n units to the readers. Under m_csWrite.
    void Credit(std::uint32_t n);
    /// Ends a writer's wait: it goes on when it has its room, and gives up otherwise.
    void WakeWaitingWriter();
    /// The writer has written its last, until it writes again or the buffer is opened, closed or emptied: readers wait
    /// no longer for more than is pending.
    void EndWriting();
    bool HasWritingEnded() const { return m_bWritingEnded; }

    // ---------------- reading

    /// The reader of this number; null when it is not open.
    const ReaderRecord* FindReader(int nReader) const;
    /// Units pending for the reader; 0 when it is not open.
    std::uint32_t GetPendingUnits(int nReader) const;
    /// Waits until n units are pending. @return a turn without a lock: the wait gave up.
    ReadTurn BeginRead(int nReader, std::uint32_t n, std::uint32_t nTimeoutMs);
    /// The same without waiting, and without a trace in the reader's state.
    ReadTurn TryRead(int nReader, std::uint32_t n);
    /// Takes n pending units and ends the turn.
    /// @param bWakeWriter  lets a writer that waits go on when it has its room.
    void EndRead(ReadTurn& turn, std::uint32_t n, bool bWakeWriter = true);

    /// The position n units behind nPos; n is at most the capacity.
    std::uint32_t Moved(std::uint32_t nPos, std::uint32_t n) const {
        const std::uint64_t nMoved = std::uint64_t{nPos} + n;
        return static_cast<std::uint32_t>(nMoved < m_nUnits ? nMoved : nMoved - m_nUnits);
    }

    const std::uint32_t m_nUnits;                     // the capacity
    const std::uint32_t m_nReadBatch;                 // see the constructor
    Side m_writer;                                    // the write side
    mutable CCritSec m_csWrite;                       // see the lock order
    std::array<ReaderRecord, kMaxReaders> m_aReader;  // by number
    std::atomic<bool> m_bWritingEnded{false};         // see EndWriting

private:
    template <class IsReady>
    static bool Wait(Side& side, std::uint32_t nGeneration, std::uint32_t n, std::uint32_t nTimeoutMs,
                     IsReady isReady);
    static void DropPending(ReaderRecord& reader, bool bWake);
    static void CloseSide(Side& side);
    void WakeWriterWithRoom();
};

}  // namespace kest

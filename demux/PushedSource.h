#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "demux/BigEndian.h"
#include "demux/ByteSource.h"
#include "plumbing/Count.h"
#include "plumbing/PushGate.h"
#include "plumbing/RingBuffer.h"

namespace kest {

/// A source whose bytes others push: a ring buffer and the demuxer's read side of it.
///
/// `Write` belongs to one thread that pushes, `Fetch` and `Accept` to the demuxer's, the rest may come from
/// any. Lock order: m_mutex, the ring's.
class CPushedSource final : public CByteSource {
public:
    /// Makes a ring, or takes another's.
    /// @param pRing      where others write, its write side opened by its owner; none: the source makes its
    ///                   own of nCapacity bytes, for `Write`.
    /// @param nMaxChunk  largest write and read, bytes.
    /// @param nReadUnit  the ring is read in multiples of this number of bytes, which divides nMaxChunk.
    void Attach(CRingBuffer* pRing, std::uint32_t nCapacity, std::uint32_t nMaxChunk,
                std::uint32_t nReadUnit);
    /// Gives the ring back; its sides are closed.
    void Detach();
    /// Opens the demuxer's read side, and the write side of a ring of its own.
    /// @return 0, or the ring's error.
    int OpenSides();
    /// Closes them: whoever waits on them gives up, and what the ring holds is dropped.
    void CloseSides();

    /// Writes all of the bytes, waiting for room as long as `isWanted()`, which is asked once a second.
    /// @return the byte count; 0 when they are not wanted any more, the gate is held, or the ring is not the
    ///         source's own.
    template <class IsWanted>
    int Write(Bytes data, IsWanted isWanted);
    /// The gate that ends writes while it is held; its owner wakes them by `WakeWrite`. Set before the first one.
    void SetGate(const CPushGate& gate) { m_pGate = &gate; }
    void WakeWrite();
    /// Nothing more is pushed, until something is: a fetch brings what there is.
    void EndInput() { m_pRing->EndWriting(); }
    bool IsEnding() const { return m_pRing->HasWritingEnded(); }
    /// That is so, and everything has been fetched.
    bool HasEnded() const { return IsEnding() && m_pRing->GetAvailable(m_nReader) == 0; }
    /// Bytes that can be written without a wait.
    std::uint32_t GetRoom() const { return m_pOwnRing ? m_pOwnRing->GetFreeSize() : 0; }
    /// The demuxer's thread waits for more than the ring has: it has taken what it can.
    bool IsStarved() const;
    /// Drops what the ring holds. What is written from now on is fetched only after `Accept`: so that the
    /// demuxer can forget what it has before it meets what comes after.
    void Flush();
    /// The demuxer has dropped what it had.
    void Accept() { m_bFlushed = false; }

    /// Waits without limit until the missing bytes are there, the input has ended, or the ring is closed or flushed.
    std::uint32_t Fetch(const FetchRequest& request) override;
    /// Bytes that it has fetched so far. Any thread.
    std::uint64_t CountBytesRead() const { return m_llBytesRead; }

private:
    int WriteChunk(Bytes chunk);
    bool WaitForBytes(std::uint32_t n);
    bool IsHeld() const { return m_pGate && m_pGate->IsHeld(); }

    std::unique_ptr<CRingBuffer> m_pOwnRing;   // set when the source made it
    CRingBuffer* m_pRing = nullptr;            // the ring in use
    std::uint32_t m_nMaxChunk = 0;             // see Attach
    std::uint32_t m_nReadUnit = 1;             // see Attach
    std::atomic<int> m_nReader{-1};            // the read side
    const CPushGate* m_pGate = nullptr;        // see SetGate; none: never held
    std::atomic<std::uint32_t> m_nAwaited{0};  // bytes that Fetch waits for; 0: it does not wait
    std::mutex m_mutex;                        // keeps a flush and a fetch apart
    std::atomic<bool> m_bFlushed{false};       // flushed since the last `Accept`
    CCount m_llBytesRead;                      // see CountBytesRead
};

template <class IsWanted>
int CPushedSource::Write(Bytes data, IsWanted isWanted) {
    if (!m_pOwnRing) return 0;
    Bytes rest = data;
    while (!rest.empty()) {
        if (IsHeld() || !isWanted()) return 0;
        const int nWritten = WriteChunk(rest.first(std::min<std::size_t>(rest.size(), m_nMaxChunk)));
        if (nWritten < 0) return 0;
        rest = rest.subspan(static_cast<std::size_t>(nWritten));
    }
    return static_cast<int>(data.size());
}

}  // namespace kest

#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "demux/BigEndian.h"
#include "demux/ByteSource.h"
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
    void Attach(CRingBuffer* pRing, std::uint32_t nCapacity, std::uint32_t nMaxChunk);
    /// Lets go of the ring; its sides are closed.
    void Detach();
    /// Opens the demuxer's read side, and the write side of a ring of its own.
    /// @return 0, or the ring's error.
    int OpenSides();
    /// Closes them: whoever waits on them gives up, and what the ring holds is dropped.
    void CloseSides();

    /// Writes all of the bytes, waiting for room as long as `isWanted()`, which is asked once a second.
    /// @return the byte count; 0 when they are not wanted any more, or the ring is not the source's own.
    template <class IsWanted>
    int Write(Bytes data, IsWanted isWanted);
    /// A fetch waits for more than the ring holds. For the thread that writes.
    bool IsStarved() const;
    /// Drops what the ring holds. What is written from now on is fetched only after `Accept`: so that the
    /// demuxer can forget what it has before it meets what comes after.
    void Flush();
    /// The demuxer has dropped what it had.
    void Accept() { m_bFlushed = false; }

    /// Waits without limit until the missing bytes are there, or the ring is closed or flushed.
    std::uint32_t Fetch(const FetchRequest& request) override;

private:
    int WriteChunk(Bytes chunk);
    bool WaitForData(std::uint32_t n);

    std::unique_ptr<CRingBuffer> m_pOwnRing;   // set when the source made it
    CRingBuffer* m_pRing = nullptr;            // the ring in use
    std::uint32_t m_nMaxChunk = 0;             // see Attach
    int m_nReader = -1;                        // the read side
    std::atomic<std::uint32_t> m_nAwaited{0};  // bytes that a fetch waits for at present
    std::mutex m_mutex;                        // keeps a flush and a fetch apart
    std::atomic<bool> m_bFlushed{false};       // flushed since the last `Accept`
};

template <class IsWanted>
int CPushedSource::Write(Bytes data, IsWanted isWanted) {
    if (!m_pOwnRing) return 0;
    Bytes rest = data;
    while (!rest.empty()) {
        if (!isWanted()) return 0;
        const int nWritten = WriteChunk(rest.first(std::min<std::size_t>(rest.size(), m_nMaxChunk)));
        if (nWritten < 0) return 0;
        rest = rest.subspan(static_cast<std::size_t>(nWritten));
    }
    return static_cast<int>(data.size());
}

}  // namespace kest

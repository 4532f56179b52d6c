#include "demux/PushedSource.h"

#include <algorithm>

#include "platform/DebugText.h"

namespace kest {

void CPushedSource::Attach(CRingBuffer* pRing, std::uint32_t nCapacity, std::uint32_t nMaxChunk,
                           std::uint32_t nReadUnit) {
    constexpr std::uint32_t kBatchDivisor = 16;  // the demuxer is woken for this part of the capacity
    if (!pRing) m_pOwnRing = std::make_unique<CRingBuffer>(nCapacity, nCapacity / kBatchDivisor);
    m_pRing = pRing ? pRing : m_pOwnRing.get();
    m_nMaxChunk = nMaxChunk;
    m_nReadUnit = nReadUnit;
}

void CPushedSource::Detach() {
    m_pOwnRing.reset();
    m_pRing = nullptr;
}

int CPushedSource::OpenSides() {
    if (m_pOwnRing) m_pOwnRing->OpenWriter(m_nMaxChunk);
    m_nReader = m_pRing->OpenReader(m_nMaxChunk);
    return std::min(m_nReader.load(), 0);
}

void CPushedSource::CloseSides() {
    if (m_pOwnRing) m_pOwnRing->CloseWriter();
    m_pRing->CloseReader(m_nReader);
}

/// @return the bytes written; 0 when there was no room for a second; below 0 when the ring is closed.
int CPushedSource::WriteChunk(Bytes chunk) {
    constexpr std::uint32_t kTryMs = 1000;
    const int nWritten = m_pOwnRing->Write(chunk, kTryMs);
    if (nWritten == 0 && !IsHeld()) DebugText("time out");
    return nWritten;
}

void CPushedSource::Flush() {
    std::lock_guard lock(m_mutex);
    m_bFlushed = true;
    m_pRing->Flush();
}

void CPushedSource::WakeWrite() {
    if (m_pOwnRing) m_pOwnRing->WakeWriter();
}

// In this order: while a fetch has not taken what it waited for, the ring still holds it.
bool CPushedSource::IsStarved() const {
    const std::uint32_t nAvailable = m_pRing->GetAvailable(m_nReader);
    return m_nAwaited > nAvailable;
}

/// @return whether n bytes are there; false when the ring was closed or flushed.
bool CPushedSource::WaitForBytes(std::uint32_t n) {
    struct CAwaiting {  // also when the wait ends by force
        CAwaiting(std::atomic<std::uint32_t>& nAwaited, std::uint32_t nBytes) : m_nAwaited(nAwaited) {
            m_nAwaited = nBytes;
        }
        ~CAwaiting() { m_nAwaited = 0; }
        std::atomic<std::uint32_t>& m_nAwaited;
    };
    const CAwaiting awaiting(m_nAwaited, n);
    return m_pRing->WaitForData(m_nReader, n, kInfinite) > 0;
}

std::uint32_t CPushedSource::Fetch(const FetchRequest& request) {
    const std::uint32_t nNeeded = (request.nMissing + m_nReadUnit - 1) / m_nReadUnit * m_nReadUnit;
    if (m_bFlushed) return 0;
    const bool bLast = !WaitForBytes(nNeeded) && m_pRing->HasWritingEnded();
    std::lock_guard lock(m_mutex);
    if (m_bFlushed) return 0;
    std::size_t nTaken =
        std::min<std::size_t>({m_pRing->GetAvailable(m_nReader), request.room.size(), m_nMaxChunk});
    if (!bLast) nTaken = nTaken < nNeeded ? 0 : nTaken - nTaken % m_nReadUnit;
    if (nTaken == 0) return 0;
    const int nRead = std::max(0, m_pRing->ReadTimed(m_nReader, request.room.first(nTaken), 0));
    m_llBytesRead += static_cast<std::uint64_t>(nRead);
    return static_cast<std::uint32_t>(nRead);
}

}  // namespace kest

#include "demux/PushedSource.h"

#include <algorithm>

#include "platform/DebugText.h"

namespace kest {

void CPushedSource::Attach(CRingBuffer* pRing, std::uint32_t nCapacity, std::uint32_t nMaxChunk) {
    if (!pRing) m_pOwnRing = std::make_unique<CRingBuffer>(nCapacity);
    m_pRing = pRing ? pRing : m_pOwnRing.get();
    m_nMaxChunk = nMaxChunk;
}

void CPushedSource::Detach() {
    m_pOwnRing.reset();
    m_pRing = nullptr;
}

int CPushedSource::OpenSides() {
    if (m_pOwnRing) m_pOwnRing->OpenWriter(m_nMaxChunk);
    m_nReader = m_pRing->OpenReader(m_nMaxChunk);
    return std::min(m_nReader, 0);
}

void CPushedSource::CloseSides() {
    if (m_pOwnRing) m_pOwnRing->CloseWriter();
    m_pRing->CloseReader(m_nReader);
}

/// @return the bytes written; 0 when there was no room for a second; below 0 when the ring is closed.
int CPushedSource::WriteChunk(Bytes chunk) {
    constexpr std::uint32_t kTryMs = 1000;
    const int nWritten = m_pOwnRing->Write(chunk, kTryMs);
    if (nWritten == 0) DebugText("time out");
    return nWritten;
}

void CPushedSource::Flush() {
    std::lock_guard lock(m_mutex);
    m_bFlushed = true;
    m_pRing->Flush();
}

/// In this order: while a fetch has not taken what it waited for, the ring still holds it.
bool CPushedSource::IsStarved() const {
    const std::uint32_t nAvailable = m_pRing->GetAvailable(m_nReader);
    return m_nAwaited > nAvailable;
}

/// @return whether n bytes came.
bool CPushedSource::WaitForData(std::uint32_t n) {
    m_nAwaited = n;
    const bool bCame = m_pRing->WaitForData(m_nReader, n, kInfinite) > 0;
    m_nAwaited = 0;
    return bCame;
}

std::uint32_t CPushedSource::Fetch(const FetchRequest& request) {
    if (m_bFlushed || !WaitForData(request.nMissing)) return 0;
    std::lock_guard lock(m_mutex);
    if (m_bFlushed) return 0;
    const std::size_t nTaken =
        std::min<std::size_t>({m_pRing->GetAvailable(m_nReader), request.room.size(), m_nMaxChunk});
    if (nTaken == 0) return 0;
    return static_cast<std::uint32_t>(
        std::max(0, m_pRing->ReadTimed(m_nReader, request.room.first(nTaken), 0)));
}

}  // namespace kest

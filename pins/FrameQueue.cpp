#include "pins/FrameQueue.h"

#include <cassert>
#include <new>

namespace kest {

CFrameQueue::CFrameQueue(std::uint32_t nBlockSize) noexcept {
    try {
        m_pQueue = std::make_unique<CBlockMemFileEx>(nBlockSize, kBlocks, sizeof(FRAME_INFO));
    } catch (const std::bad_alloc&) {
    }
}

void CFrameQueue::OpenWriter() {
    if (m_pQueue) m_pQueue->WOpen();
}

void CFrameQueue::OpenReader() {
    if (!m_pQueue) return;
    m_bmHandle = m_pQueue->ROpen();
    assert(m_bmHandle == 0);  // the pin is the queue's only reader, and closed the one before
}

void CFrameQueue::Close() {
    if (!m_pQueue) return;
    m_pQueue->WClose();
    m_pQueue->RClose(m_bmHandle.exchange(-1));
}

// Only its record distinguishes an empty block from a read that brought nothing: that is cleared before.
CFrameQueue::Taken CFrameQueue::Read(std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs) {
    Taken taken;
    taken.nLength =
        m_pQueue ? m_pQueue->ReadEx(m_bmHandle, dest, &taken.info, nTimeoutMs, &taken.nGeneration) : -1;
    return taken;
}

bool CFrameQueue::IsPast(std::uint32_t nGeneration) const {
    return m_pQueue && m_pQueue->GetGeneration(m_bmHandle) != nGeneration;
}

}  // namespace kest

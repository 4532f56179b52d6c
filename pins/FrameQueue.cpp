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

void CFrameQueue::SetBlockSize(std::uint32_t nBlockSize) {
    if (m_pQueue) m_pQueue->SetBlockSize(nBlockSize);
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

/// Apart from the taking of the frame, so that an empty queue whose reader waits has nothing on its way.
void CFrameQueue::WaitForFrame(std::uint32_t nTimeoutMs) {
    struct CWaiting {  // also when the wait ends by force
        explicit CWaiting(std::atomic<bool>& bWaits) : m_bWaits(bWaits) { m_bWaits = true; }
        ~CWaiting() { m_bWaits = false; }
        std::atomic<bool>& m_bWaits;
    };
    const CWaiting waiting(m_bReaderWaits);
    m_pQueue->WaitForBlock(m_bmHandle, nTimeoutMs);
}

CFrameQueue::Taken CFrameQueue::Read(std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs) {
    Taken taken;
    if (nTimeoutMs > 0 && m_pQueue && GetPending() == 0) WaitForFrame(nTimeoutMs);
    const BlockRead read = m_pQueue ? m_pQueue->ReadEx(m_bmHandle, dest, &taken.info, 0)
                                    : BlockRead{.status = BlockRead::EStatus::NotOpen};
    taken.nGeneration = read.nGeneration;
    taken.nLength = read.IsTaken()                               ? static_cast<int>(read.nLength)
                    : read.status == BlockRead::EStatus::Nothing ? 0
                                                                 : -1;
    return taken;
}

bool CFrameQueue::IsPast(std::uint32_t nGeneration) const {
    const int nReader = m_bmHandle;
    return nReader < 0 || m_pQueue->GetGeneration(nReader) != nGeneration;
}

}  // namespace kest

#include "demux/FrameOutput.h"

namespace kest {

void CFrameOutput::Attach(CBlockMemFileEx* pQueue) {
    if (!pQueue) {
        m_pOwnQueue =
            std::make_unique<CBlockMemFileEx>(m_sizes.nBlockSize, m_sizes.nBlockCount, sizeof(FRAME_INFO));
    }
    m_pQueue = pQueue ? pQueue : m_pOwnQueue.get();
}

void CFrameOutput::Detach() {
    m_pOwnQueue.reset();
    m_pQueue = nullptr;
}

void CFrameOutput::OpenSides() {
    if (!m_pOwnQueue) return;
    m_pOwnQueue->WOpen();
    m_pOwnQueue->ROpen();
}

void CFrameOutput::CloseSides() {
    if (!m_pOwnQueue) return;
    m_pOwnQueue->WClose();
    m_pOwnQueue->RClose(0);
}

void CFrameOutput::Append(Bytes payload) {
    if (IsEmpty()) m_nGeneration = m_pQueue->GetWriteGeneration();
    m_accumulator.Append(payload);
}

void CFrameOutput::Queue(const FRAME_INFO& info) {
    m_pQueue->WriteEx(m_accumulator.GetBytes(), &info, kInfinite, m_nGeneration);
    Drop();
}

void CFrameOutput::QueueEnd(const std::atomic<bool>& bSuperseded) {
    Drop();
    FRAME_INFO info{};
    info.bEndOfStream = 1;
    const std::uint32_t nGeneration = m_pQueue->GetWriteGeneration();
    if (!bSuperseded) m_pQueue->WriteEx({}, &info, kInfinite, nGeneration);
}

}  // namespace kest

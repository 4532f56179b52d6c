#include "demux/FrameOutput.h"

#include <algorithm>

#include "platform/DebugText.h"

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
    if (!HasRoom(payload.size())) return;
    if (IsEmpty()) m_block = m_pQueue->BeginBlock(kInfinite);
    if (m_nFill < m_block.storage.size()) {
        const std::size_t nFits = std::min(payload.size(), m_block.storage.size() - m_nFill);
        std::copy_n(payload.begin(), nFits, m_block.storage.begin() + m_nFill);
    }
    m_nFill += static_cast<std::uint32_t>(payload.size());
}

void CFrameOutput::Queue(const FRAME_INFO& info) {
    if (IsEmpty()) m_block = m_pQueue->BeginBlock(kInfinite);
    const auto nBlockSize = static_cast<std::uint32_t>(m_block.storage.size());
    if (nBlockSize > 0 && m_nFill > nBlockSize) {
        Trace("Frame of %u bytes is cut to its block of %u bytes\n", m_nFill, nBlockSize);
    }
    if (nBlockSize > 0) m_pQueue->CommitBlock(m_block, std::min(m_nFill, nBlockSize), &info);
    Drop();
}

void CFrameOutput::QueueFrame(Bytes frame, const PesTimestamps& timestamps) {
    FRAME_INFO info{};
    info.llPts = timestamps.llPts;
    info.llDts = timestamps.llDts;
    Append(frame);
    Queue(info);
}

void CFrameOutput::QueueEnd(const std::atomic<bool>& bSuperseded) {
    Drop();
    FRAME_INFO info{};
    info.bEndOfStream = 1;
    const BlockWrite block = m_pQueue->BeginBlock(kInfinite);
    if (!block.storage.empty() && !bSuperseded) m_pQueue->CommitBlock(block, 0, &info);
}

}  // namespace kest

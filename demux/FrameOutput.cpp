#include "demux/FrameOutput.h"

#include <algorithm>
#include <utility>

#include "platform/DebugText.h"

namespace kest {

void CFrameOutput::Attach(CBlockMemFileEx* pQueue) {
    if (!pQueue) {
        const std::uint32_t nLonger = m_nMaxFrame > m_sizes.nMaxFrame ? m_nMaxFrame : 0;
        m_pOwnQueue = std::make_unique<CBlockMemFileEx>(std::max(m_sizes.nBlockSize, nLonger),
                                                        m_sizes.nBlockCount, sizeof(FRAME_INFO));
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

void CFrameOutput::SetLimits(std::uint32_t nLeastFrame, bool bSplits) {
    m_bSplits = bSplits;
    m_nMaxFrame = std::max(m_sizes.nMaxFrame, nLeastFrame);
    if (!m_pOwnQueue || m_pOwnQueue->GetBlockSize() >= nLeastFrame) return;
    CloseSides();
    m_pOwnQueue->SetBlockSize(nLeastFrame);
    OpenSides();
}

// ---------------- frames

/// Waits for the next block; none when the queue was closed or emptied meanwhile, or is about to be. The flag last: when
/// the queue is emptied later, the block belongs to what was emptied.
BlockWrite CFrameOutput::BeginBlock() {
    const BlockWrite block = m_pQueue->BeginBlock(kInfinite);
    return m_pbSuperseded && *m_pbSuperseded ? BlockWrite{} : block;
}

/// Room that the frame's block has; a lost frame has none.
std::size_t CFrameOutput::GetBlockRoom() const {
    return m_block.storage.size() - std::min<std::size_t>(m_nFill, m_block.storage.size());
}

void CFrameOutput::Append(Bytes payload, const FRAME_INFO& info) {
    if (!HasRoom(payload.size())) {
        m_llLeftOut += payload.size();
        return;
    }
    if (IsEmpty()) m_block = BeginBlock();
    while (m_bSplits && payload.size() > GetBlockRoom() && !m_block.storage.empty()) {
        const Bytes fits = payload.first(GetBlockRoom());
        std::ranges::copy(fits, m_block.storage.begin() + m_nFill);
        m_nFill += static_cast<std::uint32_t>(fits.size());
        payload = payload.subspan(fits.size());
        Continue(info);
    }
    const std::size_t nFits = std::min(payload.size(), GetBlockRoom());
    if (nFits > 0) std::copy_n(payload.begin(), nFits, m_block.storage.begin() + m_nFill);
    m_nFill = m_block.storage.empty() && m_bSplits ? 1 : m_nFill + static_cast<std::uint32_t>(payload.size());
}

/// Queues the block, which is full, and goes on in the next one; unless the queue has been emptied meanwhile.
void CFrameOutput::Continue(const FRAME_INFO& info) {
    const std::uint32_t nGeneration = m_block.nGeneration;
    Queue(info);
    m_bContinued = true;
    m_block = BeginBlock();
    if (m_block.nGeneration != nGeneration) m_block = {};
}

void CFrameOutput::Queue(const FRAME_INFO& info) {
    if (IsEmpty()) m_block = BeginBlock();
    FRAME_INFO queued = info;
    if (m_bContinued) {
        queued = kNoTimes;
        queued.llFilePos = info.llFilePos;
    }
    const auto nBlockSize = static_cast<std::uint32_t>(m_block.storage.size());
    if (nBlockSize > 0 && m_nFill > nBlockSize) {
        Trace("Frame of %u bytes is cut to its block of %u bytes\n", m_nFill, nBlockSize);
    }
    if (nBlockSize > 0 && m_pQueue->CommitBlock(m_block, std::min(m_nFill, nBlockSize), &queued) > 0) {
        CountQueued(queued);
        const std::uint64_t llCut = m_llLeftOut + m_nFill - std::min(m_nFill, nBlockSize);
        if (llCut > 0) ++m_counters.nCut;
        m_counters.llBytesCut += llCut;
    }
    Clear();
}

void CFrameOutput::QueueFrame(Bytes frame, const PesTimestamps& timestamps) {
    FRAME_INFO info{};
    info.llPts = timestamps.llPts;
    info.llDts = timestamps.llDts;
    Append(frame, info);
    Queue(info);
}

void CFrameOutput::QueueEnd() {
    Lose();
    FRAME_INFO info{};
    info.bEndOfStream = 1;
    const BlockWrite block = BeginBlock();
    if (!block.storage.empty()) m_pQueue->CommitBlock(block, 0, &info);
}

void CFrameOutput::Drop() {
    Clear();
    m_bBegins = true;
}

void CFrameOutput::Clear() {
    m_nFill = 0;
    m_bContinued = false;
    m_llLeftOut = 0;
}

void CFrameOutput::Lose() {
    if (!IsEmpty()) ++m_counters.nLost;
    m_counters.llBytesLost += m_nFill + m_llLeftOut;
    Clear();
}

// The first frame behind a start or a jump says so too.
void CFrameOutput::CountQueued(const FRAME_INFO& info) {
    if (info.bDiscontinuity && !std::exchange(m_bBegins, false)) ++m_counters.nDiscontinuities;
    ++m_counters.nQueued;
}

}  // namespace kest

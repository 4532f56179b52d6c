#include "plumbing/BlockMemFile.h"

#include <algorithm>

#include "platform/DebugText.h"

namespace kest {

namespace {

/// Storage that nobody writes to before a block does: the system gives memory page by page, as it is used.
std::unique_ptr<std::uint8_t[]> MakeBlocks(std::uint32_t nBlockSize, std::uint32_t nBlockCount) {
    return std::make_unique_for_overwrite<std::uint8_t[]>(std::size_t{nBlockSize} * nBlockCount);
}

}  // namespace

CBlockMemFile::CBlockMemFile(std::uint32_t nBlockSize, std::uint32_t nBlockCount)
    : CBufferSides(nBlockCount, nBlockCount / 5),
      m_nBlockSize(nBlockSize),
      m_pBlocks(MakeBlocks(nBlockSize, nBlockCount)),
      m_pLengths(std::make_unique<std::uint32_t[]>(nBlockCount)) {}

void CBlockMemFile::SetBlockSize(std::uint32_t nBlockSize) {
    CAutoLock lock(m_csWrite);
    if (nBlockSize == m_nBlockSize) return;
    m_pBlocks = MakeBlocks(nBlockSize, m_nUnits);
    m_nBlockSize = nBlockSize;
}

std::uint32_t CBlockMemFile::GetGeneration(int nReader) const {
    if (nReader < 0 || nReader >= kMaxReaders) return 0;
    return m_aReader[static_cast<std::size_t>(nReader)].nGeneration;
}

std::span<std::uint8_t> CBlockMemFile::Block(std::uint32_t nIndex) {
    return {m_pBlocks.get() + std::size_t{nIndex} * m_nBlockSize, m_nBlockSize};
}

CBlockMemFileEx::CBlockMemFileEx(std::uint32_t nBlockSize, std::uint32_t nBlockCount, std::uint32_t nInfoSize)
    : CBlockMemFile(nBlockSize, nBlockCount),
      m_nInfoSize(nInfoSize),
      m_pInfo(std::make_unique_for_overwrite<std::uint8_t[]>(std::size_t{nInfoSize} * nBlockCount)) {}

BlockWrite CBlockMemFileEx::BeginBlock(std::uint32_t nTimeoutMs) {
    const std::uint32_t nGeneration = GetWriteGeneration();
    if (!m_writer.bOpen) return {};
    const auto lock = BeginWrite(nGeneration, 1, nTimeoutMs);
    if (!lock) return {};
    return {Block(m_writer.nPos), nGeneration};
}

int CBlockMemFileEx::CommitBlock(const BlockWrite& block, std::uint32_t nLength, const void* pInfo) {
    CAutoLock lock(m_csWrite);
    if (!m_writer.bOpen) return -1;
    const bool bIsNext = block.storage.data() == Block(m_writer.nPos).data();
    if (!bIsNext || block.nGeneration != m_writer.nGeneration) return 0;
    return Store(std::min(nLength, m_nBlockSize), pInfo);
}

/// Completes the next block and gives it to the readers. Under m_csWrite. @return its length.
int CBlockMemFileEx::Store(std::uint32_t nLength, const void* pInfo) {
    m_pLengths[m_writer.nPos] = nLength;
    std::copy_n(static_cast<const std::uint8_t*>(pInfo), m_nInfoSize, Info(m_writer.nPos));
    Credit(1);
    return static_cast<int>(nLength);
}

int CBlockMemFileEx::WriteEx(std::span<const std::uint8_t> data, const void* pInfo,
                             std::uint32_t nTimeoutMs) {
    return WriteEx(data, pInfo, nTimeoutMs, GetWriteGeneration());
}

int CBlockMemFileEx::WriteEx(std::span<const std::uint8_t> data, const void* pInfo, std::uint32_t nTimeoutMs,
                             std::uint32_t nGeneration) {
    if (!m_writer.bOpen) return -1;
    if (data.size() > m_nBlockSize) {
        Trace("Frame of %u bytes is cut to its block of %u bytes\n", static_cast<unsigned>(data.size()),
              m_nBlockSize);
        data = data.first(m_nBlockSize);
    }
    const auto lock = BeginWrite(nGeneration, 1, nTimeoutMs);
    if (!lock) return 0;
    std::ranges::copy(data, Block(m_writer.nPos).begin());
    return Store(static_cast<std::uint32_t>(data.size()), pInfo);
}

BlockRead CBlockMemFileEx::ReadEx(int nReader, std::span<std::uint8_t> dest, void* pInfo,
                                  std::uint32_t nTimeoutMs) {
    using enum BlockRead::EStatus;
    if (nReader < 0 || nReader >= kMaxReaders) return {BadHandle};
    ReadTurn turn = BeginRead(nReader, 1, nTimeoutMs);
    if (!turn.lock) return {turn.pReader ? Nothing : NotOpen};
    const std::uint32_t nIndex = turn.pReader->nPos;
    std::uint32_t nLength = m_pLengths[nIndex];
    if (nLength > dest.size()) {
        const auto nRoom = static_cast<std::uint32_t>(dest.size());
        Trace("Block of %u bytes is cut to %u bytes\n", nLength, nRoom);
        nLength = nRoom;
    }
    std::ranges::copy(Block(nIndex).first(nLength), dest.begin());
    std::copy_n(Info(nIndex), m_nInfoSize, static_cast<std::uint8_t*>(pInfo));
    const BlockRead read{Taken, nLength, turn.pReader->nGeneration};
    EndRead(turn, 1);
    return read;
}

}  // namespace kest

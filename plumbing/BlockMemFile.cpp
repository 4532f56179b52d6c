#include "plumbing/BlockMemFile.h"

#include <algorithm>

#include "platform/DebugText.h"
#include "plumbing/WaitFor.h"

namespace kest {

CBlockMemFile::CBlockMemFile(std::uint32_t nBlockSize, std::uint32_t nBlockCount)
    : m_nBlockSize(nBlockSize),
      m_nBlockCount(nBlockCount),
      m_pBlocks(std::make_unique_for_overwrite<std::uint8_t[]>(std::size_t{nBlockSize} * nBlockCount)),
      m_pLengths(std::make_unique<std::uint32_t[]>(nBlockCount)) {}

int CBlockMemFile::WOpen() {
    CAutoLock lockWrite(m_csWrite);  // no block may be written between the open mark and the index
    CAutoLock lock(m_csWriter);
    if (m_bWriterOpen) return -2;
    m_bWriterOpen = true;
    m_evWriter.Set();
    m_nWriteIndex = 0;
    return 0;
}

void CBlockMemFile::WClose() {
    CAutoLock lockWrite(m_csWrite);
    CAutoLock lock(m_csWriter);
    m_bWriterOpen = false;
    m_nWriteIndex = 0;
    ++m_nWriterBreaks;
    m_evWriter.Set();
}

int CBlockMemFile::ROpen() {
    CAutoLock lockWrite(m_csWrite);  // no block may be credited between taking the position and being open
    CAutoLock lock(m_csReaders);
    const auto pReader = std::find_if(m_aReader.begin(), m_aReader.end(), [](auto& r) { return !r.bOpen; });
    if (pReader == m_aReader.end()) return -1;
    CAutoLock lockReader(pReader->cs);
    if (pReader->bUsedBefore) pReader->event.Set();
    pReader->bUsedBefore = true;
    pReader->nPending = 0;
    pReader->nReadIndex = m_nWriteIndex;
    pReader->bOpen = true;
    ++m_nReaders;
    return static_cast<int>(pReader - m_aReader.begin());
}

void CBlockMemFile::RClose(int nReader) {
    if (nReader < 0 || nReader >= kMaxReaders) return;
    CAutoLock lock(m_csReaders);
    ReaderRecord& reader = m_aReader[static_cast<std::size_t>(nReader)];
    if (!reader.bOpen) return;
    {
        CAutoLock lockReader(reader.cs);
        reader.bOpen = false;
        ++reader.nBreaks;
        reader.event.Set();
    }
    --m_nReaders;
    WakeWriter();
}

void CBlockMemFile::Reset() {
    CAutoLock lock(m_csWrite);
    m_nWriteIndex = 0;
    for (ReaderRecord& reader : m_aReader) {
        if (!reader.bOpen) continue;
        CAutoLock lockReader(reader.cs);
        reader.nReadIndex = 0;
        reader.nPending = 0;
        ++reader.nBreaks;
        reader.event.Set();
    }
    ++m_nWriterBreaks;  // a block that waits for room belongs to what was queued before
    if (m_bWriterOpen) m_evWriter.Set();
}

std::uint32_t CBlockMemFile::GetFreeBlocks() const {
    std::uint32_t nMostPending = 0;
    for (const ReaderRecord& reader : m_aReader) {
        if (reader.bOpen) nMostPending = std::max(nMostPending, reader.nPending.load());
    }
    return m_nBlockCount - nMostPending;
}

std::uint32_t CBlockMemFile::GetPending(int nReader) const {
    if (nReader < 0 || nReader >= kMaxReaders) return 0;
    return m_aReader[static_cast<std::size_t>(nReader)].nPending;
}

std::uint32_t CBlockMemFile::GetGeneration(int nReader) const {
    if (nReader < 0 || nReader >= kMaxReaders) return 0;
    return m_aReader[static_cast<std::size_t>(nReader)].nBreaks;
}

std::span<std::uint8_t> CBlockMemFile::Block(std::uint32_t nIndex) {
    return {m_pBlocks.get() + std::size_t{nIndex} * m_nBlockSize, m_nBlockSize};
}

void CBlockMemFile::WakeWriter() {
    if (m_bWriterOpen && !m_evWriter.IsSignalled() && GetFreeBlocks() > 0) m_evWriter.Set();
}

CBlockMemFileEx::CBlockMemFileEx(std::uint32_t nBlockSize, std::uint32_t nBlockCount, std::uint32_t nInfoSize)
    : CBlockMemFile(nBlockSize, nBlockCount),
      m_nInfoSize(nInfoSize),
      m_pInfo(std::make_unique_for_overwrite<std::uint8_t[]>(std::size_t{nInfoSize} * nBlockCount)) {}

int CBlockMemFileEx::WriteEx(std::span<const std::uint8_t> data, const void* pInfo,
                             std::uint32_t nTimeoutMs) {
    return WriteEx(data, pInfo, nTimeoutMs, GetWriteGeneration());
}

int CBlockMemFileEx::WriteEx(std::span<const std::uint8_t> data, const void* pInfo, std::uint32_t nTimeoutMs,
                             std::uint32_t nGeneration) {
    if (!m_bWriterOpen) return -1;
    if (data.size() > m_nBlockSize) {
        Trace("Frame of %u bytes is cut to its block of %u bytes\n", static_cast<unsigned>(data.size()),
              m_nBlockSize);
        data = data.first(m_nBlockSize);
    }
    auto HasRoom = [this] { return GetFreeBlocks() > 0; };
    if (!WaitFor(m_evWriter, m_bWriterOpen, m_nWriterBreaks, nTimeoutMs, HasRoom)) return 0;

    CAutoLock lock(m_csWrite);
    if (!m_bWriterOpen || !HasRoom()) return 0;    // closed in between: block 0 may be somebody's still
    if (nGeneration != m_nWriterBreaks) return 0;  // emptied: the block would be the first of what comes now
    std::copy(data.begin(), data.end(), Block(m_nWriteIndex).begin());
    std::copy_n(static_cast<const std::uint8_t*>(pInfo), m_nInfoSize, Info(m_nWriteIndex).begin());
    m_pLengths[m_nWriteIndex] = static_cast<std::uint32_t>(data.size());
    m_nWriteIndex = Next(m_nWriteIndex);
    for (ReaderRecord& reader : m_aReader) {
        if (!reader.bOpen) continue;
        ++reader.nPending;
        if (!reader.event.IsSignalled()) reader.event.Set();
    }
    return static_cast<int>(data.size());
}

int CBlockMemFileEx::ReadEx(int nReader, std::span<std::uint8_t> dest, void* pInfo, std::uint32_t nTimeoutMs,
                            std::uint32_t* pnGeneration) {
    if (nReader < 0 || nReader >= kMaxReaders) return -1;
    ReaderRecord& reader = m_aReader[static_cast<std::size_t>(nReader)];
    if (!reader.bOpen) return -2;
    auto HasBlock = [&] { return reader.nPending > 0; };
    if (!WaitFor(reader.event, reader.bOpen, reader.nBreaks, nTimeoutMs, HasBlock)) return 0;

    std::uint32_t nLength = 0;
    {
        CAutoLock lock(reader.cs);
        if (!reader.bOpen || reader.nPending == 0) return 0;  // closed or emptied in between
        nLength = m_pLengths[reader.nReadIndex];
        if (nLength > dest.size()) {
            const auto nRoom = static_cast<std::uint32_t>(dest.size());
            Trace("Block of %u bytes is cut to %u bytes\n", nLength, nRoom);
            nLength = nRoom;
        }
        std::copy_n(Block(reader.nReadIndex).begin(), nLength, dest.begin());
        std::copy_n(Info(reader.nReadIndex).begin(), m_nInfoSize, static_cast<std::uint8_t*>(pInfo));
        if (pnGeneration) *pnGeneration = reader.nBreaks;
        reader.nReadIndex = Next(reader.nReadIndex);
        --reader.nPending;
    }
    WakeWriter();
    return static_cast<int>(nLength);
}

std::span<std::uint8_t> CBlockMemFileEx::Info(std::uint32_t nIndex) {
    return {m_pInfo.get() + std::size_t{nIndex} * m_nInfoSize, m_nInfoSize};
}

}  // namespace kest

#include "plumbing/RingBuffer.h"

#include <algorithm>
#include <utility>

#include "plumbing/StatusText.h"
#include "plumbing/WaitFor.h"

namespace kest {

CRingBuffer::CRingBuffer(std::uint32_t nCapacity)
    : m_nCapacity(nCapacity),
      m_pBuffer(std::make_unique<std::uint8_t[]>(nCapacity)),
      m_bError(nCapacity == 0) {}

// ---------------- write side

int CRingBuffer::OpenWriter(std::uint32_t nMaxChunk) {
    CAutoLock lockWrite(m_csWrite);
    CAutoLock lock(m_csWriter);
    if (m_bError || nMaxChunk > m_nCapacity / 3) return RB_E_TOO_BIG;
    if (m_bWriterOpen) return RB_E_WRITER_OPEN;
    m_llTotalWritten = 0;
    m_nWriterRequired = 0;
    m_nWritePos = 0;
    m_nWriterMaxChunk = nMaxChunk;
    m_bWriterOpen = true;
    m_evWriter.Set();
    return 0;
}

void CRingBuffer::CloseWriter() {
    CAutoLock lockWrite(m_csWrite);
    CAutoLock lock(m_csWriter);
    m_bWriterOpen = false;
    m_nWritePos = 0;
    ++m_nWriterBreaks;
    m_evWriter.Set();
}

int CRingBuffer::Write(std::span<const std::uint8_t> data, std::uint32_t nTimeoutMs) {
    if (!m_bWriterOpen) return RB_E_NOT_OPEN;
    auto HasRoom = [&] { return GetFreeSize() >= data.size(); };
    ThrowIfTerminated();
    if (!HasRoom()) {
        m_nWriterRequired = static_cast<std::uint32_t>(data.size());
        if (!WaitFor(m_evWriter, m_bWriterOpen, m_nWriterBreaks, nTimeoutMs, HasRoom)) return 0;
    }
    CAutoLock lock(m_csWrite);
    if (!m_bWriterOpen || !HasRoom()) return 0;  // closed in between
    const std::size_t nToEnd = std::min<std::size_t>(data.size(), m_nCapacity - m_nWritePos);
    std::copy_n(data.begin(), nToEnd, m_pBuffer.get() + m_nWritePos);
    std::copy(data.begin() + static_cast<std::ptrdiff_t>(nToEnd), data.end(), m_pBuffer.get());
    Credit(static_cast<std::uint32_t>(data.size()));
    return static_cast<int>(data.size());
}

int CRingBuffer::WriteWait(std::span<const std::uint8_t> data) { return Write(data, kInfinite); }

std::span<std::uint8_t> CRingBuffer::GetWritePointer(std::uint32_t& nFree) {
    nFree = GetFreeSize();
    const std::uint32_t nPos = m_nWritePos;
    return {m_pBuffer.get() + nPos, std::min(nFree, m_nCapacity - nPos)};
}

int CRingBuffer::Commit(std::uint32_t n) {
    CAutoLock lock(m_csWrite);
    if (!m_bWriterOpen) return RB_E_NOT_OPEN;
    if (n > GetFreeSize()) return RB_E_BAD_SIZE;
    Credit(n);
    return static_cast<int>(n);
}

std::uint32_t CRingBuffer::GetWriterMaxChunk() const { return m_bWriterOpen ? m_nWriterMaxChunk.load() : 0; }

void CRingBuffer::WakeWriter() {
    if (m_bWriterOpen) m_evWriter.Set();
}

std::uint32_t CRingBuffer::GetFreeSize() const {
    std::uint32_t nMostPending = 0;
    for (const ReaderRecord& reader : m_aReader) {
        if (reader.bOpen) nMostPending = std::max(nMostPending, reader.nPending.load());
    }
    return m_nCapacity - nMostPending;
}

/// Moves the write position and gives the bytes to the readers. Under m_csWrite.
void CRingBuffer::Credit(std::uint32_t n) {
    m_nWritePos = Moved(m_nWritePos, n);
    for (ReaderRecord& reader : m_aReader) {
        if (!reader.bOpen) continue;
        const std::uint32_t nPending = reader.nPending += n;
        if (nPending >= reader.nRequired && !reader.hEvent.IsSignalled()) reader.hEvent.Set();
    }
    m_llTotalWritten += n;
}

// ---------------- read sides

int CRingBuffer::OpenReader(std::uint32_t nMaxChunk) {
    CAutoLock lockWrite(m_csWrite);  // nothing may be written between taking the position and being open
    CAutoLock lock(m_csReaders);
    if (m_nReaders + 1 > kMaxReaders) return RB_E_TOO_MANY_READERS;
    std::uint32_t nLargest = nMaxChunk;
    for (const ReaderRecord& reader : m_aReader) {
        if (reader.bOpen) nLargest = std::max(nLargest, reader.nMaxChunk.load());
    }
    const bool bFits = m_bWriterOpen ? std::uint64_t{nLargest} + m_nWriterMaxChunk <= m_nCapacity / 2
                                     : nLargest <= m_nCapacity / 3;
    if (m_bError || !bFits) return RB_E_TOO_BIG;
    const auto pReader = std::find_if(m_aReader.begin(), m_aReader.end(), [](auto& r) { return !r.bOpen; });
    if (pReader == m_aReader.end()) return RB_E_NO_READER;

    CAutoLock lockReader(pReader->cs);
    if (pReader->bEventMade) pReader->hEvent.Set();
    pReader->bEventMade = true;
    pReader->llTotalRead = 0;
    pReader->nRequired = 0;
    pReader->nPending = 0;
    pReader->nMaxChunk = nMaxChunk;
    pReader->nReadPos = m_nWritePos.load();
    pReader->bOpen = true;
    ++m_nReaders;
    return static_cast<int>(pReader - m_aReader.begin());
}

void CRingBuffer::CloseReader(int nReader) {
    CAutoLock lock(m_csReaders);
    ReaderRecord* pReader = OpenRecord(nReader);
    if (!pReader) return;
    {
        CAutoLock lockReader(pReader->cs);
        pReader->bOpen = false;
        ++pReader->nBreaks;
        pReader->hEvent.Set();
    }
    --m_nReaders;
    WakeBlockedWriter();
}

int CRingBuffer::Read(int nReader, std::span<std::uint8_t> dest) {
    ReaderRecord* pReader = OpenRecord(nReader);
    return pReader ? TakeWaited(*pReader, dest, kInfinite) : RB_E_NOT_OPEN;
}

int CRingBuffer::ReadTimed(int nReader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs) {
    ReaderRecord* pReader = OpenRecord(nReader);
    if (!pReader) return RB_E_NOT_OPEN;
    if (dest.empty() || dest.size() > pReader->nMaxChunk) return RB_E_BAD_SIZE;
    return TakeWaited(*pReader, dest, nTimeoutMs);
}

int CRingBuffer::ReadAll(int nReader, std::span<std::uint8_t> dest) {
    ReaderRecord* pReader = OpenRecord(nReader);
    if (!pReader) return RB_E_NOT_OPEN;
    CAutoLock lock(pReader->cs);
    if (!pReader->bOpen) return RB_E_NOT_OPEN;  // closed in between
    dest = dest.first(std::min<std::size_t>(dest.size(), pReader->nPending));
    if (dest.empty()) return RB_E_BAD_SIZE;
    CopyOut(*pReader, dest);
    Advance(*pReader, static_cast<std::uint32_t>(dest.size()));
    return static_cast<int>(dest.size());
}

int CRingBuffer::Peek(int nReader, std::span<std::uint8_t> dest) {
    return PeekWaited(nReader, dest, kInfinite);
}

int CRingBuffer::PeekTimed(int nReader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs) {
    return PeekWaited(nReader, dest, nTimeoutMs);
}

int CRingBuffer::PeekNow(int nReader, std::span<std::uint8_t> dest) {
    const ReaderRecord* pReader = OpenRecord(nReader);
    if (!pReader) return RB_E_NOT_OPEN;
    CAutoLock lock(pReader->cs);
    if (!pReader->bOpen || pReader->nPending < dest.size()) return 0;
    CopyOut(*pReader, dest);
    return static_cast<int>(dest.size());
}

int CRingBuffer::Skip(int nReader, std::uint32_t n) {
    ReaderRecord* pReader = OpenRecord(nReader);
    if (!pReader) return RB_E_NOT_OPEN;
    {
        CAutoLock lock(pReader->cs);
        if (!pReader->bOpen || pReader->nPending < n) return 0;
        Advance(*pReader, n);
    }
    WakeBlockedWriter();
    return static_cast<int>(n);
}

int CRingBuffer::ReadToCode(int nReader, std::span<const std::uint32_t> codes, std::span<std::uint8_t> dest,
                            std::uint32_t nTimeoutMs) {
    constexpr std::size_t kCodeSize = 4;
    ReaderRecord* pReader = OpenRecord(nReader);
    if (!pReader) return RB_E_NOT_OPEN;
    if (dest.size() + kCodeSize > pReader->nMaxChunk) return RB_E_BAD_SIZE;
    if (!WaitForPending(*pReader, dest.size() + kCodeSize, nTimeoutMs)) return 0;

    std::uint32_t nBefore = 0;  // bytes in front of the code
    {
        CAutoLock lock(pReader->cs);
        if (!pReader->bOpen || pReader->nPending < dest.size() + kCodeSize)
            return 0;  // closed or emptied in between
        std::uint32_t nRegister = 0;
        std::uint32_t nPos = pReader->nReadPos;
        std::uint32_t nExamined = 0;
        auto Examine = [&] {
            nRegister = nRegister << 8 | m_pBuffer[nPos];
            nPos = Moved(nPos, 1);
            ++nExamined;
        };
        while (nExamined < kCodeSize) Examine();
        auto AtCode = [&] { return std::find(codes.begin(), codes.end(), nRegister) != codes.end(); };
        while (!AtCode() && nExamined < dest.size() + kCodeSize) Examine();
        nBefore = nExamined - static_cast<std::uint32_t>(kCodeSize);
        if (nBefore == 0) return RB_E_AT_CODE;
        CopyOut(*pReader, dest.first(nBefore));
        Advance(*pReader, nBefore);
    }
    WakeBlockedWriter();
    return static_cast<int>(nBefore);
}

int CRingBuffer::WaitForData(int nReader, std::uint32_t n, std::uint32_t nTimeoutMs) {
    ReaderRecord* pReader = OpenRecord(nReader);
    if (!pReader) return RB_E_NOT_OPEN;
    return WaitForPending(*pReader, n, nTimeoutMs) ? static_cast<int>(n) : 0;
}

int CRingBuffer::GetReadPointer(int nReader, std::span<const std::uint8_t>& storage,
                                std::uint32_t& nReadPos) const {
    const ReaderRecord* pReader = OpenRecord(nReader);
    if (!pReader) return RB_E_NOT_OPEN;
    storage = {m_pBuffer.get(), m_nCapacity};
    nReadPos = pReader->nReadPos;
    return static_cast<int>(pReader->nPending);
}

std::uint32_t CRingBuffer::GetAvailable(int nReader) const {
    const ReaderRecord* pReader = OpenRecord(nReader);
    return pReader ? pReader->nPending.load() : 0;
}

const CRingBuffer::ReaderRecord* CRingBuffer::OpenRecord(int nReader) const {
    if (nReader < 0 || nReader >= kMaxReaders) return nullptr;
    const ReaderRecord& reader = m_aReader[static_cast<std::size_t>(nReader)];
    return reader.bOpen ? &reader : nullptr;
}

CRingBuffer::ReaderRecord* CRingBuffer::OpenRecord(int nReader) {
    return const_cast<ReaderRecord*>(std::as_const(*this).OpenRecord(nReader));
}

bool CRingBuffer::WaitForPending(ReaderRecord& reader, std::size_t n, std::uint32_t nTimeoutMs) {
    ThrowIfTerminated();
    if (reader.nPending >= n) return true;
    reader.nRequired = static_cast<std::uint32_t>(n);
    return WaitFor(reader.hEvent, reader.bOpen, reader.nBreaks, nTimeoutMs,
                   [&] { return reader.bOpen && reader.nPending >= n; });
}

int CRingBuffer::TakeWaited(ReaderRecord& reader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs) {
    if (!WaitForPending(reader, dest.size(), nTimeoutMs)) return 0;
    const auto n = static_cast<std::uint32_t>(dest.size());
    {
        CAutoLock lock(reader.cs);
        if (!reader.bOpen || reader.nPending < n) return 0;  // closed or emptied in between
        CopyOut(reader, dest);
        Advance(reader, n);
    }
    WakeBlockedWriter();
    return static_cast<int>(n);
}

int CRingBuffer::PeekWaited(int nReader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs) {
    ReaderRecord* pReader = OpenRecord(nReader);
    if (!pReader) return RB_E_NOT_OPEN;
    if (dest.empty() || dest.size() > pReader->nMaxChunk) return RB_E_BAD_SIZE;
    if (!WaitForPending(*pReader, dest.size(), nTimeoutMs)) return 0;
    return std::max(0, PeekNow(nReader, dest));
}

/// Copies from the read position, in two pieces where the storage ends. Under the reader's cs.
void CRingBuffer::CopyOut(const ReaderRecord& reader, std::span<std::uint8_t> dest) const {
    const std::size_t nToEnd = std::min<std::size_t>(dest.size(), m_nCapacity - reader.nReadPos);
    std::copy_n(m_pBuffer.get() + reader.nReadPos, nToEnd, dest.begin());
    std::copy_n(m_pBuffer.get(), dest.size() - nToEnd, dest.begin() + static_cast<std::ptrdiff_t>(nToEnd));
}

/// Takes n pending bytes. Under the reader's cs.
void CRingBuffer::Advance(ReaderRecord& reader, std::uint32_t n) {
    reader.nReadPos = Moved(reader.nReadPos, n);
    reader.nPending -= n;
    reader.llTotalRead += n;
}

/// Sets the writer's event when it waits and its room is there.
void CRingBuffer::WakeBlockedWriter() {
    if (m_bWriterOpen && !m_evWriter.IsSignalled() && GetFreeSize() >= m_nWriterRequired) m_evWriter.Set();
}

// ---------------- whole buffer

void CRingBuffer::Flush() { Empty(/*bWake=*/true, /*bKeepOpen=*/true); }
void CRingBuffer::CloseAll() { Empty(/*bWake=*/true, /*bKeepOpen=*/false); }
void CRingBuffer::ClearQuiet() { Empty(/*bWake=*/false, /*bKeepOpen=*/true); }

void CRingBuffer::Empty(bool bWake, bool bKeepOpen) {
    CAutoLock lockWrite(m_csWrite);
    {
        CAutoLock lock(m_csWriter);
        m_bWriterOpen = bKeepOpen && !m_bError;
        m_llTotalWritten = 0;
        m_nWriterRequired = 0;
        m_nWritePos = 0;
        if (!bKeepOpen) ++m_nWriterBreaks;  // a flush brings room: it breaks off no write
        if (bWake) m_evWriter.Set();
    }
    CAutoLock lockReaders(m_csReaders);
    for (ReaderRecord& reader : m_aReader) {
        if (!reader.bOpen) continue;
        CAutoLock lock(reader.cs);
        reader.bOpen = bKeepOpen;
        reader.llTotalRead = 0;
        reader.nPending = 0;
        reader.nRequired = 0;
        reader.nReadPos = 0;
        if (!bWake) continue;  // nobody notices: a wait goes on
        ++reader.nBreaks;
        reader.hEvent.Set();
    }
    if (!bKeepOpen) m_nReaders = 0;
}

void CRingBuffer::DumpStatus(std::span<char> buffer) const {
    auto Event = [](const CEvent& event) {
        return event.IsSignalled() ? "Singled:May Running" : "Nonsignled:Waiting";
    };
    const std::uint32_t nFree = GetFreeSize();
    CStatusText text(buffer);
    text.Add("**************Begin***********\n");
    text.Add("BufferSize   %d\n", static_cast<int>(m_nCapacity));
    text.Add("Error       %s\n", m_bError ? "ERROR" : "NO ERROR");
    text.Add("OverRide    %s\n", m_bOverRide ? "YES" : "NO");
    text.Add("<<<<Writting status>>>>>>\n");
    text.Add(" Totoal writting bytes   %d\n", static_cast<std::int32_t>(m_llTotalWritten));
    text.Add("UsedMark     %s\n", m_bWriterOpen ? "TRUE" : "FALSE");
    text.Add("RequiredSize %d\n", static_cast<int>(m_nWriterRequired));
    text.Add("MaxRequiredSize   %d\n", static_cast<int>(m_nWriterMaxChunk));
    text.Add("FilePointer       %d\n", static_cast<int>(m_nWritePos));
    text.Add("FileSize          %d\n", static_cast<int>(m_nCapacity - nFree));
    text.Add("FreeBufferSize    %d\n", static_cast<int>(nFree));
    text.Add("FileEvent:WriteThread         %s\n", Event(m_evWriter));
    text.Add("-----------------------\n");
    text.Add("<<<<<<<<<Reading status>>>>>>>>>>>\n");
    for (int i = 0; i < kMaxReaders; ++i) {
        const ReaderRecord* pReader = OpenRecord(i);
        if (!pReader) continue;
        text.Add("------------ReadFile #%d---------\n", i);
        text.Add(" Totoal Reading bytes   %d\n", static_cast<std::int32_t>(pReader->llTotalRead));
        text.Add("UsedMark     %s\n", "TRUE");
        text.Add("RequiredSize %d\n", static_cast<int>(pReader->nRequired));
        text.Add("MaxRequiredSize   %d\n", static_cast<int>(pReader->nMaxChunk));
        text.Add("FilePointer       %d\n", static_cast<int>(pReader->nReadPos));
        text.Add("FileSize          %d\n", static_cast<int>(pReader->nPending));
        text.Add("FileEvent:ReadThread          %s\n", Event(pReader->hEvent));
    }
    text.Add("***********End******************\n");
}

}  // namespace kest

#include "plumbing/RingBuffer.h"

#include <algorithm>

#include "plumbing/StatusText.h"

namespace kest {

CRingBuffer::CRingBuffer(std::uint32_t nCapacity, std::uint32_t nReadBatch)
    : CBufferSides(nCapacity, nReadBatch),
      m_pBuffer(std::make_unique_for_overwrite<std::uint8_t[]>(nCapacity)) {}

// ---------------- write side

int CRingBuffer::OpenWriter(std::uint32_t nMaxChunk) {
    if (m_nUnits == 0 || nMaxChunk > m_nUnits / 3) return RB_E_TOO_BIG;
    return OpenWriteSide(nMaxChunk) ? 0 : RB_E_WRITER_OPEN;
}

void CRingBuffer::CloseWriter() {
    CAutoLock lock(m_csWrite);
    m_nInPlacePos = kNowhere;
    CloseWriteSide();
}

int CRingBuffer::Write(std::span<const std::uint8_t> data, std::uint32_t nTimeoutMs) {
    const std::uint32_t nGeneration = m_writer.nGeneration;
    if (!m_writer.bOpen) return RB_E_NOT_OPEN;
    const auto n = static_cast<std::uint32_t>(data.size());
    const auto lock = BeginWrite(nGeneration, n, nTimeoutMs);
    if (!lock) return 0;
    const std::size_t nToEnd = std::min(n, m_nUnits - m_writer.nPos);
    std::copy_n(data.begin(), nToEnd, m_pBuffer.get() + m_writer.nPos);
    std::ranges::copy(data.subspan(nToEnd), m_pBuffer.get());
    Credit(n);
    return static_cast<int>(n);
}

int CRingBuffer::WriteWait(std::span<const std::uint8_t> data) { return Write(data, kInfinite); }

std::span<std::uint8_t> CRingBuffer::GetWritePointer(std::uint32_t& nFree) {
    CAutoLock lock(m_csWrite);
    nFree = GetRoom();
    m_nInPlacePos = m_writer.nPos;
    return {m_pBuffer.get() + m_nInPlacePos, std::min(nFree, m_nUnits - m_nInPlacePos)};
}

int CRingBuffer::Commit(std::uint32_t n) {
    CAutoLock lock(m_csWrite);
    if (!m_writer.bOpen) return RB_E_NOT_OPEN;
    if (m_writer.nPos != m_nInPlacePos) return 0;
    if (n > std::min(GetRoom(), m_nUnits - m_nInPlacePos)) return RB_E_BAD_SIZE;
    Credit(n);
    m_nInPlacePos = m_writer.nPos;
    return static_cast<int>(n);
}

std::uint32_t CRingBuffer::GetWriterMaxChunk() const {
    return m_writer.bOpen ? m_writer.nMaxChunk.load() : 0;
}

void CRingBuffer::WakeWriter() {
    if (m_writer.bOpen) WakeWaitingWriter();
}

// ---------------- read sides

int CRingBuffer::OpenReader(std::uint32_t nMaxChunk) {
    CAutoLock lock(m_csWrite);  // no side may open between the test of the sizes and the opening
    std::uint32_t nLargest = nMaxChunk;
    int nReaders = 0;
    for (const ReaderRecord& reader : m_aReader) {
        if (!reader.bOpen) continue;
        nLargest = std::max(nLargest, reader.nMaxChunk.load());
        ++nReaders;
    }
    if (nReaders == kMaxReaders) return RB_E_TOO_MANY_READERS;
    const bool bFits = m_writer.bOpen ? std::uint64_t{nLargest} + m_writer.nMaxChunk <= m_nUnits / 2
                                      : nLargest <= m_nUnits / 3;
    return m_nUnits > 0 && bFits ? OpenReadSide(nMaxChunk) : RB_E_TOO_BIG;
}

void CRingBuffer::CloseReader(int nReader) { CloseReadSide(nReader); }

int CRingBuffer::Read(int nReader, std::span<std::uint8_t> dest) {
    return Transfer(nReader, dest, kInfinite, /*bTake=*/true);
}

int CRingBuffer::ReadTimed(int nReader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs) {
    const int nError = CheckSize(nReader, dest.size());
    return nError ? nError : Transfer(nReader, dest, nTimeoutMs, /*bTake=*/true);
}

int CRingBuffer::ReadAll(int nReader, std::span<std::uint8_t> dest) {
    ReadTurn turn = TryRead(nReader, 0);
    if (!turn.lock) return RB_E_NOT_OPEN;
    dest = dest.first(std::min<std::size_t>(dest.size(), turn.pReader->nPending));
    if (dest.empty()) return RB_E_BAD_SIZE;
    CopyOut(*turn.pReader, dest);
    EndRead(turn, static_cast<std::uint32_t>(dest.size()), /*bWakeWriter=*/false);
    return static_cast<int>(dest.size());
}

int CRingBuffer::Peek(int nReader, std::span<std::uint8_t> dest) {
    return PeekTimed(nReader, dest, kInfinite);
}

int CRingBuffer::PeekTimed(int nReader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs) {
    const int nError = CheckSize(nReader, dest.size());
    return nError ? nError : Transfer(nReader, dest, nTimeoutMs, /*bTake=*/false);
}

int CRingBuffer::PeekNow(int nReader, std::span<std::uint8_t> dest) {
    const ReadTurn turn = TryRead(nReader, static_cast<std::uint32_t>(dest.size()));
    if (!turn.lock) return turn.pReader ? 0 : RB_E_NOT_OPEN;
    CopyOut(*turn.pReader, dest);
    return static_cast<int>(dest.size());
}

int CRingBuffer::Skip(int nReader, std::uint32_t n) {
    ReadTurn turn = TryRead(nReader, n);
    if (!turn.lock) return turn.pReader ? 0 : RB_E_NOT_OPEN;
    EndRead(turn, n);
    return static_cast<int>(n);
}

int CRingBuffer::ReadToCode(int nReader, std::span<const std::uint32_t> codes, std::span<std::uint8_t> dest,
                            std::uint32_t nTimeoutMs) {
    constexpr std::uint32_t kCodeSize = 4;
    if (const int nError = CheckSize(nReader, dest.size() + kCodeSize)) return nError;
    const auto nWanted = static_cast<std::uint32_t>(dest.size()) + kCodeSize;
    ReadTurn turn = BeginRead(nReader, nWanted, nTimeoutMs);
    if (!turn.lock) return turn.pReader ? 0 : RB_E_NOT_OPEN;

    std::uint32_t nRegister = 0;
    std::uint32_t nPos = turn.pReader->nPos;
    std::uint32_t nExamined = 0;
    auto AtCode = [&] { return std::find(codes.begin(), codes.end(), nRegister) != codes.end(); };
    while (nExamined < kCodeSize || (nExamined < nWanted && !AtCode())) {
        nRegister = nRegister << 8 | m_pBuffer[nPos];
        nPos = Moved(nPos, 1);
        ++nExamined;
    }
    const std::uint32_t nBefore = nExamined - kCodeSize;
    if (nBefore == 0) return RB_E_AT_CODE;
    CopyOut(*turn.pReader, dest.first(nBefore));
    EndRead(turn, nBefore);
    return static_cast<int>(nBefore);
}

int CRingBuffer::WaitForData(int nReader, std::uint32_t n, std::uint32_t nTimeoutMs) {
    const ReadTurn turn = BeginRead(nReader, n, nTimeoutMs);
    if (!turn.pReader) return RB_E_NOT_OPEN;
    return turn.lock ? static_cast<int>(n) : 0;
}

int CRingBuffer::GetReadPointer(int nReader, std::span<const std::uint8_t>& storage,
                                std::uint32_t& nReadPos) {
    const ReadTurn turn = TryRead(nReader, 0);
    if (!turn.lock) return RB_E_NOT_OPEN;
    storage = {m_pBuffer.get(), m_nUnits};
    nReadPos = turn.pReader->nPos;
    return static_cast<int>(turn.pReader->nPending);
}

/// @return 0 for an open reader and one byte up to its declared chunk, else RB_E_NOT_OPEN, RB_E_BAD_SIZE.
int CRingBuffer::CheckSize(int nReader, std::size_t n) const {
    const ReaderRecord* pReader = FindReader(nReader);
    if (!pReader) return RB_E_NOT_OPEN;
    return n == 0 || n > pReader->nMaxChunk ? RB_E_BAD_SIZE : 0;
}

/// Waits for dest.size() bytes and copies them. @param bTake  takes them too.
int CRingBuffer::Transfer(int nReader, std::span<std::uint8_t> dest, std::uint32_t nTimeoutMs, bool bTake) {
    const auto n = static_cast<std::uint32_t>(dest.size());
    ReadTurn turn = BeginRead(nReader, n, nTimeoutMs);
    if (!turn.lock) return turn.pReader ? 0 : RB_E_NOT_OPEN;
    CopyOut(*turn.pReader, dest);
    if (bTake) EndRead(turn, n);
    return static_cast<int>(n);
}

/// Copies from the read position, in two parts where the storage ends. In the reader's turn.
void CRingBuffer::CopyOut(const ReaderRecord& reader, std::span<std::uint8_t> dest) const {
    const std::size_t nToEnd = std::min<std::size_t>(dest.size(), m_nUnits - reader.nPos);
    std::copy_n(m_pBuffer.get() + reader.nPos, nToEnd, dest.begin());
    std::copy_n(m_pBuffer.get(), dest.size() - nToEnd, dest.begin() + static_cast<std::ptrdiff_t>(nToEnd));
}

// ---------------- whole buffer

void CRingBuffer::Flush() { Restart(ESides::OpenWriter, /*bWake=*/true); }
void CRingBuffer::CloseAll() { Restart(ESides::CloseAll, /*bWake=*/true); }
void CRingBuffer::ClearQuiet() { Restart(ESides::OpenWriter, /*bWake=*/false); }

void CRingBuffer::Restart(ESides sides, bool bWake) {
    CAutoLock lock(m_csWrite);
    m_nInPlacePos = kNowhere;
    Empty(sides, bWake);
}

void CRingBuffer::DumpStatus(std::span<char> buffer) const {
    CAutoLock lockWrite(m_csWrite);
    CStatusText text(buffer);
    auto AddSide = [&](const Side& side, std::uint32_t nPending) {
        text.Add("UsedMark     %s\n", side.bOpen ? "TRUE" : "FALSE");
        text.Add("RequiredSize %d\n", static_cast<int>(side.nRequired));
        text.Add("MaxRequiredSize   %d\n", static_cast<int>(side.nMaxChunk));
        text.Add("FilePointer       %d\n", static_cast<int>(side.nPos));
        text.Add("FileSize          %d\n", static_cast<int>(nPending));
    };
    auto Event = [](const Side& side) {
        return side.hEvent.IsSignalled() ? "Singled:May Running" : "Nonsignled:Waiting";
    };
    const std::uint32_t nFree = GetRoom();
    text.Add("**************Begin***********\n");
    text.Add("BufferSize   %d\n", static_cast<int>(m_nUnits));
    text.Add("Error       %s\n", m_nUnits == 0 ? "ERROR" : "NO ERROR");
    text.Add("OverRide    %s\n", m_bOverRide ? "YES" : "NO");
    text.Add("<<<<Writting status>>>>>>\n");
    text.Add(" Totoal writting bytes   %d\n", static_cast<std::int32_t>(m_writer.llTotal));
    AddSide(m_writer, m_nUnits - nFree);
    text.Add("FreeBufferSize    %d\n", static_cast<int>(nFree));
    text.Add("FileEvent:WriteThread         %s\n", Event(m_writer));
    text.Add("-----------------------\n");
    text.Add("<<<<<<<<<Reading status>>>>>>>>>>>\n");
    for (int i = 0; i < kMaxReaders; ++i) {
        const ReaderRecord* pReader = FindReader(i);
        if (!pReader) continue;
        CAutoLock lock(pReader->cs);
        text.Add("------------ReadFile #%d---------\n", i);
        text.Add(" Totoal Reading bytes   %d\n", static_cast<std::int32_t>(pReader->llTotal));
        AddSide(*pReader, pReader->nPending);
        text.Add("FileEvent:ReadThread          %s\n", Event(*pReader));
    }
    text.Add("***********End******************\n");
}

}  // namespace kest

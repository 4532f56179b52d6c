#include "plumbing/BufferSides.h"

#include <algorithm>
#include <chrono>

#include "platform/Termination.h"

namespace kest {
namespace {

using Clock = std::chrono::steady_clock;

/// How long a side that may go on waits for a batch.
constexpr std::uint32_t kBatchWaitMs = 2;
/// A batch of room is this part of the capacity.
constexpr std::uint32_t kBatchDivisor = 4;

}  // namespace

/// Waits until `isReady()`, for n units. @return whether it became ready before the time-out, a wake-up and
/// the end of the generation.
template <class IsReady>
bool CBufferSides::Wait(Side& side, std::uint32_t nGeneration, std::uint32_t n, std::uint32_t nTimeoutMs,
                        IsReady isReady) {
    using namespace std::chrono;
    const std::uint32_t nWakes = side.nWakes;
    const auto begin = Clock::now();
    for (;;) {
        side.nRequired = n;
        side.hEvent.Reset();
        if (side.nGeneration != nGeneration) return false;
        if (isReady()) break;
        if (side.nWakes != nWakes) return false;
        std::uint32_t nRest = nTimeoutMs;
        if (nTimeoutMs != kInfinite) {
            const auto elapsed = duration_cast<milliseconds>(Clock::now() - begin).count();
            if (elapsed >= nTimeoutMs) return false;
            nRest -= static_cast<std::uint32_t>(elapsed);
        }
        side.hEvent.Wait(nRest);
    }
    side.hEvent.Set();  // reset while ready, it would stay so: nobody sets it for a side that need not wait
    return true;
}

// ---------------- opening and closing

bool CBufferSides::OpenWriteSide(std::uint32_t nMaxChunk) {
    CAutoLock lockWrite(m_csWrite);
    if (m_writer.bOpen) return false;
    m_bWritingEnded = false;
    for (ReaderRecord& reader : m_aReader) {
        if (!reader.bOpen) continue;
        CAutoLock lock(reader.cs);
        DropPending(reader, /*bWake=*/reader.nPending > 0);
    }
    m_writer.llTotal = 0;
    m_writer.nRequired = 0;
    m_writer.nPos = 0;
    m_writer.nMaxChunk = nMaxChunk;
    m_writer.bOpen = true;
    m_writer.hEvent.Set();
    return true;
}

void CBufferSides::CloseWriteSide() {
    CAutoLock lockWrite(m_csWrite);
    m_bWritingEnded = false;
    m_writer.nPos = 0;
    CloseSide(m_writer);
}

int CBufferSides::OpenReadSide(std::uint32_t nMaxChunk) {
    CAutoLock lockWrite(m_csWrite);  // nothing may be written between taking the position and being open
    const auto pReader = std::find_if(m_aReader.begin(), m_aReader.end(), [](auto& r) { return !r.bOpen; });
    if (pReader == m_aReader.end()) return -1;
    CAutoLock lock(pReader->cs);
    if (pReader->nGeneration > 0) pReader->hEvent.Set();  // only the first opening finds it as it was made
    pReader->llTotal = 0;
    pReader->nRequired = 0;
    pReader->nPending = 0;
    pReader->nMaxChunk = nMaxChunk;
    pReader->nPos = m_writer.nPos;
    pReader->bOpen = true;
    return static_cast<int>(pReader - m_aReader.begin());
}

void CBufferSides::CloseReadSide(int nReader) {
    CAutoLock lockWrite(m_csWrite);
    if (!FindReader(nReader)) return;
    {
        ReaderRecord& reader = m_aReader[static_cast<std::size_t>(nReader)];
        CAutoLock lock(reader.cs);
        CloseSide(reader);
    }
    WakeWriterWithRoom();
}

void CBufferSides::Empty(ESides sides, bool bWake) {
    CAutoLock lockWrite(m_csWrite);
    m_bWritingEnded = false;
    for (ReaderRecord& reader : m_aReader) {
        if (!reader.bOpen) continue;
        CAutoLock lock(reader.cs);
        DropPending(reader, bWake);
        reader.llTotal = 0;
        reader.nRequired = 0;
        if (sides == ESides::CloseAll) CloseSide(reader);
    }
    m_writer.llTotal = 0;
    m_writer.nRequired = 0;
    m_writer.nPos = 0;
    if (sides == ESides::CloseAll) return CloseSide(m_writer);
    if (sides == ESides::Keep) ++m_writer.nGeneration;
    if (sides == ESides::OpenWriter) m_writer.bOpen = m_nUnits > 0;
    if (bWake) WakeWaitingWriter();  // last: a writer that tests before the readers are empty finds no room
}

/// Puts the reader to the start of the storage, with nothing pending. Under both locks.
void CBufferSides::DropPending(ReaderRecord& reader, bool bWake) {
    reader.nPos = 0;
    reader.nPending = 0;
    if (!bWake) return;
    ++reader.nGeneration;
    reader.hEvent.Set();
}

/// Under the side's locks.
void CBufferSides::CloseSide(Side& side) {
    side.bOpen = false;
    ++side.nGeneration;
    side.hEvent.Set();
}

// ---------------- writing

std::uint32_t CBufferSides::GetRoom() const {
    std::uint32_t nMostPending = 0;
    for (const ReaderRecord& reader : m_aReader) {
        if (reader.bOpen) nMostPending = std::max(nMostPending, reader.nPending.load());
    }
    return m_nUnits - nMostPending;
}

std::unique_lock<CCritSec> CBufferSides::BeginWrite(std::uint32_t nGeneration, std::uint32_t n,
                                                    std::uint32_t nTimeoutMs) {
    ThrowIfTerminated();
    if (GetRoom() < n) {
        auto WaitForRoom = [&](std::uint32_t nRoom, std::uint32_t nMs) {
            return Wait(m_writer, nGeneration, nRoom, nMs, [&] { return GetRoom() >= nRoom; });
        };
        if (!WaitForRoom(n, nTimeoutMs)) return {};
        WaitForRoom(std::max(n, m_nUnits / kBatchDivisor), std::min(kBatchWaitMs, nTimeoutMs));
        m_writer.nRequired = n;
        m_writer.hEvent.Set();
    }
    std::unique_lock lock(m_csWrite);
    if (m_writer.nGeneration != nGeneration) lock.unlock();  // otherwise the room has not become less
    return lock;
}

void CBufferSides::Credit(std::uint32_t n) {
    m_writer.nPos = Moved(m_writer.nPos, n);
    m_writer.llTotal += n;
    if (m_bWritingEnded) m_bWritingEnded = false;
    for (ReaderRecord& reader : m_aReader) {
        if (!reader.bOpen) continue;
        const std::uint32_t nPending = reader.nPending += n;
        if (!reader.hEvent.IsSignalled() && nPending >= reader.nRequired) reader.hEvent.Set();
    }
}

void CBufferSides::EndWriting() {
    m_bWritingEnded = true;
    for (ReaderRecord& reader : m_aReader) reader.hEvent.Set();
}

void CBufferSides::WakeWaitingWriter() {
    ++m_writer.nWakes;
    m_writer.hEvent.Set();
}

// ---------------- reading

const CBufferSides::ReaderRecord* CBufferSides::FindReader(int nReader) const {
    if (nReader < 0 || nReader >= kMaxReaders) return nullptr;
    const ReaderRecord& reader = m_aReader[static_cast<std::size_t>(nReader)];
    return reader.bOpen ? &reader : nullptr;
}

std::uint32_t CBufferSides::GetPendingUnits(int nReader) const {
    const ReaderRecord* pReader = FindReader(nReader);
    return pReader ? pReader->nPending.load() : 0;
}

CBufferSides::ReadTurn CBufferSides::BeginRead(int nReader, std::uint32_t n, std::uint32_t nTimeoutMs) {
    ThrowIfTerminated();
    if (nReader < 0 || nReader >= kMaxReaders) return {};
    ReaderRecord& reader = m_aReader[static_cast<std::size_t>(nReader)];
    const std::uint32_t nGeneration = reader.nGeneration;  // before the test of the side
    if (!reader.bOpen) return {};
    ReadTurn turn{&reader, {}};
    auto IsReady = [&] { return reader.nPending >= n; };
    auto WaitForPending = [&](std::uint32_t nUnits, std::uint32_t nMs) {
        return Wait(reader, nGeneration, nUnits, nMs,
                    [&, nUnits] { return reader.nPending >= nUnits || m_bWritingEnded; });
    };
    // First for a batch, which comes soon where units come fast, and then for what is wanted.
    if (!IsReady() && nTimeoutMs > kBatchWaitMs && m_nReadBatch > n) {
        WaitForPending(m_nReadBatch, kBatchWaitMs);
        if (nTimeoutMs != kInfinite) nTimeoutMs -= kBatchWaitMs;
    }
    if (!IsReady() && !WaitForPending(n, nTimeoutMs)) return turn;
    turn.lock = std::unique_lock(reader.cs);
    if (reader.nGeneration != nGeneration || !IsReady()) turn.lock.unlock();
    return turn;
}

CBufferSides::ReadTurn CBufferSides::TryRead(int nReader, std::uint32_t n) {
    if (!FindReader(nReader)) return {};
    ReaderRecord& reader = m_aReader[static_cast<std::size_t>(nReader)];
    ReadTurn turn{&reader, std::unique_lock(reader.cs)};
    if (!reader.bOpen || reader.nPending < n) turn.lock.unlock();
    return turn;
}

void CBufferSides::EndRead(ReadTurn& turn, std::uint32_t n, bool bWakeWriter) {
    turn.pReader->nPos = Moved(turn.pReader->nPos, n);
    turn.pReader->nPending -= n;
    turn.pReader->llTotal += n;
    turn.lock.unlock();
    if (bWakeWriter) WakeWriterWithRoom();
}

void CBufferSides::WakeWriterWithRoom() {
    if (!m_writer.hEvent.IsSignalled() && m_writer.bOpen && GetRoom() >= m_writer.nRequired) {
        m_writer.hEvent.Set();
    }
}

}  // namespace kest

#include "demux/Mpeg2PsPullDemux.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "platform/DebugText.h"

namespace kest {

KestMpeg2PsPullDemux::~KestMpeg2PsPullDemux() { EndThread(); }

void KestMpeg2PsPullDemux::NewSegment(std::int64_t llStart) {
    // The flag first: what the core is about to write is of the old segment. Under the lock: emptied after
    // the core has taken the flag, the queues would lose frames of the new one.
    std::lock_guard lock(m_segmentMutex);
    m_llSegmentPos = llStart;
    m_bNewSegment = true;
    m_video.pQueue->Reset();
    m_audio.pQueue->Reset();
}

void KestMpeg2PsPullDemux::NewSegment(std::int64_t llStart, std::int64_t llStop) {
    m_llEndPos = llStop;
    NewSegment(llStart);
}

/// A pulled source is read from where the last segment was asked to begin. What was pushed already stays.
void KestMpeg2PsPullDemux::BeginRun() {
    if (IsPulling()) m_bNewSegment = true;
}

/// Carries out a requested restart.
void KestMpeg2PsPullDemux::BeginUnit() {
    if (!m_bNewSegment) return;
    std::lock_guard lock(m_segmentMutex);
    m_bNewSegment = false;
    m_llFilePos = m_llSegmentPos;
    m_bEndSent = false;
    EmptyInput();
    ResetParser();
    m_video.pQueue->Reset();
    m_audio.pQueue->Reset();
    Trace("==> New Segment <==\n");
}

/// The source has nothing more to resynchronise on: ends both streams, once until there is data again.
void KestMpeg2PsPullDemux::OnNoData() {
    if (!IsPulling() || m_bEndSent) return;
    for (ElementaryStream* pStream : {&m_audio, &m_video}) SendEndOfStream(*pStream);
    m_bEndSent = true;
}

/// A segment that is asked for meanwhile has not ended.
void KestMpeg2PsPullDemux::SendEndOfStream(ElementaryStream& stream) {
    FRAME_INFO info{};
    info.bEndOfStream = 1;
    const std::uint32_t nGeneration = stream.pQueue->GetWriteGeneration();
    if (IsSuperseded()) return;
    stream.pQueue->WriteEx({}, &info, kInfinite, nGeneration);
    stream.accumulator.Reset();
}

void KestMpeg2PsPullDemux::FillVideoInfo(FRAME_INFO& info, std::uint32_t nHeaderSize) {
    FillOrigin(m_video, info, nHeaderSize);
    KestMpeg2PsDemux::FillVideoInfo(info, nHeaderSize);
}

void KestMpeg2PsPullDemux::FillAudioInfo(FRAME_INFO& info, std::uint32_t nHeaderSize) {
    FillOrigin(m_audio, info, nHeaderSize);
    KestMpeg2PsDemux::FillAudioInfo(info, nHeaderSize);
}

void KestMpeg2PsPullDemux::FillOrigin(ElementaryStream& stream, FRAME_INFO& info, std::uint32_t nHeaderSize) {
    info.llFilePos = stream.llStartPos;
    info.bDiscontinuity = stream.bDiscontinuity;
    stream.bDiscontinuity = false;
    if (!IsPulling()) return;
    const std::int64_t llUnread = m_pStreamBuffer->GetAvailable(m_nReader) - m_nTaken;
    stream.llStartPos = m_llFilePos - llUnread - nHeaderSize;
}

// Pulled bytes are parsed in place, in a window onto the stream buffer: nobody but this thread writes to the
// buffer or empties it. What is taken from the window is given back to the buffer only when the window has
// too little, so that the buffer's locks are taken once a piece and not once a field.
KestMpeg2PsPullDemux::Bytes KestMpeg2PsPullDemux::PeekData(std::uint32_t n) {
    if (!IsPulling()) return KestMpeg2PsDemux::PeekData(n);
    if (m_window.size() >= n || MoveWindow(n)) return m_window.first(n);
    const auto dest =
        std::span(m_abScratch).first(n);  // the bytes wrap at the end of the buffer, or are not there
    return m_pStreamBuffer->PeekNow(m_nReader, dest) > 0 ? Bytes(dest) : Bytes();
}

KestMpeg2PsPullDemux::Bytes KestMpeg2PsPullDemux::ReadData(std::uint32_t n) {
    if (!IsPulling()) return KestMpeg2PsDemux::ReadData(n);
    const Bytes bytes = PeekData(n);
    if (m_window.size() >= n) {
        m_window = m_window.subspan(n);
        m_nTaken += n;
        return bytes;
    }
    m_window = {};
    return m_pStreamBuffer->Skip(m_nReader, n) > 0 ? bytes : Bytes();
}

/// Gives back what was taken, refills, and sets the window on what is unread up to the end of the storage.
/// @return whether the window has n bytes.
bool KestMpeg2PsPullDemux::MoveWindow(std::uint32_t n) {
    m_window = {};
    if (m_nTaken > 0) m_pStreamBuffer->Skip(m_nReader, std::exchange(m_nTaken, 0));
    if (!Refill(n)) return false;
    Bytes storage;
    std::uint32_t nPos = 0;
    const int nPending = m_pStreamBuffer->GetReadPointer(m_nReader, storage, nPos);
    if (nPending <= 0) return false;
    const Bytes window = storage.subspan(
        nPos, std::min<std::size_t>(static_cast<std::size_t>(nPending), storage.size() - nPos));
    if (window.size() < n) return false;
    m_window = window;
    return true;
}

void KestMpeg2PsPullDemux::EmptyInput() {
    m_window = {};
    m_nTaken = 0;
    KestMpeg2PsDemux::EmptyInput();
}

/// Reads from the source until n bytes are unread in the stream buffer. @return whether they are.
bool KestMpeg2PsPullDemux::Refill(std::uint32_t n) {
    while (m_pStreamBuffer->GetAvailable(m_nReader) < n) {
        if (!FetchPiece(n)) return false;
    }
    return true;
}

/// Reads the next piece, straight into the stream buffer where it fits in one part: a whole piece, or at the
/// end what is left up to the end position, unless that is less than the n bytes that are wanted.
bool KestMpeg2PsPullDemux::FetchPiece(std::uint32_t n) {
    std::uint32_t nFree = 0;
    std::span<std::uint8_t> dest = m_pStreamBuffer->GetWritePointer(nFree);
    const bool bInPlace = dest.size() >= kPieceSize;
    if (!bInPlace) dest = m_abStaging;

    std::int64_t nLength = kPieceSize;
    if (m_pReader->SyncRead(m_llFilePos, static_cast<LONG>(nLength), dest.data()) != S_OK) {
        nLength = m_llEndPos - m_llFilePos;
        if (nLength >= kPieceSize || nLength < n) return false;
        if (m_pReader->SyncRead(m_llFilePos, static_cast<LONG>(nLength), dest.data()) != S_OK) return false;
    }
    const auto piece = dest.first(static_cast<std::size_t>(nLength));
    const int nWritten = bInPlace ? m_pStreamBuffer->Commit(static_cast<std::uint32_t>(nLength))
                                  : m_pStreamBuffer->Write(piece, 0);
    if (nWritten <= 0) return false;
    m_llFilePos += nLength;
    return true;
}

}  // namespace kest

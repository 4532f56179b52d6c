#include "demux/Mpeg2PsDemux.h"

#include <algorithm>
#include <optional>

#include "demux/StartCodeSearch.h"
#include "demux/SystemLayer.h"
#include "platform/DebugText.h"

namespace kest {
namespace {

constexpr std::uint32_t kPushTryMs = 1000;
constexpr std::uint32_t kStopBoundMs = 1000;
constexpr std::uint32_t kNoDataPauseMs = 10;
constexpr std::uint32_t kResyncPiece = 1024;  // bytes that one look of the resynchronisation takes in
constexpr std::uint32_t kPesFixedHeader = 9;  // of a PES packet: start code, length, flags, header length

}  // namespace

KestMpeg2PsDemux::KestMpeg2PsDemux() = default;

KestMpeg2PsDemux::~KestMpeg2PsDemux() { EndThread(); }

void KestMpeg2PsDemux::EndThread() {
    if (!m_hThread.Exists()) return;  // never started, or a derived class has ended it
    KestMpeg2PsDemux::Stop();
    CloseThread();
}

int KestMpeg2PsDemux::Open(CRingBuffer* pStreamBuffer, CBlockMemFileEx* pVideoQueue,
                           CBlockMemFileEx* pAudioQueue) {
    auto AttachQueue = [](ElementaryStream& stream, CBlockMemFileEx* pQueue, std::uint32_t nSize,
                          std::uint32_t nCount) {
        if (!pQueue) stream.pOwnQueue = std::make_unique<CBlockMemFileEx>(nSize, nCount, sizeof(FRAME_INFO));
        stream.pQueue = pQueue ? pQueue : stream.pOwnQueue.get();
    };
    if (!pStreamBuffer) m_pOwnStreamBuffer = std::make_unique<CRingBuffer>(kStreamBufferSize);
    m_pStreamBuffer = pStreamBuffer ? pStreamBuffer : m_pOwnStreamBuffer.get();
    AttachQueue(m_video, pVideoQueue, 524288, 6);
    AttachQueue(m_audio, pAudioQueue, 32768, 32);
    OpenSides();
    if (m_nReader < 0) return m_nReader;
    StartThread();
    return 0;
}

void KestMpeg2PsDemux::OpenSides() {
    if (m_pOwnStreamBuffer) m_pOwnStreamBuffer->OpenWriter(kMaxChunk);
    m_nReader = m_pStreamBuffer->OpenReader(kMaxChunk);
    for (ElementaryStream* pStream : {&m_video, &m_audio}) {
        if (!pStream->pOwnQueue) continue;
        pStream->pOwnQueue->WOpen();
        pStream->pOwnQueue->ROpen();
    }
}

void KestMpeg2PsDemux::CloseSides() {
    if (m_pOwnStreamBuffer) m_pOwnStreamBuffer->CloseWriter();
    m_pStreamBuffer->CloseReader(m_nReader);
    for (ElementaryStream* pStream : {&m_video, &m_audio}) {
        if (!pStream->pOwnQueue) continue;
        pStream->pOwnQueue->WClose();
        pStream->pOwnQueue->RClose(0);
    }
}

int KestMpeg2PsDemux::PushData(std::span<const std::uint8_t> data) {
    if (data.empty() || !m_pOwnStreamBuffer || IsPulling()) return 0;
    while (IsRunning()) {
        const int nWritten = m_pOwnStreamBuffer->Write(data, kPushTryMs);
        if (nWritten != 0) return std::max(0, nWritten);
        DebugText("time out");
    }
    return 0;
}

void KestMpeg2PsDemux::Reset() {
    m_bResetRequest = true;
    if (!IsPulling()) m_pStreamBuffer->Flush();
}

void KestMpeg2PsDemux::EmptyInput() { m_pStreamBuffer->Flush(); }

void KestMpeg2PsDemux::Stop() {
    CWorkerThread::Stop();
    CloseSides();
    if (WaitForThread(kStopBoundMs) == WAIT_TIMEOUT) KillThread();
    OpenSides();
    ResetParser();
    Trace("Passed KestMpeg2PsDemux::Stop!!\n");
}

void KestMpeg2PsDemux::ResetParser() {
    for (ElementaryStream* pStream : {&m_video, &m_audio}) {
        pStream->accumulator.Reset();
        pStream->llPrevPts = pStream->llPrevDts = kNoStamp;
    }
    m_bEndCode = false;
}

/// Carries out a requested reset, on the core's thread. A pulled stream is emptied only here, where nothing
/// of it is being parsed in place.
void KestMpeg2PsDemux::HonourReset() {
    if (!m_bResetRequest.exchange(false)) return;
    if (IsPulling()) EmptyInput();
    ResetParser();
}

std::int32_t KestMpeg2PsDemux::ThreadProc() {
    m_evRun.Wait();
    if (m_evStop.IsSignalled()) return -1;
    m_maps.InitStreamMaps();
    BeginRun();
    while (m_evRun.Wait() && !m_evStop.IsSignalled()) {
        HonourReset();
        BeginUnit();
        ParseUnit();
    }
    return 0;
}

/// Goes to the next start code and parses what it begins.
void KestMpeg2PsDemux::ParseUnit() {
    const ESync sync = Resync();
    if (sync != ESync::None) OnDataFound();
    if (sync == ESync::None && !m_evStop.IsSignalled()) {
        OnNoData();
        m_evStop.Wait(kNoDataPauseMs);
    }
    if (sync != ESync::StartCode) return;
    if (!IsPulling()) HonourReset();  // what was waited for may have been pushed after a reset
    const Bytes streamId = ReadData(1);
    if (streamId.empty()) return;
    switch (m_maps.ClassifyStreamId(streamId[0])) {
        case kProgramStreamMapId: return ParsePsm();
        case kPackHeaderId: return ParsePackHeader();
        case kSystemHeaderId:
        case kPaddingStreamId: return SkipSection();
        case kProgramEndId: m_bEndCode = true; return;
        case CStreamMaps::kAudio: return ParsePes(m_audio);
        case CStreamMaps::kVideo: return ParsePes(m_video);
        default: return;  // ignored: the next resynchronisation skips it
    }
}

/// Takes everything up to and with the next start code prefix. None: no data, or stopped.
KestMpeg2PsDemux::ESync KestMpeg2PsDemux::Resync() {
    std::array<std::uint8_t, 2> abTail = {0xFF, 0xFF};  // the last bytes before the piece
    for (;;) {
        const Bytes piece = PeekData(kResyncPiece);
        if (piece.empty()) return ESync::None;

        // What began in the piece before ends at the first or second byte of this one.
        const std::array<std::uint8_t, 4> abSeam = {abTail[0], abTail[1], piece[0], piece[1]};
        auto EarlierOf = [](std::optional<std::size_t> seam, std::optional<std::size_t> inside) {
            return seam ? *seam - 2 : inside.value_or(kResyncPiece);
        };
        const std::size_t nPrefix = EarlierOf(FindStartCodePrefix(abSeam), FindStartCodePrefix(piece));
        const std::size_t nPat =
            EarlierOf(FindPatPacket(abSeam),
                      FindPatPacket(piece.first(nPrefix < kResyncPiece ? nPrefix : piece.size())));
        abTail = {piece[kResyncPiece - 2], piece[kResyncPiece - 1]};

        const std::size_t nFound = std::min(nPrefix, nPat);
        const auto nTaken = static_cast<std::uint32_t>(std::min<std::size_t>(nFound + 1, kResyncPiece));
        if (ReadData(nTaken).empty()) return ESync::None;
        if (nPat < nPrefix) return ESync::PatPacket;
        if (nPrefix < kResyncPiece) {
            if (nPrefix != 2) Trace("offset is wrong skipped %d bytes\n", static_cast<int>(nPrefix));
            return ESync::StartCode;
        }
        m_evRun.Wait();
        if (m_evStop.IsSignalled()) return ESync::None;
    }
}

/// Reads the pack header behind its start code (ISO/IEC 13818-1 2.5.3.3); the SCR is not used.
void KestMpeg2PsDemux::ParsePackHeader() {
    constexpr std::uint32_t kPackHeaderSize = 10;
    const Bytes header = ReadData(kPackHeaderSize);
    if (header.empty()) return;
    if (const unsigned nStuffing = header[9] & 0x07; nStuffing > 0)
        ReadData(nStuffing);  // pack_stuffing_length
}

/// Skips a structure that begins with its 16-bit length.
void KestMpeg2PsDemux::SkipSection() {
    const Bytes length = ReadData(2);
    if (length.empty()) return;
    if (const unsigned nLength = Read16(length, 0); nLength > 0) ReadData(nLength);
}

void KestMpeg2PsDemux::ParsePsm() {
    const Bytes length = ReadData(2);
    if (length.empty()) return;
    const unsigned nLength = Read16(length, 0);
    if (nLength == 0) return;
    m_maps.ApplyMap(ReadData(nLength));
}

/// Reads a PES packet behind its start code (ISO/IEC 13818-1 2.4.3.6) and gathers its payload. Its stamps
/// count before its length is looked at: they begin a frame even when no payload can be taken.
void KestMpeg2PsDemux::ParsePes(ElementaryStream& stream) {
    const Bytes fixed = ReadData(5);
    if (fixed.empty()) return;
    const int nPacketLength = Read16(fixed, 0);  // PES_packet_length
    const unsigned nPtsDtsFlags = fixed[3] >> 6;
    const std::uint8_t nHeaderLength = fixed[4];  // PES_header_data_length
    if (nHeaderLength > 0) {
        const Bytes header = ReadData(nHeaderLength);
        if (header.empty()) return;
        if (const auto stamps = ParsePtsDts(nPtsDtsFlags, header)) {
            BeginFrame(stream, *stamps, nHeaderLength + kPesFixedHeader);
        }
    }
    const int nPayload = nPacketLength - nHeaderLength - 3;
    if (nPayload <= 0) return;  // unbounded (length 0), empty, or shorter than its own header
    const Bytes payload = ReadData(static_cast<std::uint32_t>(nPayload));
    stream.accumulator.Append(payload);  // what does not fit is lost, and the frame goes on without it
}

/// Queues the frame gathered so far, when it is one, and begins the next.
void KestMpeg2PsDemux::BeginFrame(ElementaryStream& stream, const PesStamps& stamps,
                                  std::uint32_t nHeaderSize) {
    const bool bVideo = &stream == &m_video;
    FRAME_INFO info{};
    if (bVideo) {
        FillVideoInfo(info, nHeaderSize);
    } else {
        FillAudioInfo(info, nHeaderSize);
    }
    const bool bHasStamps = (bVideo ? stream.llPrevPts : stream.llPrevDts) != kNoStamp;
    if (bHasStamps && stream.accumulator.GetFill() > 0) {
        // Before the look: who supersedes says so first and empties the queue then.
        const std::uint32_t nGeneration = stream.pQueue->GetWriteGeneration();
        if (!IsSuperseded()) {
            stream.pQueue->WriteEx(stream.accumulator.GetBytes(), &info, kInfinite, nGeneration);
        }
    } else {
        stream.bDiscontinuity = true;
    }
    stream.accumulator.Reset();
    stream.llPrevPts = stamps.llPts;
    stream.llPrevDts = stamps.llDts;
}

void KestMpeg2PsDemux::FillVideoInfo(FRAME_INFO& info, std::uint32_t) {
    info.llPts = m_video.llPrevPts;
    info.llDts = m_video.llPrevDts;
    info.bEndOfStream = 0;
}

void KestMpeg2PsDemux::FillAudioInfo(FRAME_INFO& info, std::uint32_t) {
    info.llPts = m_audio.llPrevPts;
    info.llDts = m_audio.llPrevDts;
    info.bEndOfStream = 0;
}

KestMpeg2PsDemux::Bytes KestMpeg2PsDemux::ReadData(std::uint32_t n) {
    const auto dest = std::span(m_abScratch).first(n);
    return m_pStreamBuffer->Read(m_nReader, dest) > 0 ? Bytes(dest) : Bytes();
}

KestMpeg2PsDemux::Bytes KestMpeg2PsDemux::PeekData(std::uint32_t n) {
    const auto dest = std::span(m_abScratch).first(n);
    return m_pStreamBuffer->Peek(m_nReader, dest) > 0 ? Bytes(dest) : Bytes();
}

}  // namespace kest

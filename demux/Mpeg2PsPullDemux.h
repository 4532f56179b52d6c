#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

#include "demux/Mpeg2PsDemux.h"
#include "platform/api/AsyncReader.h"

namespace kest {

/// The program-stream core that reads a pull source itself. It adds to its base the byte positions of frames,
/// discontinuity flags, restarts at a byte position (new segments) and end-of-stream records.
///
/// Without a reader it is in push operation and parses what is pushed, as its base does; positions then have
/// no meaning, and the end of the stream is its pusher's to tell.
class KestMpeg2PsPullDemux final : public KestMpeg2PsDemux {
public:
    ~KestMpeg2PsPullDemux();

    /// The source to read; none for push operation. Borrowed: it stays valid until the thread has ended. Set
    /// before `Open`, or while the thread is stopped.
    void SetReader(IAsyncReader* pReader) { m_pReader = pReader; }
    /// Asks for a restart at a file offset and empties both queues. Any thread, once the core is open.
    void NewSegment(std::int64_t llStart);
    /// The same, and sets the byte after the last one to read. Without an end position the last partial 16384
    /// bytes of a source are not read.
    void NewSegment(std::int64_t llStart, std::int64_t llStop);

private:
    static constexpr std::uint32_t kPieceSize = 16384;  // bytes of one read from the source

    Bytes ReadData(std::uint32_t n) override;
    Bytes PeekData(std::uint32_t n) override;
    void FillVideoInfo(FRAME_INFO& info, std::uint32_t nHeaderSize) override;
    void FillAudioInfo(FRAME_INFO& info, std::uint32_t nHeaderSize) override;
    void BeginRun() override;
    void BeginUnit() override;
    void OnDataFound() override { m_bEndSent = false; }
    void OnNoData() override;
    bool IsPulling() const override { return m_pReader != nullptr; }
    bool IsSuperseded() const override { return m_bNewSegment; }

    void EmptyInput() override;

    bool MoveWindow(std::uint32_t n);
    bool Refill(std::uint32_t n);
    bool FetchPiece(std::uint32_t n);
    void FillOrigin(ElementaryStream& stream, FRAME_INFO& info, std::uint32_t nHeaderSize);
    void SendEndOfStream(ElementaryStream& stream);

    IAsyncReader* m_pReader = nullptr;            // the source, borrowed; none in push operation
    std::int64_t m_llFilePos = 0;                 // offset of the next byte to read from the source
    std::atomic<std::int64_t> m_llEndPos{0};      // the byte after the last one to read
    std::mutex m_segmentMutex;                    // keeps a request and its carrying out apart
    std::atomic<bool> m_bNewSegment{false};       // a restart is requested
    std::atomic<std::int64_t> m_llSegmentPos{0};  // where it is to begin
    bool m_bEndSent = false;     // the present run of empty results has its end-of-stream records
    Bytes m_window;              // unread bytes of the stream buffer, in place
    std::uint32_t m_nTaken = 0;  // bytes in front of the window that the buffer still counts
    std::array<std::uint8_t, kPieceSize> m_abStaging;  // a piece that does not fit the buffer in one part
};

}  // namespace kest

#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "demux/FrameInfo.h"
#include "demux/PesHeader.h"
#include "demux/StreamMaps.h"
#include "plumbing/BlockMemFile.h"
#include "plumbing/FrameAccumulator.h"
#include "plumbing/RingBuffer.h"
#include "plumbing/WorkerThread.h"

namespace kest {

/// The MPEG-2 program-stream core: takes a program stream out of a stream buffer, walks its system layer
/// (ISO/IEC 13818-1 2.5) and puts each frame of the video and the audio stream, with its FRAME_INFO, into the
/// stream's block queue.
///
/// A frame is the payload from one PES packet with a PTS up to the next such packet; it is queued when that
/// next packet arrives. Broken input is skipped: a structure that does not fit is abandoned, and parsing goes
/// on at the next start code. The core works on its own thread; `PushData`, `Reset` and the operations of
/// CWorkerThread may be called from others.
///
/// This class parses what others push. KestMpeg2PsPullDemux also reads a source itself.
class KestMpeg2PsDemux : public CWorkerThread {
public:
    KestMpeg2PsDemux();
    ~KestMpeg2PsDemux();

    /// Attaches buffer and queues, opens the core's sides and starts the thread, which holds until `Resume`.
    /// Called once.
    /// @param pStreamBuffer  where the stream comes from; none: the core makes its own of 2 MiB, for
    /// `PushData`.
    /// @param pVideoQueue    where the video frames go, its write side opened by its owner; none: the core
    /// makes
    ///                       its own of 6 blocks of 524288 bytes, with the writer and a reader open.
    /// @param pAudioQueue    the same for audio: 32 blocks of 32768 bytes.
    /// @return 0, or the stream buffer's error.
    int Open(CRingBuffer* pStreamBuffer, CBlockMemFileEx* pVideoQueue, CBlockMemFileEx* pAudioQueue);
    /// Writes stream bytes into the core's own buffer, waiting for room as long as the core's thread is
    /// alive.
    /// @return the byte count, or 0 when the thread is not running or the core does not take pushed bytes.
    int PushData(std::span<const std::uint8_t> data);
    /// Asks for a fresh start: the stream buffer is emptied, what is gathered is dropped, and the next frames
    /// begin with what comes after. The core's thread honours the request before its next unit, so a frame
    /// that it is finishing may still be queued. Pushed bytes that wait are dropped at once. Any thread, once
    /// the core is open.
    void Reset();
    /// Ends the thread, by force after 1000 ms, and makes the core ready for `Restart`: what waits on its
    /// buffer or on queues that it made is woken, both are empty afterwards.
    void Stop() override;

    /// The queues in use. The reader of a queue that the core made has handle 0.
    CBlockMemFileEx& GetVideoQueue() { return *m_video.pQueue; }
    CBlockMemFileEx& GetAudioQueue() { return *m_audio.pQueue; }
    /// An MPEG_program_end_code was met since the start or the last reset.
    bool HasMetEndCode() const { return m_bEndCode; }

protected:
    using Bytes = std::span<const std::uint8_t>;

    /// "No stamp": a 64-bit field whose low word is all ones and whose high word is 0.
    static constexpr std::int64_t kNoStamp = 0xFFFFFFFF;

    /// One elementary stream while it is gathered.
    struct ElementaryStream {
        explicit ElementaryStream(std::uint32_t nCapacity) : accumulator(nCapacity) {}

        CFrameAccumulator accumulator;      // payload of the frame being gathered
        std::int64_t llPrevPts = kNoStamp;  // stamps of the frame being gathered
        std::int64_t llPrevDts = kNoStamp;
        std::int64_t llStartPos = 0;        // file offset of the packet that began it (pull operation)
        bool bDiscontinuity = false;        // frames were lost before the next one that is queued
        CBlockMemFileEx* pQueue = nullptr;  // where frames go
        std::unique_ptr<CBlockMemFileEx> pOwnQueue;  // set when the core made the queue
    };

    std::int32_t ThreadProc() override;

    /// Takes the next n bytes, 1 to 65536. @return them, valid until the next call of this or `PeekData`;
    /// none when they cannot be had: then nothing is taken.
    virtual Bytes ReadData(std::uint32_t n);
    /// Looks at the next n bytes without taking them; otherwise as `ReadData`.
    virtual Bytes PeekData(std::uint32_t n);
    /// Completes the record of the frame that a new PES packet ends, and takes note of where the new one
    /// began.
    /// @param nHeaderSize  bytes of that packet up to its payload, from its start code on.
    virtual void FillVideoInfo(FRAME_INFO& info, std::uint32_t nHeaderSize);
    virtual void FillAudioInfo(FRAME_INFO& info, std::uint32_t nHeaderSize);

    /// Empties the stream buffer; on the core's thread.
    virtual void EmptyInput();

    // Steps of the thread loop in which pull operation differs.
    virtual void BeginRun() {}                           // once, before the first unit
    virtual void BeginUnit() {}                          // before each unit
    virtual void OnDataFound() {}                        // a resynchronisation found something
    virtual void OnNoData() {}                           // the input gave nothing to resynchronise on
    virtual bool IsSuperseded() const { return false; }  // what is gathered is of a segment that was left
    virtual bool IsPulling() const { return false; }     // the core reads its source itself

    /// Drops what is gathered, with its stamps.
    void ResetParser();
    /// Ends the thread for good; every derived class calls it in its destructor.
    void EndThread();

    static constexpr std::uint32_t kStreamBufferSize = 2 * 1024 * 1024;
    static constexpr std::uint32_t kMaxChunk = 65536;  // largest read and write declared to the stream buffer

    CRingBuffer* m_pStreamBuffer = nullptr;           // where the stream comes from
    std::unique_ptr<CRingBuffer> m_pOwnStreamBuffer;  // set when the core made it
    int m_nReader = -1;                               // the core's reader of the stream buffer
    ElementaryStream m_video{524288};
    ElementaryStream m_audio{65536};
    std::array<std::uint8_t, kMaxChunk> m_abScratch;  // bytes taken that cannot be parsed in place

private:
    enum class ESync { None, StartCode, PatPacket };

    void HonourReset();
    void ParseUnit();
    ESync Resync();
    void ParsePackHeader();
    void SkipSection();
    void ParsePsm();
    void ParsePes(ElementaryStream& stream);
    void BeginFrame(ElementaryStream& stream, const PesStamps& stamps, std::uint32_t nHeaderSize);
    void OpenSides();
    void CloseSides();

    CStreamMaps m_maps;
    std::atomic<bool> m_bEndCode{false};       // see HasMetEndCode
    std::atomic<bool> m_bResetRequest{false};  // `Reset` was called; honoured before the next unit
};

}  // namespace kest

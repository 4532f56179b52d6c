#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "control/Counters.h"
#include "demux/FrameOutput.h"
#include "demux/PulledSource.h"
#include "demux/PushedSource.h"
#include "demux/StreamInput.h"
#include "demux/StreamParser.h"
#include "demux/TrickPlay.h"
#include "plumbing/WorkerThread.h"

namespace kest {

/// In what the demuxers of the stream families differ, beside their parsers.
struct DemuxSizes {
    std::uint32_t nRingSize;  // bytes of a ring that the demuxer makes itself
    std::uint32_t nMaxChunk;  // largest read and write that is declared to the ring
    std::uint32_t nReadUnit;  // the ring is read in multiples of this number of bytes
    FrameOutputSizes video;
    FrameOutputSizes audio;
    std::uint32_t
        nStopBoundMs;  // time that the thread has to end before it is ended by force; kInfinite: no limit
};

/// A demuxer's thread and all that the stream families share: input, outputs, requests of other threads, and
/// the loop that calls the family's parser.
///
/// A run lasts from `Resume` (behind `Open` or `Restart`) to `Stop`. `PushData`, `Reset` and the operations
/// of CWorkerThread may be called from any thread; `Open` and destruction as `Restart`. A demuxer that is not
/// open (`Open` was not called, failed or threw) takes no pushed data and no requests, and its thread ends at
/// once. Lock order: m_requestMutex, then those of source and queues.
class CDemuxWorker : public CWorkerThread, private ITrickPlayHost {
public:
    /// Attaches ring and queues, opens the demuxer's sides and starts the thread, which holds until `Resume`.
    /// Called once. When it fails, or throws for want of memory, the demuxer is as before.
    /// @param pStreamBuffer  where pushed bytes come from; none: the demuxer makes its own ring, for
    ///                       `PushData`.
    /// @param pVideoQueue    where the video frames go, its write side opened by its owner; none: the demuxer
    ///                       makes its own, with the writer and a reader (handle 0) open.
    /// @param pAudioQueue    the same for audio.
    /// @return 0, or the ring's error.
    int Open(CRingBuffer* pStreamBuffer, CBlockMemFileEx* pVideoQueue, CBlockMemFileEx* pAudioQueue);
    /// Writes stream bytes into the demuxer's own ring, waiting for room as long as the thread is alive. One
    /// thread at a time.
    /// @return the byte count, or 0 when the thread has ended or the demuxer does not take pushed bytes.
    int PushData(Bytes data);
    /// The gate of whoever pushes: while it is held, `PushData` takes nothing. Set before the first push.
    void SetPushGate(const CPushGate& gate) { m_pushed.SetGate(gate); }
    /// Lets a `PushData` that waits see that its gate is held.
    void WakePush() { m_pushed.WakeWrite(); }
    /// Nothing more will be pushed, until something is: with `bDrain` the rest is parsed and the unfinished frames are
    /// queued. For the thread that pushes.
    void EndInput();
    /// The thread has taken what there is, or has ended: of a pulled source, and of what was pushed before `EndInput`,
    /// to the end; else all that it can parse without more. For the thread that pushes.
    bool HasTakenAll() const;
    /// Extensions, for the runs that follow. Not during a run. Throws for want of memory.
    void SetSettings(const ParseSettings& settings);
    /// What has become of the input since the demuxer was made. What it does not know, deliveries and resets that
    /// restart it, is 0. Any thread.
    COUNTERS GetCounters() const;
    /// Asks for a fresh start: what has come so far and is not queued is dropped, and the next frames begin
    /// with what comes after. What is pushed before this call counts as before, what is pushed afterwards is
    /// kept. The thread does it before its next unit, so that a frame that it has just ended may still be
    /// queued.
    void Reset();
    /// Ends the thread and makes the demuxer ready for `Restart`: whoever waits on its ring or on queues that
    /// it made gives up, and these are empty afterwards. A thread that has not ended within the bound is
    /// ended by force; a reader that it waits in is flushed until it has come back.
    void Stop() override;

    /// The queues in use; only while the demuxer is open.
    CBlockMemFileEx& GetVideoQueue() { return m_video.GetQueue(); }
    CBlockMemFileEx& GetAudioQueue() { return m_audio.GetQueue(); }

protected:
    explicit CDemuxWorker(const DemuxSizes& sizes);
    ~CDemuxWorker() = default;
    /// Ends the thread for good. Called by the destructor of every class of which objects are made: the
    /// thread uses the object as long as it runs.
    void EndThread();

    /// Takes the parser of the family, which works on the three members below. Called once, by the
    /// constructor.
    /// @return the parser.
    template <class Parser>
    Parser& SetParser(std::unique_ptr<Parser> pParser) {
        Parser& parser = *pParser;
        m_pParser = std::move(pParser);
        return parser;
    }
    /// Chooses the source of the runs that follow. @param pReader  borrowed; none: what is pushed.
    void SetReader(IAsyncReader* pReader) { m_pulled.SetReader(pReader); }
    /// The byte after the last one of a pulled source.
    void SetEnd(std::int64_t llEnd) { m_pulled.SetEnd(llEnd); }
    /// A reset is requested, and the thread has not carried it out.
    bool IsResetPending() const { return m_bReset; }
    /// Asks for a restart at an offset of the source, and empties both queues. Any thread.
    void RequestSegment(std::int64_t llStart);
    /// The family can be played at other rates than 1.0. Called at most once, by the constructor; without it
    /// nothing comes at such rates.
    void EnableTrickPlay();
    /// Changes the rate. Another rate than the present one takes effect in a new segment: the one that is
    /// requested already, else one at the present position, for which both queues are emptied. Any thread.
    /// @param nRate  the rate times 10.
    void RequestRate(int nRate);
    /// The rate is not the normal one; and the last step of trick play has found nothing. Any thread.
    bool IsTrickPlay() const { return m_nRate != CTrickPlay::kNormalRate; }
    bool IsTrickPlayIdle() const { return m_bTrickPlayIdle; }

    CStreamInput m_input;  // what the parser parses
    CFrameOutput m_video;  // where its frames go
    CFrameOutput m_audio;

private:
    std::int32_t ThreadProc() final;
    void BeginRun();
    void HonourRequests();
    void BeginSegment();
    void OnNoData();
    void OnEnd();
    void PlayTrick();
    void EmptyForSegment(std::int64_t llStart);
    bool MayGoOn() override;
    bool Read(std::int64_t llPosition, std::span<std::uint8_t> room) override;
    std::int64_t GetEnd() const override { return m_pulled.GetEnd(); }
    void Deliver(Bytes frame, const FRAME_INFO& info) override;
    bool IsPulling() const { return m_pulled.HasReader(); }
    int OpenSides();
    void CloseSides();
    void Detach();
    void EndByForce();

    const DemuxSizes m_sizes;
    CPushedSource m_pushed;                    // the input's source without a reader
    CPulledSource m_pulled;                    // and with one
    std::unique_ptr<CStreamParser> m_pParser;  // see SetParser
    ParseSettings m_settings;                  // see SetSettings
    std::atomic<bool> m_bOpen{false};          // ring and queues are attached
    std::atomic<bool> m_bEndSent{
        false};                 // the end of the input has been dealt with, and nothing has come since
    std::mutex m_requestMutex;  // keeps a request and its carrying out apart
    std::atomic<bool> m_bReset{false};       // a reset is requested
    std::atomic<bool> m_bNewSegment{false};  // a restart is requested
    std::int64_t m_llSegmentPos = 0;         // where the last one requested is to begin; under m_requestMutex
    std::unique_ptr<CTrickPlay> m_pTrickPlay;           // see EnableTrickPlay
    std::atomic<int> m_nRate{CTrickPlay::kNormalRate};  // rate times 10; changed under m_requestMutex
    std::atomic<std::int64_t> m_llPosition{0};          // offset in the source of what comes next
    std::atomic<bool> m_bTrickPlayIdle{false};          // see IsTrickPlayIdle
    std::uint32_t m_nFrameGeneration = 0;  // of the video queue when the present trick-play frame was begun
};

}  // namespace kest

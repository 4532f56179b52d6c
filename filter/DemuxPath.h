#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "demux/ElementaryStreamFramer.h"
#include "demux/Mpeg1PsDemux.h"
#include "demux/Mpeg2PsPullDemux.h"
#include "demux/Mpeg4TsDemux.h"
#include "filter/Switches.h"
#include "net/SendSettings.h"
#include "pins/AudioOutputPin.h"
#include "pins/AvTiming.h"
#include "pins/VideoOutputPin.h"
#include "pins/WorkingMode.h"
#include "platform/CritSec.h"
#include "platform/Event.h"
#include "plumbing/Count.h"
#include "plumbing/PushGate.h"

namespace kest {

/// The path of the bytes through the filter: the demuxer of the working mode, the frame queues and delivery
/// threads of the output pins. Starts, resumes, stops, resets and seeks them together, in an order that never
/// leaves one waiting for another that has ended.
///
/// Every family of demuxers is one row of a table, which says how it is made and what its start needs; the rest
/// is the same for all. The demuxer of the present mode exists as long as the mode is set.
///
/// Locking: no lock of its own but m_csParts, a leaf. `BeginConnection`, `EnterMode`, `SetReader` and
/// `SetInGraph` change what threads use, so they are for a path that is stopped; `Start` to `Seek` come from one
/// thread at a time, which holds no lock that a delivery thread takes. The filter ensures both. `GetWorkingMode`
/// and `IsFreeRun` may be called at any time.
class CDemuxPath {
public:
    /// @param videoPin, audioPin  the output pins; they outlive the path.
    /// @param timing              of both pins; the same.
    /// @param settings            their demux function counts at the next start.
    /// @param switches            those of the demuxers count at the next start.
    CDemuxPath(CKestDemux2VideoOutputPin& videoPin, CKestDemux2AudioOutputPin& audioPin, CAvTiming& timing,
               const CSendSettings& settings, const CSwitches& switches);

    // ---- connection

    EWorkingMode GetWorkingMode() const { return m_nWorkingMode; }
    const WorkingMode& Mode() const { return FindWorkingMode(m_nWorkingMode); }
    /// A source of this mode is to be connected: enters the mode when it is another. The video's queue gets blocks of
    /// the size that its switch has now, and the counters begin at 0. @return as `EnterMode`.
    HRESULT BeginConnection(EWorkingMode mode);
    /// Makes the demuxer of a mode and enters the mode. The demuxers of other families stay.
    /// @return E_OUTOFMEMORY, with no mode and no demuxer of the family, when memory or a thread is missing.
    HRESULT EnterMode(EWorkingMode mode);
    /// Gives demuxer and video pin the reader of a source that begins, or takes it back from them.
    /// @param pReader  null: none. Borrowed by the demuxer until it is taken back.
    void SetReader(IAsyncReader* pReader);
    /// Lets a stop end what deliveries on blocked pins wait for, as long as the filter is in a graph.
    void SetInGraph(bool bInGraph);

    /// The sequence header that the MPEG-1 demuxer had met when it was stopped last, or the default one. Any
    /// thread.
    Mpeg1SequenceHeader GetSequenceHeader() const { return m_sequenceHeader.Get(); }

    /// What has become of the input since the connection was begun. Any thread.
    COUNTERS GetCounters() const;

    // ---- threads

    /// The output pins that the working mode delivers through, the video pin first.
    std::span<CDemuxOutputPin* const> DeliveringPins() const;
    /// The delivery threads are there.
    bool IsRunning() const;
    /// Samples are delivered without times and without pacing.
    bool IsFreeRun() const { return m_bFreeRun; }
    /// Takes over the demux function of the settings; an unknown one changes nothing.
    void ApplyDemuxOutput();

    /// Starts the threads with empty queues; the timing begins with the next frames.
    /// @return E_OUTOFMEMORY when a thread is missing: `Stop` must follow.
    HRESULT Start();
    /// Lets threads that are held run on.
    void Resume();
    /// Ends the threads, each by force when its bound has passed, and forgets the timing. A delivery on a
    /// blocked pin gives up.
    void Stop();
    /// Ends the threads for good, however long that takes.
    void End();

    // ---- bytes that are pushed

    /// Hands bytes to the demuxer: all that it has room for at once, and 2048 at a time while it has none, waiting as
    /// long as it runs. What it does not take is dropped.
    void Feed(Bytes data);
    /// Ends a `Feed` that is under way, and lets none begin until `ReleaseFeed`; holds add up. Not for the thread
    /// that feeds; with the pin lock held, or while connections cannot change.
    void HoldFeed();
    void ReleaseFeed() { m_feedGate.Release(); }
    /// Nothing more is fed, until something is: with the switch Drain, the rest of what was fed becomes frames.
    void EndInput();
    /// All that was fed has left the output pins, as far as it can without more. False while the feed is held.
    bool IsDelivered();
    /// Passes the end of the stream downstream, on the video pin first.
    void DeliverEnd();
    /// The demuxer has met something behind which only a reset goes on.
    bool NeedsReset();
    /// One frame queue is almost full while the other is almost empty: audio and video have lost each other. Only
    /// with both output pins connected, and when the frames from before the last reset have been dropped.
    bool IsOutOfBalance() const;

    // ---- while the threads run

    /// Has a demuxer that can do so by itself drop what is on its way; the timing begins anew.
    /// @return false, with nothing done, without such a demuxer.
    bool ResetCore();
    /// Waits up to a second until the delivery threads are between two deliveries, then ends all threads and
    /// starts them again. @return as `Start`.
    HRESULT RestartThreads();
    /// Asks for a restart of the demuxer at a byte position.
    /// @param llLength  bytes of the source.
    /// @param target    what the times of the segment are counted from; none: see CTimeline.
    void NewSegment(std::int64_t llPosition, std::int64_t llLength, const std::optional<SeekTarget>& target);
    /// The same, in a flush of both output pins.
    void Seek(std::int64_t llPosition, const std::optional<SeekTarget>& target);
    /// Plays at another rate: see KestMpeg2PsPullDemux::SetRate. At any time, while no connection changes.
    bool SetRate(double dRate) { return !m_pPsDemux || m_pPsDemux->SetRate(dRate); }

private:
    struct Family;
    class CFlush;
    static const Family kFamilies[];

    const Family& GetFamily() const;
    CDemuxWorker* Core() const;
    HRESULT StartThreads();
    void StopCore();
    void WaitForPins();
    void BeginCounting(EWorkingMode mode);
    COUNTERS CountAll() const;
    std::uint32_t MaxUnit() const;
    template <class T>
    void Replace(std::unique_ptr<T>& pPart, std::unique_ptr<T> pNew);
    void SetTarget(const std::optional<SeekTarget>& target);

    // What the rows of the table are made of.
    template <auto pDemuxMember>
    HRESULT Create();
    HRESULT CreateFramer();
    template <auto pDemuxMember>
    CDemuxWorker* CoreIn() const {
        return (this->*pDemuxMember).get();
    }
    HRESULT InitSeeking();
    HRESULT SelectTsTimeReference();
    HRESULT BeginElementaryStream();
    bool FeedCore(Bytes chunk);
    bool FeedFramer(Bytes chunk);

    CKestDemux2VideoOutputPin& m_videoPin;                 // see the constructor
    CKestDemux2AudioOutputPin& m_audioPin;                 // see the constructor
    const std::array<CDemuxOutputPin*, 2> m_apOutputPins;  // the same two, video first
    CAvTiming& m_timing;                                   // see the constructor
    const CSendSettings& m_settings;                       // see the constructor
    const CSwitches& m_switches;                           // see the constructor
    CPushGate m_feedGate;                                  // of Feed
    CEvent m_evAbort{true, false};                         // from Stop to Start; ends waits of deliveries
    std::atomic<EWorkingMode> m_nWorkingMode{EWorkingMode::None};  // see EnterMode
    std::atomic<bool> m_bFreeRun{false};                           // see IsFreeRun
    std::unique_ptr<KestMpeg4TsDemux> m_pTsDemux;                  // demuxer of modes 1 and 3, once made
    std::unique_ptr<KestMpeg2PsPullDemux> m_pPsDemux;              // of modes 2 and 4
    std::unique_ptr<KestMpeg1PsDemux> m_pMpeg1Demux;               // of mode 5
    CSequenceHeaderCapture m_sequenceHeader;                       // see GetSequenceHeader
    std::unique_ptr<CElementaryStreamFramer> m_pFramer;            // of mode 0
    mutable CCritSec m_csParts;  // keeps replacing one of the four and counting in it apart
    CCount m_nResets;            // resets carried out
    COUNTERS m_atConnection;     // what had been counted before the connection; under m_csParts
};

}  // namespace kest

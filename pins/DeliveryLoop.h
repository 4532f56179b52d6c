#pragma once

#include <cstdint>
#include <span>

#include "demux/FrameInfo.h"
#include "pins/DeliveryThread.h"
#include "pins/DemuxOutputPin.h"

namespace kest {

/// In what a variant differs from the others.
struct DeliveryRules {
    ETimeline variant;
    bool bEndsOnReadFailure;      // a read that brings nothing ends the loop
    bool bEndsOnDeliveryFailure;  // a delivery that is not S_OK ends the loop
    bool bReadsFlags;           // the frame record's flags count, and a pending restart drops what is queued
    bool bRestartsOnPending;    // a pending restart restarts the timing
    bool bClampsJumps;          // starts that jump are moved to one frame behind the last
    bool bRepairs;              // wrapped and broken stamps are repaired, resets are waited for
    bool bSyncPointWhenBroken;  // a frame with a repaired broken stamp is a sync point
};

/// What distinguishes the two streams in these rules.
struct StreamConstants {
    std::int64_t llFrameTicks;    // one frame, 90 kHz: the step of synthesised stamps
    REFERENCE_TIME rtFrame;       // one frame, 100 ns: the step of clamped jumps
    REFERENCE_TIME rtClampLimit;  // a start further than this from the last is a jump, 100 ns
    const char* pszStream;        // the next five in the statistics line
    const char* pszStamp;
    const char* pszStep;
    const char* pszAfter;
    const char* pszInDelivery;
    DWORD dwBufferFlags;  // asked of the allocator with every sample
};

/// The body of a delivery thread, for one run: takes frame after frame from the pin's queue, gives it times
/// on the graph's stream-time axis, repairs what is broken in them, and delivers it as a sample.
///
/// This is the skeleton that all variants of both pins share: the frame step. Derived classes fill in the
/// steps in which the streams differ; variants differ by their rules.
class CDeliveryLoop {
public:
    CDeliveryLoop(CDemuxOutputPin& pin, const StreamConstants& constants);
    virtual ~CDeliveryLoop() = default;
    CDeliveryLoop(const CDeliveryLoop&) = delete;
    CDeliveryLoop& operator=(const CDeliveryLoop&) = delete;

    /// Runs until the thread must end or the variant's rules end it.
    /// @return the thread's exit code: -1 when it had to end before it began, 0 when it had to while it
    /// waited
    ///         for a time base, else 1.
    std::int32_t Run();

    /// Converts a stamp (90 kHz) into 100 ns.
    static REFERENCE_TIME ToTime(std::int64_t llStamp) { return llStamp * 1000 / 9; }
    /// The two stamps lie more than 90090 ticks (1.001 s) apart.
    static bool IsTimestampBroken(std::int64_t llStamp, std::int64_t llLast);

protected:
    /// How the frame step goes on.
    enum class EStep { GoOn, NextFrame, End };

    /// The frame of the present step.
    struct Frame {
        CComPtr<IMediaSample> pSample;
        std::span<std::uint8_t> buffer;  // of the sample
        FRAME_INFO info{};
        int nLength = 0;                // bytes of the frame in the buffer
        std::int64_t llStamp = 0;       // the stamp that counts for this stream, 90 kHz
        std::uint32_t nGeneration = 0;  // of the queue when the frame was taken
        bool bKeep = false;             // goes out even when the queue has been emptied since
    };

    static constexpr REFERENCE_TIME kSegmentEnd = 0x7F00000000000000;  // of the segments that pins announce

    /// The rules of a working mode.
    virtual const DeliveryRules& SelectRules(const WorkingMode& mode) const = 0;
    /// Once, before the first frame.
    virtual void BeginRun() = 0;
    /// The stamp that counts for this stream.
    virtual std::int64_t GetStamp(const FRAME_INFO& info) const = 0;
    /// A restart dropped one queued frame.
    virtual void OnFrameDropped() {}
    /// A read brought nothing.
    virtual void OnNothingRead() {}
    /// Passes the end of the stream downstream.
    virtual void PassEnd() = 0;
    /// Delivers a frame without times and without pacing.
    virtual EStep DeliverFree(Frame& frame) = 0;
    /// Acts on the frame record's flags; may deliver the frame in its own way.
    virtual EStep HandleFlags(Frame& frame) = 0;
    /// Stamps, repairs and delivers a frame.
    virtual EStep ProcessFrame(Frame& frame);
    /// Begins the timing anew with this frame.
    virtual EStep RestartTiming(Frame& frame) = 0;
    /// Further steps on a frame that continues the timing.
    virtual void OnNormalTiming(Frame&) {}
    /// Between the common stamping and the repairs.
    virtual void AfterStamping(Frame&) {}
    /// What a broken stamp does to flags and reset requests.
    virtual void OnBrokenStamp() = 0;
    /// After the repairs and the first reset hook.
    virtual void CheckDrift(Frame&) {}
    /// The frame has been read; whoever counts before delivery counts now, else after it.
    virtual bool CountsBeforeDelivery() const = 0;
    /// The frame, though stamped, is not to be delivered.
    virtual bool IsWithheld() const { return false; }
    virtual void OnEnd() = 0;

    /// A trace text that only the audio pin's program-stream variant writes.
    virtual void TraceStep(const char*) {}

    CDeliveryThread& GetThread() { return m_pin.GetDeliveryThread(); }
    IDemuxFilterSite& GetSite() { return m_pin.GetSite(); }
    PinTiming& GetTiming() { return m_pin.GetTiming(); }
    PinTiming& GetPeerTiming() { return m_pin.GetPeer().GetTiming(); }
    bool Is(ETimeline variant) const { return m_rules->variant == variant; }
    /// The start of a frame relative to the time base.
    REFERENCE_TIME ToStart(std::int64_t llStamp) { return ToTime(llStamp) - GetTiming().rtTimeBase; }
    /// Sets the sample's times from rtStart; rtStop is start + 1.
    void SetTimes(Frame& frame, REFERENCE_TIME rtStart);
    /// Marks a sample that begins a timing: no preroll, no new type, a discontinuity.
    void MarkRestart(Frame& frame);
    /// One delivery between start-using and stop-using; releases the sample.
    /// @param bMayWithhold  a frame that is withheld, or that a stop has overtaken, is only released.
    HRESULT DeliverBracketed(Frame& frame, bool bMayWithhold = false);
    /// Holds back what a flush by another thread would have downstream refuse, until it is over. Without this
    /// the whole queue would go by while the flushing thread has no processor.
    void WaitForFlush();
    /// Passes the end of the stream downstream, unless a seek has left its record behind.
    void EndStream(const Frame& frame);
    /// The queue has been emptied, by a seek, since the frame was taken.
    bool IsLeftBehind(const Frame& frame) const {
        return !frame.bKeep && frame.nGeneration != m_pin.m_pFrameQueue->GetGeneration(m_pin.m_bmHandle);
    }
    /// The run asks for a reset.
    void RequestReset();
    /// The queue's free blocks and the pin's pending frames, for statistics.
    int GetFreeBlocks() const { return static_cast<int>(m_pin.m_pFrameQueue->GetFreeBlocks()); }
    int GetPending() const { return static_cast<int>(m_pin.GetFramesPending()); }
    /// The graph clock's time since the start of the stream; 0 without a clock.
    REFERENCE_TIME GetClockStreamTime();

    CDemuxOutputPin& m_pin;
    const StreamConstants& m_constants;
    const DeliveryRules* m_rules = nullptr;
    const WorkingMode* m_pMode = nullptr;  // fixed for the run
    std::int32_t m_nExitCode = 1;
    std::int64_t m_llLastStamp = 0;     // last PTS or DTS: the stamp that the next is measured against
    bool m_bResetRequested = false;     // this run has asked for a reset
    std::int64_t m_llDataCount = 0;     // bytes of frames read since the thread began
    std::uint32_t m_dwStartTick = 0;    // tick count at the last timing restart
    std::uint32_t m_dwDeliverTick = 0;  // tick count before the present delivery
    REFERENCE_TIME m_rtClock = 0;  // stream time by the graph clock (clock-following variant), for traces
    std::int32_t m_nAhead = 0;     // td: ms that the stream runs ahead of the wall clock, for traces

private:
    EStep Step();
    bool TakeSample(Frame& frame);
    EStep ReadFrame(Frame& frame);
    void DropQueuedFrames(Frame& frame);
    bool IsRestartDue();
    void ContinueTiming(Frame& frame);
    void ClampJump(Frame& frame);
    bool RepairWrap(Frame& frame);
    void RepairBroken(Frame& frame);
    void ResetHook();
    void TraceStatistics(const Frame& frame);
    EStep DeliverStamped(Frame& frame);
};

}  // namespace kest

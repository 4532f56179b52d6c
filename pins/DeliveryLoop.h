#pragma once

#include <memory>
#include <optional>

#include "pins/DeliveryContext.h"
#include "pins/DeliveryStatistics.h"
#include "pins/Timeline.h"

namespace kest {

/// In what the loops of the variants of both pins differ, time aside.
struct DeliveryRules {
    bool bEndsOnReadFailure;      // a read that brings nothing ends the loop
    bool bEndsOnDeliveryFailure;  // a delivery that is not S_OK ends the loop
    bool bReadsFlags;             // the record's flags count, and a pending restart drops what is queued
    bool bTakesPartInResets;      // waits for resets; a stop that came before a delivery prevents it
};

/// The body of a delivery thread, for one run: takes frame after frame from the pin's queue, asks the
/// timeline where it belongs, does what that requests, and delivers it as a sample.
///
/// A seek empties the queue: what has been taken before is stale. That is tested before everything that
/// others see of a frame: timing, flushes, segments, seeks, resets, the delivery itself.
class CDeliveryLoop {
public:
    /// The events through which the thread's owner holds and ends it.
    struct Control {
        CEvent& evRun;   // signalled: may run
        CEvent& evStop;  // signalled: must end
    };
    CDeliveryLoop(const DeliveryContext& context, Control control);
    CDeliveryLoop(const CDeliveryLoop&) = delete;
    CDeliveryLoop& operator=(const CDeliveryLoop&) = delete;

    /// Runs until the thread must end or the variant's rules end it. A pin that is not connected has nothing
    /// to do until then.
    /// @return the thread's exit code: -1 when it had to end before it began, 0 when it had to while it
    ///         waited for a time base, else 1.
    std::int32_t Run();

private:
    /// How the frame step goes on.
    enum class EStep { GoOn, NextFrame, End };

    /// The frame of the present step.
    struct Frame {
        CComPtr<IMediaSample> pSample;
        std::span<std::uint8_t> buffer;            // of the sample
        CFrameQueue::Taken taken;                  // the frame in the buffer
        std::optional<std::uint32_t> nKeptSeek{};  // goes out in spite of this seek, which was its own
        TimedFrame timed{};                        // the frame as the timeline sees it
    };

    EStep Step();
    bool TakeSample(Frame& frame);
    EStep ReadFrame(Frame& frame);
    void DropQueuedFrames(Frame& frame);

    EStep HandleFlags(Frame& frame);
    void EndStream(const Frame& frame);
    void DeliverVideoMarker(Frame& frame);
    void DeliverAudioMarker(Frame& frame);
    EStep DeliverFree(Frame& frame);
    EStep DeliverUntimed(Frame& frame);

    EStep PlaceFrame(Frame& frame, Placement& place);
    bool Fulfil(ERequest request, Frame& frame);
    void Flush(Frame& frame, bool bBoth);
    void AwaitAudio(const Frame& frame, const Placement& place);
    void SkipAhead(Frame& frame);
    void ActOn(Frame& frame, const Placement& place);
    EStep DeliverPlaced(Frame& frame, const Placement& place);
    HRESULT Deliver(Frame& frame, bool bMayWithhold);
    void Announce(const Frame& frame, double dRate);

    void ResetHook();
    void WaitReadyToReset();
    bool TakeFirstTime();
    bool IsStale(const Frame& frame) const;
    bool IsStopping() const { return m_control.evStop.IsSignalled(); }
    bool Is(ETimeline variant) const { return m_variant == variant; }
    /// Changes this pin's timing.
    template <class Change>
    void UpdateOwn(Change change) {
        m_context.timing.Update([&](AvTimes& times) { change(times.Of(m_context.pin)); });
    }
    void SetAbsent(bool bAbsent) {
        UpdateOwn([=](PinTiming& own) { own.bAbsent = bAbsent; });
    }
    /// A text that only the audio pin's program-stream variant writes.
    void TraceStep(const char* pszText) const;

    const DeliveryContext& m_context;
    const Control m_control;
    const WorkingMode& m_mode;  // fixed for the run
    const ETimeline m_variant;  // of this pin
    const DeliveryRules& m_rules;
    const std::unique_ptr<CTimeline> m_pTimeline;
    const bool m_bDrains;  // there are frames without times
    CDeliveryStatistics m_statistics;
    std::int32_t m_nExitCode = 1;
};

}  // namespace kest

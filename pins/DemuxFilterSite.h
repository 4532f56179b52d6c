#pragma once

#include <cstdint>
#include <functional>

#include "control/KestDemux2Control.h"
#include "demux/Mpeg1SequenceHeader.h"
#include "demux/SourceDescription.h"
#include "pins/WorkingMode.h"
#include "platform/api/Interfaces.h"

namespace kest {

/// What the output pins ask of their filter. The filter implements it; tests put a fake in its place.
/// Flags may be read and requests made from any thread.
class IDemuxFilterSite {
public:
    /// The value of a switch, see SwitchTable.h.
    virtual std::int32_t GetSwitch(ESwitch nSwitch) const = 0;

    // ---- what the connection has fixed

    virtual EWorkingMode GetWorkingMode() const = 0;
    /// The filter's input pin is connected.
    virtual bool IsInputConnected() const = 0;
    /// The upstream pin offers no IAsyncReader: the input is live.
    virtual bool IsPushSource() const = 0;
    /// Bits per second of the source, as the probe derived them; 0 when unknown.
    virtual std::uint32_t GetBitRate() const = 0;
    /// What the stream of a pin says of itself, known with the switch TrueTypes; else null. To be called with the
    /// filter's pin lock held, and valid as long.
    virtual const StreamDescription* GetDescription(EStreamKind kind) const = 0;
    /// Picture size to offer before the stream has given one, in pixels.
    virtual int GetDefaultWidth() const = 0;
    virtual int GetDefaultHeight() const = 0;

    /// The sequence header of the last MPEG-1 system stream that was stopped, or the default one.
    virtual Mpeg1SequenceHeader GetSequenceHeader() const = 0;

    // ---- the state machine

    /// Between the start of `Run` or `Pause` and the start of `Stop`.
    virtual bool IsActive() const = 0;
    /// How long a delivery thread has to end, ms: see CDeliveryThread::Stop.
    virtual std::uint32_t GetStopBoundMs() const { return 1000; }
    /// Samples are delivered without times and without pacing.
    virtual bool IsFreeRun() const = 0;
    /// The start time given to the last `Run`, 100 ns.
    virtual REFERENCE_TIME GetStreamStart() const = 0;
    /// The time of the graph's reference clock, 100 ns. @return false when the graph has no clock.
    virtual bool GetClockTime(REFERENCE_TIME& rtNow) = 0;

    // ---- resets

    /// A reset of the whole demultiplexer is in progress.
    virtual bool IsResetting() const = 0;
    /// A pin found its stream broken and asks for a reset.
    virtual void RequestReset() = 0;
    /// A pin's delivery thread had to be ended by force: no automatic resets until the next stop.
    virtual void OnThreadKilled() = 0;

    // ---- seeking hooks; without effect unless a program stream is connected

    /// The length of the source is known: the core restarts at a byte position and has its end.
    virtual HRESULT SetPositionsHook(std::int64_t llPosition, std::int64_t llLength) = 0;
    virtual HRESULT StopHook(REFERENCE_TIME rtStop) = 0;
    /// Seeks to a media time, 100 ns.
    virtual HRESULT SeekHook(REFERENCE_TIME rt) = 0;
    virtual HRESULT RateHook(double dRate) = 0;

    /// In single-step mode, waits for the next step. Called by the video pin after each sample.
    /// @param isOver  asked several times a second: the wait is to end, since the sample's time is over.
    virtual void DoSingleStep(const std::function<bool()>& isOver) = 0;

protected:
    ~IDemuxFilterSite() = default;
};

}  // namespace kest

#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "demux/Mpeg2PsPullDemux.h"
#include "demux/StreamTypeProbe.h"
#include "filter/DemuxSettings.h"
#include "filter/FilterSeeking.h"
#include "filter/InputPin.h"
#include "filter/KestDemuxClock.h"
#include "graph/BaseFilter.h"
#include "net/SendSettings.h"
#include "pins/AudioOutputPin.h"
#include "pins/AvTiming.h"
#include "pins/DemuxFilterSite.h"
#include "pins/VideoOutputPin.h"
#include "pins/WorkingMode.h"
#include "platform/Event.h"

namespace kest {

/// The filter: owns the three pins, the demux core of the working mode, the stream-type probe and a reference
/// clock, and decides the order in which they start, stop and reset.
///
/// Life: created; connected (the input pin fixes the working mode and with it the core); paused, running and
/// stopped, any number of times; destroyed.
///
/// Interfaces: IBaseFilter and its family, IReferenceClock, IMediaSeeking, IMediaPosition and IDemuxSettings.
///
/// Locking: m_csState is held through `Run`, `Pause`, `Stop` and `ResetDemux`, m_csPins through connections
/// and the base's part of the state changes, m_csJoin through `JoinFilterGraph`; each of m_csState and
/// m_csJoin comes before m_csPins. Delivery threads take m_csPins (for the clock) and the flush locks of the
/// pins: nobody waits for one with m_csPins held. The demux core's thread takes none of these locks.
/// Flags that threads share are atomic.
class CKestDemux2Filter final : public CImplements<CBaseFilter, IDemuxSettings>, public IDemuxFilterSite {
public:
    /// Makes a filter, without a reference.
    /// @param pOuter  outer object of an aggregate, or null.
    /// @param phr     unchanged, or why the filter cannot be used: it is for the caller to end then.
    /// @return null, with E_OUTOFMEMORY, when memory is short.
    static CUnknown* CreateInstance(IUnknown* pOuter, HRESULT* phr);
    CKestDemux2Filter(IUnknown* pOuter, HRESULT* phr);
    ~CKestDemux2Filter() override;

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // ---- pins and graph

    /// Input, video, audio.
    int GetPinCount() override { return 3; }
    CBasePin* GetPin(int n) override;
    /// @return VFW_E_NOT_FOUND for other names than "Input", "Audio Output" and "Video Output"; E_POINTER;
    ///         E_OUTOFMEMORY for a pin that could not be made.
    HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** ppPin) override;
    /// Gives the output pins what dynamic reconnections need. @return also the graph's refusal to answer
    /// IGraphConfig.
    HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) override;

    // ---- state machine

    /// Ends the threads of the path: the core first, then the delivery threads; each by force when its bound
    /// has passed.
    HRESULT STDMETHODCALLTYPE Stop() override;
    /// From stopped, starts the path of the working mode, which fills the pins downstream. From running,
    /// leaves every thread as it is.
    HRESULT STDMETHODCALLTYPE Pause() override;
    /// Pauses first unless paused; a filter that runs begins again with the new start time.
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME tStart) override;
    /// Recovers from broken timing. A program stream loses what is on its way and its timing starts anew; in
    /// the other modes every thread is restarted, after up to a second of waiting for the delivery threads.
    /// Nothing happens while resets are off, or one is in progress.
    void ResetDemux();

    // ---- working mode and source, for the input pin

    /// Classifies the source behind the input pin. @return 2, 4 or 6 (not recognised) of EStreamClass.
    int ClassifyStream();
    /// Makes the core of a working mode that is about to be entered.
    void PrepareWorkingMode(EWorkingMode mode);
    /// Lets core and video pin read the source of a connection that has come about.
    void AttachReader(IAsyncReader* pReader);
    /// Takes the reader back before it goes. Without one there is nothing to do.
    void DetachReader();
    void SetPushSource(bool bPushSource) { m_bPushSource = bPushSource; }

    // ---- settings and flags

    /// The timing of the output pins.
    CAvTiming& GetAvTiming() { return m_timing; }

    /// The settings of forwarding and of the demux function. One control thread at a time.
    SEND_SETTINGS& GetSendSettings() { return m_sendSettings; }
    HRESULT STDMETHODCALLTYPE get_SendSettings(SEND_SETTINGS* pSettings) override;
    HRESULT STDMETHODCALLTYPE put_SendSettings(const SEND_SETTINGS* pSettings) override;
    /// Whether resets are carried out.
    void EnableReset(bool bEnable) { m_bEnableReset = bEnable; }
    /// A pin has asked for a reset; automatic reset decisions are made; the last one found a reset necessary;
    /// a delivery thread had to be ended by force.
    bool IsResetRequested() const { return m_bResetRequest; }
    bool IsResetAllowed() const { return m_bResetAllowed; }
    bool IsResetNeeded() const { return m_bNeedReset; }
    bool IsThreadKilled() const { return m_bThreadKilled; }

    // ---- IDemuxFilterSite

    EWorkingMode GetWorkingMode() const override;
    bool IsInputConnected() const override { return m_pInputPin && m_pInputPin->IsConnected(); }
    bool IsPushSource() const override { return m_bPushSource; }
    std::uint32_t GetBitRate() const override { return m_Probe.GetBitRate(); }
    int GetDefaultWidth() const override { return m_nDefaultWidth; }
    int GetDefaultHeight() const override { return m_nDefaultHeight; }
    bool IsActive() const override { return m_bActive; }
    bool IsFreeRun() const override { return m_bFreeRun; }
    REFERENCE_TIME GetStreamStart() const override { return m_rtStreamStart; }
    bool GetClockTime(REFERENCE_TIME& rtNow) override;
    bool IsResetting() const override { return m_bResetting; }
    void RequestReset() override { m_bResetRequest = true; }
    void OnThreadKilled() override;
    HRESULT SetPositionsHook(std::int64_t llPosition, std::int64_t llLength) override;
    /// The stop position has no effect on the core.
    HRESULT StopHook(REFERENCE_TIME) override { return S_OK; }
    HRESULT SeekHook(REFERENCE_TIME rt) override;
    HRESULT RateHook(double dRate) override;
    void DoSingleStep() override;

private:
    // The pins.
    template <class Pin, class... Arguments>
    std::unique_ptr<Pin> MakePin(HRESULT* phr, Arguments... arguments);
    void HandStopEvent(CEvent* pStopEvent);

    // The path of the working mode: core, frame queues and delivery threads, as far as they exist.
    const WorkingMode& Mode() const { return FindWorkingMode(GetWorkingMode()); }
    CWorkerThread* Core() const;
    std::span<CDemuxOutputPin* const> DeliveringPins() const;
    bool HasProgramCore() const { return m_pPsDemux && Mode().family == ECoreFamily::Program; }
    int CreatePsDemux();
    void StartPath();
    void ResumePath();
    void StopPath();
    void SelectTsTimeReference();

    // Steps of the state changes and of the reset.
    void ApplyDemuxOutput();
    void ActivatePins();
    void DeactivatePins();
    void WaitForPins();
    void TearDownPath();

    CCritSec m_csState;                     // held through state changes and resets
    CKestDemuxClock m_Clock{GetOwner()};    // what the filter offers as IReferenceClock
    CFilterSeeking m_seeking{GetOwner()};   // what it offers as IMediaSeeking
    CCritSec m_csJoin;                      // held through JoinFilterGraph
    CEvent m_evAbort{true, false};          // manual-reset; ends the wait of a delivery on a blocked pin
    CStreamTypeProbe m_Probe;               // classifies the source; knows its bit rate
    CCritSec m_csPins;                      // object lock of the filter and its pins
    SEND_SETTINGS m_sendSettings;           // see GetSendSettings
    CEvent m_evSingleStep{false, true};     // auto-reset; the next sample may follow
    std::atomic<int> m_nDefaultWidth{720};  // picture size that is offered before the stream tells one
    std::atomic<int> m_nDefaultHeight{480};
    std::atomic<REFERENCE_TIME> m_rtStreamStart{0};  // start time of the last Run, 100 ns

    std::atomic<bool> m_bActive{false};        // from the start of Run or Pause to the start of Stop
    std::atomic<bool> m_bFreeRun{false};       // output pins deliver without pacing
    std::atomic<bool> m_bPushSource{true};     // the upstream pin cannot be read, or there is none
    std::atomic<bool> m_bEnableReset{true};    // see EnableReset
    std::atomic<bool> m_bResetRequest{false};  // a delivery loop asks for a reset
    std::atomic<bool> m_bResetting{false};     // a reset is in progress
    std::atomic<bool> m_bResetAllowed{true};   // automatic reset decisions are made
    std::atomic<bool> m_bNeedReset{false};     // the last decision found a reset necessary
    std::atomic<bool> m_bThreadKilled{false};  // a delivery thread had to be ended by force
    std::atomic<bool> m_bSingleStep{false};    // single-step mode

    CAvTiming m_timing;                                      // of the output pins
    std::unique_ptr<KestMpeg2PsPullDemux> m_pPsDemux;        // core of modes 2 and 4; none before
    std::unique_ptr<CKestDemux2InputPin> m_pInputPin;        // pin 0
    std::unique_ptr<CKestDemux2AudioOutputPin> m_pAudioPin;  // pin 2
    std::unique_ptr<CKestDemux2VideoOutputPin> m_pVideoPin;  // pin 1
    std::array<CDemuxOutputPin*, 2> m_apOutputPins{};        // the same two, video first
};

}  // namespace kest

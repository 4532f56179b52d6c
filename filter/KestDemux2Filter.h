#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "filter/DemuxControl.h"
#include "filter/DemuxPath.h"
#include "filter/DumpFile.h"
#include "filter/FilterSeeking.h"
#include "filter/InputPin.h"
#include "filter/Intake.h"
#include "filter/KestDemuxClock.h"
#include "filter/ResetFlags.h"
#include "filter/SingleStep.h"
#include "filter/Source.h"
#include "filter/StatusPublisher.h"
#include "filter/Switches.h"
#include "graph/BaseFilter.h"
#include "net/UdpSender.h"
#include "pins/DemuxFilterSite.h"

namespace kest {

/// The filter: owns the three pins, the source behind the input pin, the path from there to the output pins, the
/// intake of what is pushed with its UDP sender, dump file and published status, and a reference clock; decides
/// when the path starts, stops, resets and seeks.
///
/// Life: created; connected (the input pin fixes the working mode); paused, running and stopped, any number of
/// times; destroyed.
///
/// Interfaces: IBaseFilter and its family, IKestDemux2Control, IKestDemux2Control2, ISpecifyPropertyPages,
/// IFileSinkFilter, IReferenceClock, IMediaSeeking, IMediaPosition (with IDispatch). Their methods return
/// E_OUTOFMEMORY when memory or a thread is missing, and the filter stays usable.
///
/// Locking: m_csState is held through `Run`, `Pause`, `Stop`, `ResetDemux` and seeks, m_csPins through
/// connections and the base's part of the state changes, m_csJoin through `JoinFilterGraph`. Order: m_csState
/// or m_csJoin, the audio pin's flush lock, the video pin's flush lock; and m_csState or m_csJoin, m_csPins.
/// Delivery threads take m_csPins (for the clock) and the flush locks: nobody waits for one with these held but
/// for a second at most. A delivery thread that seeks takes m_csState, unless a stop begins: see SeekHook. The
/// demuxer's thread takes none of these locks. The thread of an upstream pin takes the input pin's receive lock
/// around each sample, with none of the others; it takes m_csState before that lock, for a reset, and m_csPins
/// behind it. Who holds m_csState or m_csPins does not wait for the receive lock, but holds the intake (CIntake::
/// CHold), which comes at once. Connections are refused from the start of the path to the end of
/// the stop, whatever the state reads meanwhile. Flags that threads share are atomic.
class CKestDemux2Filter final : public CBaseFilter, public IDemuxFilterSite, public IResetSite {
public:
    /// Makes a filter, without a reference.
    /// @param pOuter  outer object of an aggregate, or null.
    /// @param phr     unchanged, or why the filter cannot be used: the caller then destroys it.
    /// @return null, with E_OUTOFMEMORY, when memory is short.
    static CUnknown* CreateInstance(IUnknown* pOuter, HRESULT* phr);
    CKestDemux2Filter(IUnknown* pOuter, HRESULT* phr);
    ~CKestDemux2Filter() override;

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // ---- pins and graph

    /// Input, video, audio.
    int GetPinCount() override { return 3; }
    CBasePin* GetPin(int n) override;
    /// False from the start of the path to the end of the stop.
    bool MayChangeConnections() const override { return !m_bPathInUse; }
    /// @return VFW_E_NOT_FOUND for other names than "Input", "Audio Output" and "Video Output"; E_POINTER.
    HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** ppPin) override;
    /// Gives the output pins what dynamic reconnections need. @return also why the graph has no IGraphConfig.
    HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) override;

    // ---- state machine

    /// Ends the threads of the path, each by force when its bound has passed.
    HRESULT STDMETHODCALLTYPE Stop() override;
    /// From stopped, starts the path of the working mode, which fills the pins downstream. From running,
    /// leaves every thread as it is. @return what failed: a filter that was stopped is stopped again.
    HRESULT STDMETHODCALLTYPE Pause() override;
    /// Pauses first unless paused; a filter that runs begins again with the new start time.
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME tStart) override;
    /// Recovers from broken timing. A program stream loses what is on its way and its timing starts anew; in
    /// the other modes every thread is restarted, after up to a second of waiting for the delivery threads.
    /// Nothing happens while the filter is stopped or resets are off.
    void ResetDemux() override;
    int CheckNeedReset() override;

    // ---- parts

    ResetState GetResetState() const { return m_resets.Get(); }
    /// The timing of the output pins.
    CAvTiming& GetAvTiming() { return m_timing; }

    // ---- IDemuxFilterSite

    std::int32_t GetSwitch(ESwitch nSwitch) const override { return m_switches.Get(nSwitch); }
    EWorkingMode GetWorkingMode() const override { return m_path.GetWorkingMode(); }
    bool IsInputConnected() const override { return m_pInputPin->IsConnected(); }
    bool IsPushSource() const override { return m_source.IsPushSource(); }
    std::uint32_t GetBitRate() const override { return m_source.GetBitRate(); }
    Mpeg1SequenceHeader GetSequenceHeader() const override { return m_path.GetSequenceHeader(); }
    const StreamDescription* GetDescription(EStreamKind kind) const override;
    int GetDefaultWidth() const override { return 720; }
    int GetDefaultHeight() const override { return 480; }
    bool IsActive() const override { return m_bActive; }
    bool IsFreeRun() const override { return m_path.IsFreeRun(); }
    REFERENCE_TIME GetStreamStart() const override { return m_rtStreamStart; }
    bool GetClockTime(REFERENCE_TIME& rtNow) override;
    bool IsResetting() const override { return m_resets.m_bResetting; }
    void RequestReset() override { m_resets.m_bResetRequest = true; }
    void OnThreadKilled() override;
    HRESULT SetPositionsHook(std::int64_t llPosition, std::int64_t llLength) override;
    /// The stop position has no effect on the demuxer.
    HRESULT StopHook(REFERENCE_TIME) override { return S_OK; }
    /// Waits for a state change or a seek of another thread, so that this one comes behind it, but not for a
    /// stop: that may wait for the thread that seeks, and leaves nothing to seek in. While the bit rate is
    /// unknown, a seek changes nothing.
    HRESULT SeekHook(REFERENCE_TIME rt) override;
    HRESULT RateHook(double dRate) override;
    void DoSingleStep(const std::function<bool()>& isOver) override;

private:
    void BeginServices();
    HRESULT EnterPaused();
    HRESULT EnterStopped();
    void EndPath();
    void UsePath();
    void LeavePath();
    void ActivatePins();
    void DeactivatePins();

    CCritSec m_csState;                   // see above
    CCritSec m_csJoin;                    // see above
    CCritSec m_csPins;                    // object lock of the filter and its pins
    CKestDemuxClock m_Clock{GetOwner()};  // what the filter offers as IReferenceClock
    CUdpSender m_UdpSender;               // forwards what comes in
    CStatusPublisher m_publisher;         // shows the status to other processes
    CDumpFile m_dump{GetOwner()};         // what the filter offers as IFileSinkFilter
    CSingleStep m_singleStep;
    CSwitches m_switches;
    ResetFlags m_resets;
    CSource m_source;                                // behind the input pin
    std::atomic<REFERENCE_TIME> m_rtStreamStart{0};  // start time of the last Run, 100 ns
    std::atomic<bool> m_bActive{false};              // from the start of Run or Pause to the start of Stop
    bool m_bPathInUse = false;                       // see MayChangeConnections; under m_csPins

    CAvTiming m_timing;                                            // of both output pins
    const std::unique_ptr<CKestDemux2VideoOutputPin> m_pVideoPin;  // pin 1
    const std::unique_ptr<CKestDemux2AudioOutputPin> m_pAudioPin;  // pin 2
    CDemuxPath m_path;                                             // from the source to the output pins
    CIntake m_intake;                                              // what becomes of samples that come in
    const std::unique_ptr<CKestDemux2InputPin> m_pInputPin;        // pin 0
    CFilterSeeking m_seeking;                                      // what the filter offers as IMediaSeeking
    CDemuxControl m_control;  // what the filter offers as IKestDemux2Control and its like
};

}  // namespace kest

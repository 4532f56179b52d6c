// Stopped, paused, running: when the threads of the path start, go on and end around the base's own steps.
#include "filter/KestDemux2Filter.h"
#include "pins/DeliveryThread.h"
#include "platform/DebugText.h"
#include "platform/Time.h"

namespace kest {

HRESULT CKestDemux2Filter::Pause() {
    m_bActive = true;
    Trace("Pause_1<-----------------!!!!!! %d \n", static_cast<int>(TickCount()));
    CAutoLock lock(m_csState);
    Trace("Pause_2<-----------------!!!!!!\n");
    if (m_State == State_Paused) return S_OK;
    ApplyDemuxOutput();
    if (m_pVideoPin && !m_pVideoPin->GetDeliveryThread().IsRunning()) {
        // Before the delivery threads run, and so before the base commits their allocators: a thread that had
        // begun its timing already would begin it a second time.
        m_timing.Forget();
        if (Mode().family == ECoreFamily::Program) m_pVideoPin->InitSeeking();
        StartPath();
    }
    const HRESULT hr = CBaseFilter::Pause();
    if (FAILED(hr) && IsStopped()) StopPath();  // a filter that stays stopped has no threads
    Trace("Pause_3<-----------------!!!!!!\n");
    return hr;
}

HRESULT CKestDemux2Filter::Run(REFERENCE_TIME tStart) {
    m_bActive = true;
    m_bResetting = false;
    Trace("Run_1<-----------------!!!!!!\n");
    CAutoLock lock(m_csState);
    Trace("Run_2<-----------------!!!!!!\n");
    if (m_State != State_Paused) {
        const HRESULT hr = Pause();
        if (IsStopped()) return hr;  // the base's Run would fail for the same reason
    }
    if (m_State == State_Running) return S_OK;
    m_rtStreamStart = tStart;
    ApplyDemuxOutput();
    ResumePath();
    if (Mode().family == ECoreFamily::Program) ActivatePins();
    return CBaseFilter::Run(tStart);
}

// The first step comes before the lock: the pins' stop rule sees at once that it must not be patient.
HRESULT CKestDemux2Filter::Stop() {
    m_bActive = false;
    Trace("Stop_1<-----------------!!!!!!\n");
    CAutoLock lock(m_csState);
    Trace("Stop_2<-----------------!!!!!!\n");
    StopPath();
    DeactivatePins();
    m_timing.Forget();
    m_bResetAllowed = true;
    m_bNeedReset = false;
    m_bThreadKilled = false;
    const HRESULT hr = CBaseFilter::Stop();
    Trace("Pass Stop()<-----------------!!!!!!\n");
    return hr;
}

/// Takes over whether samples leave without pacing; an unknown demux function leaves it as it is.
void CKestDemux2Filter::ApplyDemuxOutput() {
    switch (m_sendSettings.nDemuxOutput) {
        case kDemuxOutputPes:
        case kDemuxOutputAvEs: m_bFreeRun = false; break;
        case kDemuxOutputFreeRun: m_bFreeRun = true; break;
        default: break;
    }
}

/// Commits what the pins use, also of those that the base has seen to already. A pin that is not connected
/// has nothing to commit.
void CKestDemux2Filter::ActivatePins() {
    CAutoLock lock(m_csPins);
    for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->Active();
    m_pInputPin->Active();
}

void CKestDemux2Filter::DeactivatePins() {
    CAutoLock lock(m_csPins);
    for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->Inactive();
    if (Mode().bInputEndsWithPath) m_pInputPin->Inactive();
}

}  // namespace kest

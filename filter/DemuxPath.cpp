// The path of the bytes through the filter: core, frame queues, delivery threads. How the parts start, end
// and are reset, by working mode.
#include "filter/KestDemux2Filter.h"
#include "pins/DeliveryThread.h"
#include "platform/DebugText.h"
#include "platform/Time.h"

namespace kest {
namespace {

constexpr int kReadyPasses = 10;              // looks at the pins before a reset goes on without them
constexpr std::uint32_t kReadyPauseMs = 100;  // between two looks
constexpr std::uint32_t kEndPauseMs = 10;     // for delivery threads that have been asked to end

/// Opens a pin's frame queue and starts its delivery thread. A thread that ended by itself has left its queue
/// open, and with frames of its time.
void StartDelivery(CDemuxOutputPin& pin) {
    pin.CloseMemFiles();
    pin.WOpenMemFile();
    pin.ROpenMemFile();
    pin.GetDeliveryThread().Restart();
    pin.GetDeliveryThread().Resume();
}

}  // namespace

/// The core of the working mode, or null where there is none.
CWorkerThread* CKestDemux2Filter::Core() const {
    return Mode().family == ECoreFamily::Program ? m_pPsDemux.get() : nullptr;
}

/// The output pins that the working mode delivers through, the video pin first.
std::span<CDemuxOutputPin* const> CKestDemux2Filter::DeliveringPins() const {
    return std::span(m_apOutputPins)
        .first(m_apOutputPins[0] ? static_cast<std::size_t>(Mode().nOutputPins) : 0);
}

// ---------------- start and end

/// Starts the threads: the core, held, then the delivery threads with their queues; the core runs last, so
/// that its first frames find their readers in place.
void CKestDemux2Filter::StartPath() {
    if (GetWorkingMode() == EWorkingMode::Mpeg4VideoEs) {
        m_timing.Update([](AvTimes& times) {
            times.video.nAccessCount = 0;
            times.video.bFirstTime = true;
        });
    }
    m_evAbort.Reset();  // the stop before is over: a delivery on a blocked pin waits again
    if (Core()) Core()->Restart();
    if (Mode().family == ECoreFamily::Transport) SelectTsTimeReference();
    for (CDemuxOutputPin* pPin : DeliveringPins()) StartDelivery(*pPin);
    if (Core()) Core()->Resume();
}

void CKestDemux2Filter::ResumePath() {
    for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->GetDeliveryThread().Resume();
    if (Core()) Core()->Resume();
}

/// Ends the threads: closed queues wake whoever waits on them. Must not be called with m_csPins held.
void CKestDemux2Filter::StopPath() {
    const bool bProgram = Mode().family == ECoreFamily::Program;
    for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->CloseMemFiles();
    if (bProgram) m_evAbort.Set();
    if (Core()) Core()->Stop();
    if (bProgram) {
        for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->StopDelivery();
    }
    for (CDemuxOutputPin* pPin : DeliveringPins()) pPin->GetDeliveryThread().Stop();
}

/// Only told so far: there is no transport-stream core that would follow.
void CKestDemux2Filter::SelectTsTimeReference() {
    const auto nOutput = m_sendSettings.nDemuxOutput;
    if (nOutput == kDemuxOutputPes || nOutput == kDemuxOutputFreeRun) {
        Trace("Transport demux core uses PTS/DTS as time reference\n");
    } else {
        Trace("Transport demux core uses Vidoe Elementary timing info as time reference\n");
    }
}

// ---------------- reset

void CKestDemux2Filter::ResetDemux() {
    CAutoLock lock(m_csState);
    if (!m_bEnableReset || m_bResetting.exchange(true)) return;
    if (m_pPsDemux) {  // it sorts itself out, threads and all
        m_timing.Restart();
        m_bNeedReset = false;
        m_pPsDemux->Reset();
    } else {
        WaitForPins();
        TearDownPath();
        m_timing.Restart();
        StartPath();
    }
    m_bResetting = false;
}

/// Gives the delivery threads the time to come to a place between two deliveries, then asks them to end. The
/// elementary-stream mode always takes the whole time.
void CKestDemux2Filter::WaitForPins() {
    m_timing.Update([](AvTimes& times) { times.video.bReadyToReset = times.audio.bReadyToReset = false; });
    for (int nPass = 0; nPass < kReadyPasses; ++nPass) {
        const AvTimes times = m_timing.Get();
        if (times.video.bReadyToReset && GetWorkingMode() != EWorkingMode::Mpeg4VideoEs &&
            times.audio.bReadyToReset) {
            break;
        }
        SleepMs(kReadyPauseMs);
        Trace("****ResetDemux waited for 100ms\n**");
    }
    for (CDemuxOutputPin* pPin : m_apOutputPins) pPin->StopDelivery();
    SleepMs(kEndPauseMs);
}

/// Ends the threads pin by pin, and then the core.
void CKestDemux2Filter::TearDownPath() {
    for (CDemuxOutputPin* pPin : DeliveringPins()) {
        pPin->CloseMemFiles();
        pPin->GetDeliveryThread().Stop();
    }
    if (Core()) Core()->Stop();
}

}  // namespace kest

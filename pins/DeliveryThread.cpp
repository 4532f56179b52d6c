#include "pins/DeliveryThread.h"

#include <cinttypes>

#include "pins/DeliveryLoop.h"
#include "platform/DebugText.h"

namespace kest {

CDeliveryThread::~CDeliveryThread() {
    RunToTheEnd([this] { End(); });
}

void CDeliveryThread::Stop() {
    constexpr int kMoreWaits = 8;
    const bool bVideo = m_context.IsVideo();
    const std::uint32_t nBoundMs = m_context.site.GetStopBoundMs();
    m_context.timing.Update([this](AvTimes& times) { times.Of(m_context.pin).bFirstTime = true; });
    RequestStop();
    if (WaitForThread(nBoundMs) != WAIT_TIMEOUT) return;
    for (int i = 0; i < kMoreWaits && m_context.site.IsActive(); ++i) {
        if (WaitForThread(nBoundMs) != WAIT_TIMEOUT) return;
        Trace(
            "&&##==>Becuase there may be the wrong timestamp, %s can't stop %s decoder filter right the way, "
            "we "
            "have to wait more than one second!!!! TS=%" PRId64 "\n",
            bVideo ? "CKestDemux2VideoOutputPin" : "CKestDemux2AudioOutputPin", bVideo ? "video" : "audio",
            std::int64_t{m_context.timing.Get(m_context.pin).rtStart});
    }
    Trace("&&##==>%s is safely quit\n", bVideo ? "CKestDemux2VideoOutputPin" : "CKestDemux2AudioOutputPin");
    EndByForce();
    m_context.site.OnThreadKilled();
}

void CDeliveryThread::End() {
    constexpr std::uint32_t kGraceMs = 10;
    RequestStop();
    if (WaitForThread(kGraceMs) == WAIT_TIMEOUT) EndByForce();
    CloseThread();
}

/// What remains is foreign code that heeds neither the decommit nor the flush: it is waited for.
void CDeliveryThread::EndByForce() {
    CBaseOutputPin& output = m_context.output;
    output.Inactive();
    {
        const CFlushing flushing(output);
        KillThread();
    }
    if (m_context.site.IsActive())
        output.Active();  // a reset, and not the end: the next thread needs samples
}

std::int32_t CDeliveryThread::ThreadProc() {
    m_evRun.Wait();
    return CDeliveryLoop(m_context, {m_evRun, m_evStop}).Run();
}

}  // namespace kest

#include "pins/DeliveryThread.h"

#include <cinttypes>

#include "pins/DeliveryLoop.h"
#include "pins/DemuxOutputPin.h"
#include "platform/DebugText.h"

namespace kest {

void CDeliveryThread::Stop() {
    constexpr std::uint32_t kWaitMs = 1000;
    constexpr int kMoreWaits = 8;
    m_pin.GetTiming().bFirstTime = true;
    CWorkerThread::Stop();
    if (WaitForThread(kWaitMs) != WAIT_TIMEOUT) return;
    for (int i = 0; i < kMoreWaits && m_pin.GetSite().IsActive(); ++i) {
        if (WaitForThread(kWaitMs) != WAIT_TIMEOUT) return;
        Trace(
            "&&##==>Becuase there may be the wrong timestamp, %s can't stop %s decoder filter right the way, "
            "we "
            "have to wait more than one second!!!! TS=%" PRId64 "\n",
            m_pin.GetClassText(), m_pin.GetStreamText(),
            static_cast<std::int64_t>(m_pin.GetTiming().rtStart));
    }
    Trace("&&##==>%s is safely quit\n", m_pin.GetClassText());
    KillThread();
    m_pin.GetSite().OnThreadKilled();
}

std::int32_t CDeliveryThread::ThreadProc() { return m_pin.MakeDeliveryLoop()->Run(); }

}  // namespace kest

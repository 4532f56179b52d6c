#include "pins/DeliveryGate.h"

namespace kest {

bool CDeliveryGate::OnBeginFlush() {
    CAutoLock lock(m_cs);
    m_bEnded = false;
    ++m_nFlushesBegun;
    m_evNotFlushing.Reset();
    return ++m_nFlushes == 1;
}

bool CDeliveryGate::OnEndFlush() {
    CAutoLock lock(m_cs);
    if (m_nFlushes == 0 || --m_nFlushes > 0) return false;
    m_evNotFlushing.Set();
    return true;
}

void CDeliveryGate::WaitForDelivery() {
    constexpr std::uint32_t kBoundMs = 1000;  // for a downstream filter that does not mind the flush
    m_evNotDelivering.Wait(kBoundMs);
}

void CDeliveryGate::WaitForFlush(CEvent& evStop) {
    CEvent* const apEvents[] = {&m_evNotFlushing, &evStop};
    CEvent::WaitAny(apEvents);
}

}  // namespace kest

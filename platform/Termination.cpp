#include "platform/Termination.h"

#include <exception>
#include <mutex>

namespace kest {
namespace {

thread_local CTermination* t_pTermination = nullptr;

}  // namespace

CCondition::Mutex& CTermination::GetWaitMutex() {
    static CCondition::Mutex s_mutex;
    return s_mutex;
}

void CTermination::Request() {
    m_bRequested = true;
    std::lock_guard lock(GetWaitMutex());
    m_wake.Notify().Complete();
}

void CTermination::ThrowIfRequested() {
    if (!m_bRequested || m_nHolds > 0 || std::uncaught_exceptions() > 0) return;
    m_bThrown = true;
    throw CThreadTermination();
}

CTermination* CurrentTermination() { return t_pTermination; }
void SetCurrentTermination(CTermination* pTermination) { t_pTermination = pTermination; }

}  // namespace kest

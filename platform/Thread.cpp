#include "platform/Thread.h"

#include <exception>

#include "platform/DebugText.h"
#include "platform/ThreadControl.h"
#include "platform/Time.h"

namespace kest {
namespace {

std::int32_t RunBody(const CThreadControl& control, const CThread::Body& body) {
    try {
        const std::int32_t nExitCode = body();
        // Interface code has turned the signal into a result code, and no wait followed that would throw it again.
        return control.termination.WasThrown() ? control.nTerminateCode.load() : nExitCode;
    } catch (const CThreadTermination&) {
        return control.nTerminateCode;
    }
}

void RunThread(const std::shared_ptr<CThreadControl>& pControl, const CThread::Body& body) {
    SetCurrentTermination(&pControl->termination);
    pControl->OnEnter();
    const std::int32_t nExitCode = RunBody(*pControl, body);
    SetCurrentTermination(nullptr);
    pControl->OnLeave(nExitCode);
}

}  // namespace

bool CThread::Start(Body body) {
    CAutoLock owner(m_csOwner);
    Close();
    CAutoLock lock(m_cs);
    try {
        auto pControl = std::make_shared<CThreadControl>();
        m_thread = std::thread([pControl, body = std::move(body)] { RunThread(pControl, body); });
        m_pControl = std::move(pControl);
    } catch (const std::exception&) {
        return false;
    }
    m_bExists = true;
    return true;
}

bool CThread::Exists() const { return static_cast<bool>(PresentControl()); }

bool CThread::IsRunning() const {
    CAutoLock lock(m_cs);
    return m_bExists && !m_pControl->evEnded.IsSignalled();
}

std::uint32_t CThread::Wait(std::uint32_t nTimeoutMs) const {
    const CTerminationHold hold;
    const auto pControl = PresentControl();
    if (!pControl) return WAIT_FAILED;
    return pControl->evEnded.Wait(nTimeoutMs) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

void CThread::Terminate(std::int32_t nExitCode, std::uint32_t nNoticeMs) {
    const CTerminationHold hold;
    const auto pControl = PresentControl();
    if (!pControl) return;
    pControl->nTerminateCode = nExitCode;
    pControl->termination.Request();
    while (!pControl->evEnded.Wait(nNoticeMs)) {
        DebugText("Thread %u is inside foreign code and must end; waiting\n", pControl->dwThreadId.load());
    }
}

void CThread::Close() {
    CAutoLock owner(m_csOwner);
    if (!m_thread.joinable()) return;
    m_thread.join();
    CAutoLock lock(m_cs);
    m_bExists = false;
}

std::shared_ptr<CThreadControl> CThread::LastControl() const {
    CAutoLock lock(m_cs);
    return m_pControl;
}

/// The control of a thread that has not been closed, or null.
std::shared_ptr<CThreadControl> CThread::PresentControl() const {
    CAutoLock lock(m_cs);
    return m_bExists ? m_pControl : nullptr;
}

std::uint32_t CThread::GetId() const {
    const auto pControl = LastControl();
    return pControl ? pControl->dwThreadId.load() : 0;
}

std::int32_t CThread::GetExitCode() const {
    const auto pControl = LastControl();
    return pControl && pControl->evEnded.IsSignalled() ? pControl->nExitCode.load() : 0;
}

ThreadTimes CThread::GetTimes() const {
    const auto pControl = LastControl();
    return pControl ? pControl->GetTimes() : ThreadTimes();
}

int CThread::GetPriority() const {
    const auto pControl = LastControl();
    return pControl ? pControl->GetPriority() : 0;
}

}  // namespace kest

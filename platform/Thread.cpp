#include "platform/Thread.h"

#include <system_error>

#include "platform/DebugText.h"
#include "platform/ThreadControl.h"

namespace kest {
namespace {

thread_local CThreadControl* t_pControl = nullptr;

constexpr std::uint32_t kForeignCodeNoticeMs = 1000;

void RunThread(const std::shared_ptr<CThreadControl>& pControl, const CThread::Body& body) {
    t_pControl = pControl.get();
    pControl->OnEnter();
    std::int32_t nExitCode = 0;
    try {
        nExitCode = body();
    } catch (const CThreadTermination&) {
        nExitCode = pControl->nTerminateCode;
    }
    t_pControl = nullptr;
    pControl->OnLeave(nExitCode);
}

}  // namespace

CThreadControl* CurrentThreadControl() { return t_pControl; }

void CThreadControl::ThrowIfTerminated() {
    if (!bTerminate.load(std::memory_order_acquire) || bTerminationThrown) return;
    bTerminationThrown = true;
    throw CThreadTermination();
}

bool CThread::Start(Body body) {
    Close();
    std::lock_guard lock(m_mutex);
    auto pControl = std::make_shared<CThreadControl>();
    try {
        m_thread = std::thread([pControl, body = std::move(body)] { RunThread(pControl, body); });
    } catch (const std::system_error&) {
        return false;
    }
    m_pControl = std::move(pControl);
    return true;
}

bool CThread::Exists() const {
    std::lock_guard lock(m_mutex);
    return m_thread.joinable();
}

std::uint32_t CThread::Wait(std::uint32_t nTimeoutMs) const {
    if (!Exists()) return WAIT_FAILED;
    return Control()->evEnded.Wait(nTimeoutMs) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

void CThread::Terminate(std::int32_t nExitCode) {
    if (!Exists()) return;
    auto pControl = Control();
    pControl->RequestTermination(nExitCode);
    while (!pControl->evEnded.Wait(kForeignCodeNoticeMs)) {
        DebugText("Thread %u is inside foreign code and must end; waiting\n", GetId());
    }
}

void CThread::Close() {
    std::thread thread;
    {
        std::lock_guard lock(m_mutex);
        thread = std::move(m_thread);
    }
    if (thread.joinable()) thread.join();
}

std::shared_ptr<CThreadControl> CThread::Control() const {
    std::lock_guard lock(m_mutex);
    return m_pControl;
}

std::uint32_t CThread::GetId() const {
    auto pControl = Control();
    return pControl ? pControl->dwThreadId.load() : 0;
}

std::int32_t CThread::GetExitCode() const {
    auto pControl = Control();
    return pControl && pControl->evEnded.IsSignalled() ? pControl->nExitCode.load() : 0;
}

ThreadTimes CThread::GetTimes() const {
    auto pControl = Control();
    return pControl ? pControl->GetTimes() : ThreadTimes();
}

int CThread::GetPriority() const {
    auto pControl = Control();
    return pControl ? pControl->GetPriority() : 0;
}

}  // namespace kest

#pragma once

#include "plumbing/WorkerThread.h"

namespace kest {

class CDemuxOutputPin;

/// The delivery thread of an output pin: its body is the pin's delivery loop.
class CDeliveryThread final : public CWorkerThread {
public:
    /// @param pin  the pin that embeds it.
    explicit CDeliveryThread(CDemuxOutputPin& pin) : m_pin(pin) {}
    ~CDeliveryThread() { CloseThread(); }

    /// The stop rule: asks the thread to end and waits 1000 ms for it, while the filter is active up to eight
    /// times 1000 ms more; then ends it by force and tells the filter.
    void Stop() override;

    /// The thread must end.
    bool IsStopping() const { return m_evStop.IsSignalled(); }
    /// Waits for that. @return whether it must, after nTimeoutMs at the latest.
    bool WaitStop(std::uint32_t nTimeoutMs) { return m_evStop.Wait(nTimeoutMs); }
    /// Waits until the thread may run; for the thread itself.
    void WaitRun() { m_evRun.Wait(); }

protected:
    std::int32_t ThreadProc() override;

private:
    CDemuxOutputPin& m_pin;
};

}  // namespace kest

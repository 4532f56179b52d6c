#pragma once

#include "pins/DeliveryContext.h"
#include "plumbing/WorkerThread.h"

namespace kest {

/// The delivery thread of an output pin: its body is a delivery loop.
class CDeliveryThread final : public CWorkerThread {
public:
    explicit CDeliveryThread(const DeliveryContext& context) : m_context(context) {}
    ~CDeliveryThread();

    /// The stop rule: asks the thread to end and waits for it, as long as the site's bound says (a second),
    /// while the filter is active up to eight times that more; then ends it by force and notifies the filter.
    /// A thread that waits downstream, for a sample or in a delivery, is brought back by a decommit and a
    /// flush before.
    void Stop() override;
    /// Asks the thread to end and returns at once.
    void RequestStop() { CWorkerThread::Stop(); }
    /// The thread has been asked to end.
    bool IsStopping() const { return m_evStop.IsSignalled(); }
    /// Ends the thread for good, as the stop rule does but without its waits.
    void End();

protected:
    std::int32_t ThreadProc() override;

private:
    void EndByForce();

    const DeliveryContext& m_context;
};

}  // namespace kest

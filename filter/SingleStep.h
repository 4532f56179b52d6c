#pragma once

#include <atomic>
#include <functional>

#include "platform/Event.h"

namespace kest {

/// The single-step mode: while it is on, each video sample waits for a step. Any thread.
class CSingleStep {
public:
    bool IsEnabled() const { return m_bSingleStep; }
    /// On: the mode begins, or goes on, and one sample may pass. Off: all may.
    void Enable(bool bEnable);
    /// Waits for a step in the mode.
    /// @param isOver  asked several times a second: the wait is to end without a step.
    void DoSingleStep(const std::function<bool()>& isOver);

private:
    std::atomic<bool> m_bSingleStep{false};                              // the mode is on
    CEvent m_evSingleStep{/*bManualReset=*/false, /*bSignalled=*/true};  // a step may be taken
};

}  // namespace kest

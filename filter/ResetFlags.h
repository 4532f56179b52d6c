#pragma once

#include <atomic>

namespace kest {

/// What the filter knows of resets, at one moment.
struct ResetState {
    bool bEnabled = true;        // resets are carried out
    bool bAllowed = true;        // automatic reset decisions are made
    bool bRequested = false;     // a pin has asked for a reset
    bool bNeeded = false;        // the last decision found a reset necessary
    bool bResetting = false;     // a reset is in progress
    bool bThreadKilled = false;  // a delivery thread had to be ended by force
    bool operator==(const ResetState&) const = default;
};

/// The same as flags that threads share: see ResetState.
struct ResetFlags {
    std::atomic<bool> m_bEnableReset{true};
    std::atomic<bool> m_bResetAllowed{true};
    std::atomic<bool> m_bResetRequest{false};
    std::atomic<bool> m_bNeedReset{false};
    std::atomic<bool> m_bResetting{false};
    std::atomic<bool> m_bThreadKilled{false};

    ResetState Get() const {
        return {.bEnabled = m_bEnableReset,
                .bAllowed = m_bResetAllowed,
                .bRequested = m_bResetRequest,
                .bNeeded = m_bNeedReset,
                .bResetting = m_bResetting,
                .bThreadKilled = m_bThreadKilled};
    }
};

}  // namespace kest

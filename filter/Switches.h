#pragma once

#include <array>
#include <atomic>

#include "control/SwitchTable.h"

namespace kest {

/// The values of the filter's switches. Any thread.
class CSwitches {
public:
    CSwitches() {
        for (std::size_t i = 0; i < kSwitchTable.size(); ++i) m_anValues[i] = kSwitchTable[i].nDefault;
    }
    std::int32_t Get(ESwitch nSwitch) const { return m_anValues[static_cast<std::size_t>(nSwitch)]; }
    bool IsOn(ESwitch nSwitch) const { return Get(nSwitch) != 0; }
    /// @param nValue  within the switch's range.
    void Set(ESwitch nSwitch, std::int32_t nValue) { m_anValues[static_cast<std::size_t>(nSwitch)] = nValue; }

private:
    std::array<std::atomic<std::int32_t>, kSwitchTable.size()> m_anValues;  // by ESwitch
};

}  // namespace kest

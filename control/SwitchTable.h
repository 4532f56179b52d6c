#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "control/KestDemux2Control.h"

namespace kest {

/// When a new value of a switch takes effect.
enum class EEffect { NextConnection, NextStart, AtOnce };

/// What there is to know of a switch.
struct SwitchTraits {
    std::string_view strName;
    std::int32_t nDefault;
    std::int32_t nLeast, nMost;
    EEffect effect;
};

/// By ESwitch.
constexpr std::array<SwitchTraits, 2> kSwitchTable = {{
    {"AdmitAll", 0, 0, 1, EEffect::NextConnection},
    {"PushStreamClass", 6, 0, 6, EEffect::NextConnection},
}};

}  // namespace kest

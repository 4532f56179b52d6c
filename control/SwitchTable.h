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
    std::string_view strType;  // what a value is
    std::int32_t nDefault;
    std::int32_t nLeast, nMost;
    EEffect effect;
};

/// By ESwitch.
constexpr std::array<SwitchTraits, 2> kSwitchTable = {{
    {"AdmitAll", "flag", 0, 0, 1, EEffect::NextConnection},
    {"PushStreamClass", "class of the probe", 6, 0, 6, EEffect::NextConnection},
}};

}  // namespace kest

#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "control/KestDemux2Control.h"

namespace kest {

/// When a new value of a switch takes effect.
enum class EEffect { NextConnection, NextStart };

/// What there is to know of a switch.
struct SwitchTraits {
    std::string_view strName;
    std::string_view strType;  // what a value is
    std::int32_t nDefault;
    std::int32_t nLeast, nMost;
    EEffect effect;
};

/// Values of VideoStream and AudioStream that are no stream.
constexpr std::int32_t kAllStreams = -1, kFirstKnownStream = 0;

/// By ESwitch.
constexpr std::array<SwitchTraits, 12> kSwitchTable = {{
    {"AdmitAll", "flag", 0, 0, 1, EEffect::NextConnection},
    {"PushStreamClass", "class of the probe", 6, 0, 6, EEffect::NextConnection},
    {"AssumeMap", "flag", 0, 0, 1, EEffect::NextConnection},
    {"VideoStream", "stream_id or PID", kAllStreams, kAllStreams, 0x1FFF, EEffect::NextStart},
    {"AudioStream", "stream_id or PID", kAllStreams, kAllStreams, 0x1FFF, EEffect::NextStart},
    {"Drain", "flag", 0, 0, 1, EEffect::NextStart},
    {"VideoBlockSize", "bytes", 163840, 163840, 4194304, EEffect::NextConnection},
    {"RobustTiming", "flag", 0, 0, 1, EEffect::NextStart},
    {"SeekByTime", "flag", 0, 0, 1, EEffect::NextConnection},
    {"TrueTypes", "flag", 0, 0, 1, EEffect::NextConnection},
    {"AnyAudioHeader", "flag", 0, 0, 1, EEffect::NextStart},
    {"MpegKeyFrames", "flag", 0, 0, 1, EEffect::NextStart},
}};

}  // namespace kest

#pragma once

#include <array>
#include <atomic>

#include "control/SwitchTable.h"
#include "demux/ParseSettings.h"

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

/// The switches as the demuxers see them.
/// @param nVideoBlockSize  bytes of a block in the video's queue; the default changes no demuxer's limits.
inline ParseSettings MakeParseSettings(const CSwitches& switches, std::uint32_t nVideoBlockSize) {
    const auto nDefault = kSwitchTable[static_cast<std::size_t>(ESwitch::VideoBlockSize)].nDefault;
    return {.bAssumeMap = switches.IsOn(ESwitch::AssumeMap),
            .nVideoStream = switches.Get(ESwitch::VideoStream),
            .nAudioStream = switches.Get(ESwitch::AudioStream),
            .bDrain = switches.IsOn(ESwitch::Drain),
            .bAnyAudioHeader = switches.IsOn(ESwitch::AnyAudioHeader),
            .bMpegKeyFrames = switches.IsOn(ESwitch::MpegKeyFrames),
            .nVideoBlockSize = nVideoBlockSize > static_cast<std::uint32_t>(nDefault) ? nVideoBlockSize : 0};
}

}  // namespace kest

#pragma once

#include <cstddef>
#include <cstdint>

namespace kest {

/// Which demux core takes a stream apart.
enum class ECoreFamily { None, Transport, Program, Mpeg1 };

/// What a working mode means for the filter: which threads make up the path of its bytes. The modes 0 to 5
/// are the stream classes of the probe; every other number has no path.
struct WorkingMode {
    const char* pszName;      // in traces
    ECoreFamily family;       // the core; None: the path begins at the frame queues
    std::size_t nOutputPins;  // output pins that deliver: none, the video pin, or video and audio pin
    bool bInputEndsWithPath;  // the filter's Stop makes the input pin inactive together with the path,
                              // else the base's does
};

/// The mode of a pin that has not been connected.
constexpr std::uint32_t kWorkingModeNone = 6;

const WorkingMode& FindWorkingMode(std::uint32_t nMode);

}  // namespace kest

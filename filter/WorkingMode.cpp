#include "filter/WorkingMode.h"

namespace kest {
namespace {

constexpr WorkingMode kModes[] = {
    {"KEST_MPEG4_VIDEO_ES", ECoreFamily::None, 1, true},
    {"KEST_MPEG4_TRANSPORT_STREAM", ECoreFamily::Transport, 2, true},
    {"KEST_MPEG2_PROGRAM_STREAM", ECoreFamily::Program, 2, true},
    {"KEST_MPEG4_TRANSPORT_STREAM", ECoreFamily::Transport, 2, true},
    {"KEST_MPEG2_PROGRAM_STREAM", ECoreFamily::Program, 2, true},
    {"KEST_MPEG1_PROGRAM_STREAM", ECoreFamily::Mpeg1, 2, false},
    {"default", ECoreFamily::None, 0, false},
};
static_assert(sizeof kModes / sizeof kModes[0] == kWorkingModeNone + 1);

}  // namespace

const WorkingMode& FindWorkingMode(std::uint32_t nMode) {
    return kModes[nMode < kWorkingModeNone ? nMode : kWorkingModeNone];
}

}  // namespace kest

#include "pins/WorkingMode.h"

#include <cstddef>
#include <iterator>

namespace kest {
namespace {

constexpr WorkingMode kElementary = {.mode = EWorkingMode::Mpeg4VideoEs,
                                     .pszName = "KEST_MPEG4_VIDEO_ES",
                                     .family = ECoreFamily::None,
                                     .nOutputPins = 1,
                                     .videoTimeline = ETimeline::ElementaryStream,
                                     .audioTimeline = ETimeline::Plain,
                                     .videoType = EVideoType::Mpeg4,
                                     .lateness = ELateness::MoveTimeBase,
                                     .bFlushesVideoAtRestart = false,
                                     .bSeekable = false,
                                     .bInputEndsWithPath = true};

constexpr WorkingMode kTransportMpeg4 = {.mode = EWorkingMode::TransportMpeg4,
                                         .pszName = "KEST_MPEG4_TRANSPORT_STREAM",
                                         .family = ECoreFamily::Transport,
                                         .nOutputPins = 2,
                                         .videoTimeline = ETimeline::ClockFollowing,
                                         .audioTimeline = ETimeline::ClockFollowing,
                                         .videoType = EVideoType::Mpeg4,
                                         .lateness = ELateness::TraceWhenLate,
                                         .bFlushesVideoAtRestart = false,
                                         .bSeekable = false,
                                         .bInputEndsWithPath = true};

constexpr WorkingMode kTransportMpeg12 = {.mode = EWorkingMode::TransportMpeg12,
                                          .pszName = "KEST_MPEG4_TRANSPORT_STREAM",
                                          .family = ECoreFamily::Transport,
                                          .nOutputPins = 2,
                                          .videoTimeline = ETimeline::JumpClamping,
                                          .audioTimeline = ETimeline::JumpClamping,
                                          .videoType = EVideoType::Mpeg2,
                                          .lateness = ELateness::NotHandled,
                                          .bFlushesVideoAtRestart = false,
                                          .bSeekable = false,
                                          .bInputEndsWithPath = true};

constexpr WorkingMode kProgramMpeg4 = {.mode = EWorkingMode::ProgramMpeg4,
                                       .pszName = "KEST_MPEG2_PROGRAM_STREAM",
                                       .family = ECoreFamily::Program,
                                       .nOutputPins = 2,
                                       .videoTimeline = ETimeline::ProgramStream,
                                       .audioTimeline = ETimeline::ProgramStream,
                                       .videoType = EVideoType::Mpeg4,
                                       .lateness = ELateness::AcceptWhenLate,
                                       .bFlushesVideoAtRestart = true,
                                       .bSeekable = true,
                                       .bInputEndsWithPath = true};

constexpr WorkingMode kProgramMpeg12 = {.mode = EWorkingMode::ProgramMpeg12,
                                        .pszName = "KEST_MPEG2_PROGRAM_STREAM",
                                        .family = ECoreFamily::Program,
                                        .nOutputPins = 2,
                                        .videoTimeline = ETimeline::ProgramStream,
                                        .audioTimeline = ETimeline::ProgramStream,
                                        .videoType = EVideoType::Mpeg2,
                                        .lateness = ELateness::NotHandled,
                                        .bFlushesVideoAtRestart = false,
                                        .bSeekable = true,
                                        .bInputEndsWithPath = true};

constexpr WorkingMode kMpeg1System = {.mode = EWorkingMode::Mpeg1System,
                                      .pszName = "KEST_MPEG1_PROGRAM_STREAM",
                                      .family = ECoreFamily::Mpeg1,
                                      .nOutputPins = 2,
                                      .videoTimeline = ETimeline::Basic,
                                      .audioTimeline = ETimeline::Basic,
                                      .videoType = EVideoType::Mpeg1,
                                      .lateness = ELateness::NotHandled,
                                      .bFlushesVideoAtRestart = false,
                                      .bSeekable = false,
                                      .bInputEndsWithPath = false};

constexpr WorkingMode kNone = {.mode = EWorkingMode::None,
                               .pszName = "default",
                               .family = ECoreFamily::None,
                               .nOutputPins = 0,
                               .videoTimeline = ETimeline::None,
                               .audioTimeline = ETimeline::Plain,
                               .videoType = EVideoType::None,
                               .lateness = ELateness::NotHandled,
                               .bFlushesVideoAtRestart = false,
                               .bSeekable = false,
                               .bInputEndsWithPath = false};

constexpr WorkingMode kModes[] = {kElementary,    kTransportMpeg4, kProgramMpeg4, kTransportMpeg12,
                                  kProgramMpeg12, kMpeg1System,    kNone};

}  // namespace

const WorkingMode& FindWorkingMode(EWorkingMode mode) {
    const auto nMode = static_cast<std::size_t>(mode);
    return nMode < std::size(kModes) ? kModes[nMode] : kNone;
}

}  // namespace kest

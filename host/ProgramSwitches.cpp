#include "host/ProgramSwitches.h"

namespace kest {

CProgramSwitches::CProgramSwitches(const StreamOptions& options, const Input& input) {
    constexpr std::int32_t kOn = 1, kLongestFrame = 4194304;  // bytes; a picture of the highest bit rates
    if (!IsProgramStream(input)) Set(ESwitch::AdmitAll, kOn);
    if (!input.pReader->IsSeekable()) Set(ESwitch::PushStreamClass, input.nClass);
    if (options.bPlain) return;
    for (const ESwitch nSwitch :
         {ESwitch::AssumeMap, ESwitch::Drain, ESwitch::RobustTiming, ESwitch::SeekByTime, ESwitch::TrueTypes,
          ESwitch::AnyAudioHeader, ESwitch::MpegKeyFrames}) {
        Set(nSwitch, kOn);
    }
    Set(ESwitch::VideoStream, options.nVideoStream);
    Set(ESwitch::AudioStream, options.nAudioStream);
    Set(ESwitch::VideoBlockSize, kLongestFrame);
}

}  // namespace kest

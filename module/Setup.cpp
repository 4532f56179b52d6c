#include "module/Setup.h"

#include <iterator>

#include "control/Identifiers.h"
#include "pins/VideoMediaTypes.h"

namespace kest {
namespace {

/// The FOURCC subtype "MPG4".
constexpr GUID kSubtypeMpg4 = {0x3447504D, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

const AMOVIESETUP_MEDIATYPE kInputTypes[] = {
    {&GUID_NULL, &GUID_NULL},
    {&MEDIATYPE_Stream, &GUID_NULL},
    {&MEDIATYPE_Stream, &kSubtypeMpeg4ProgramStream},
    {&MEDIATYPE_Stream, &kSubtypeMpg4},
};
const AMOVIESETUP_MEDIATYPE kAudioTypes[] = {{&MEDIATYPE_Audio, &MEDIASUBTYPE_MPEG1AudioPayload}};
const AMOVIESETUP_MEDIATYPE kVideoTypes[] = {
    {&MEDIATYPE_Video, &GUID_NULL},
    {&MEDIATYPE_Video, &MEDIASUBTYPE_MPEG2_VIDEO},
    {&MEDIATYPE_Video, &MEDIASUBTYPE_KestMpeg4Video},
    {&MEDIATYPE_Video, &MEDIASUBTYPE_MPEG1Payload},
};

/// A pin that the filter always has once, and that connects to any filter.
template <std::size_t nTypes>
constexpr AMOVIESETUP_PIN MakePin(LPCWSTR pszName, BOOL bRendered, BOOL bOutput,
                                  const AMOVIESETUP_MEDIATYPE (&types)[nTypes]) {
    return {pszName, bRendered, bOutput, FALSE, FALSE, &GUID_NULL, L"", nTypes, types};
}

const AMOVIESETUP_PIN kPins[] = {
    MakePin(L"Input", FALSE, FALSE, kInputTypes),
    MakePin(L"Audio Output", FALSE, TRUE, kAudioTypes),
    MakePin(L"Video Output", TRUE, TRUE, kVideoTypes),
};

}  // namespace

constinit const AMOVIESETUP_FILTER kFilterSetup = {&kFilterClass, L"Kest Mpeg Demux2 Filter",
                                                   MERIT_PREFERRED + 0x200, std::size(kPins), kPins};

}  // namespace kest

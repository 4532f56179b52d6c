#pragma once

#include "registration/ClassFactory.h"

namespace kest {

/// The description of the filter for the host's registry: its name, its merit, and its pins with their media
/// types in the order input, audio, video, which is not the order of the filter's own pin numbers.
extern const AMOVIESETUP_FILTER kFilterSetup;

}  // namespace kest

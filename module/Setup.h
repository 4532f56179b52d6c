#pragma once

#include "registration/ClassFactory.h"

namespace kest {

/// Tells the host's registry what the filter is like: its name, how early it is tried for a stream, and its
/// pins with their media types, in the order input, audio, video (the filter numbers its pins otherwise).
extern const AMOVIESETUP_FILTER kFilterSetup;

}  // namespace kest

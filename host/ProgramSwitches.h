#pragma once

#include "filter/Switches.h"
#include "host/Commands.h"
#include "host/Input.h"

namespace kest {

/// The demultiplexer's switches as the program sets them: on, unlike those of a new filter, so that a file comes out
/// whole; all off where the options say plain. What the filter would refuse by itself is admitted in any case.
class CProgramSwitches : public CSwitches {
public:
    CProgramSwitches(const StreamOptions& options, const Input& input);
};

}  // namespace kest

// The classes that the module offers.
#pragma once

#include <span>

#include "control/Identifiers.h"
#include "filter/KestDemux2Filter.h"
#include "module/Setup.h"

namespace kest {

/// The filter's entry, the first of every system's table.
constexpr CFactoryTemplate kFilterTemplate = {L"Kest Stream Demux", &kFilterClass,
                                              CKestDemux2Filter::CreateInstance, nullptr, &kFilterSetup};

/// The module's classes, a source file each in posix/ and windows/, where there is a property page too.
extern const std::span<const CFactoryTemplate> kClasses;

}  // namespace kest

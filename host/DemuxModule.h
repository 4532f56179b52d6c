#pragma once

#include <memory>
#include <string>

#include "platform/LoadedModule.h"

namespace kest {

/// Loads the module that makes the demultiplexer: the file given, else the one beside the program, else the
/// one that was registered last among those that are still there. Throws CCommandError when there is none or
/// it is not such a module.
/// @param strGiven  its file, or empty.
std::unique_ptr<CLoadedModule> LoadDemuxModule(const std::string& strGiven);

}  // namespace kest

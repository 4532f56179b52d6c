#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "registration/LoadedModule.h"
#include "registration/ModuleRegistry.h"

namespace kest {

/// The list of registered modules of this user. Throws CCommandError when the environment names no place.
CModuleRegistry OpenModuleRegistry();

/// Finds the module that makes the demultiplexer: the file given, else the one beside the program or installed with
/// it, else the one that was registered last among those that are still there. Throws CCommandError when there is none.
/// @param strGiven  its file, or empty.
std::filesystem::path FindDemuxModule(const std::string& strGiven);

/// Loads the module that makes the demultiplexer, as FindDemuxModule finds it. Throws CCommandError also when
/// it is not such a module.
/// @param strGiven  its file, or empty.
std::unique_ptr<CLoadedModule> LoadDemuxModule(const std::string& strGiven);

}  // namespace kest

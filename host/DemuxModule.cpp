#include "host/DemuxModule.h"

#include <exception>
#include <filesystem>

#include "filter/Identifiers.h"
#include "host/CommandError.h"
#include "platform/posix/ModuleRegistry.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

constexpr const char* kModuleFile = "KestDemux2Filter.so";

/// The file that the class's module is in. Throws CCommandError when there is none.
fs::path FindModule(const std::string& strGiven) {
    if (!strGiven.empty()) return strGiven;
    std::error_code ignored;
    const fs::path beside = fs::read_symlink("/proc/self/exe", ignored).replace_filename(kModuleFile);
    if (fs::exists(beside, ignored)) return beside;
    try {
        for (const fs::path& module : CModuleRegistry().Find(kFilterClass)) {
            if (fs::exists(module, ignored)) return module;
        }
    } catch (const std::exception& error) {
        throw CCommandError(kExitBadUsage, std::string("the list of modules: ") + error.what());
    }
    throw CCommandError(kExitBadUsage, std::string("no ") + kModuleFile +
                                           " beside the program and none registered; give --module");
}

}  // namespace

std::unique_ptr<CLoadedModule> LoadDemuxModule(const std::string& strGiven) {
    std::string strError;
    auto pModule = CLoadedModule::Load(FindModule(strGiven), strError);
    if (!pModule) throw CCommandError(kExitBadUsage, strError);
    return pModule;
}

}  // namespace kest

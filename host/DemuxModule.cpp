#include "host/DemuxModule.h"

#include <exception>

#include "control/Identifiers.h"
#include "host/CommandError.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

constexpr const char* kModuleFile = "KestDemux2Filter.so";

/// Where the module is when it lies beside the program; empty when that is not known.
fs::path FindBesideProgram() {
    std::error_code error;
    fs::path program = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::path() : program.replace_filename(kModuleFile);
}

/// The modules in the list, the last first. Throws CCommandError when it cannot be read.
std::vector<fs::path> FindRegistered() {
    const CModuleRegistry registry = OpenModuleRegistry();
    return OrEnd(kExitBadUsage, [&] { return registry.Find(kFilterClass); });
}

}  // namespace

CModuleRegistry OpenModuleRegistry() {
    try {
        return CModuleRegistry();
    } catch (const std::exception& error) {
        throw CCommandError(kExitBadUsage, std::string("the list of modules: ") + error.what());
    }
}

fs::path FindDemuxModule(const std::string& strGiven) {
    if (!strGiven.empty()) return strGiven;
    std::error_code ignored;
    fs::path beside = FindBesideProgram();
    if (fs::exists(beside, ignored)) return beside;
    for (const fs::path& module : FindRegistered()) {
        if (fs::exists(module, ignored)) return module;
    }
    throw CCommandError(kExitBadUsage, std::string("no ") + kModuleFile +
                                           " beside the program and none registered; give --module");
}

std::unique_ptr<CLoadedModule> LoadDemuxModule(const std::string& strGiven) {
    std::string strError;
    auto pModule = CLoadedModule::Load(FindDemuxModule(strGiven), strError);
    if (!pModule) throw CCommandError(kExitBadUsage, strError);
    return pModule;
}

}  // namespace kest

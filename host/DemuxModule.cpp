#include "host/DemuxModule.h"

#include <exception>

#include "control/Identifiers.h"
#include "host/CommandError.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

constexpr const char* kModuleFile = "KestDemux2Filter.so";

/// Where the module is when it was built or installed with the program: beside it or, of a program in a folder
/// bin/, in lib/kestdemux2/. Empty when neither is known.
fs::path FindWithProgram() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (error) return {};
    const fs::path folder = program.parent_path();
    const fs::path beside = folder / kModuleFile;
    return fs::exists(beside, error) ? beside : folder.parent_path() / "lib/kestdemux2" / kModuleFile;
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
    fs::path own = FindWithProgram();
    if (fs::exists(own, ignored)) return own;
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

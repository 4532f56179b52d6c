#include <array>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <filesystem>

#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/DemuxModule.h"
#include "platform/posix/ModuleRegistry.h"

namespace kest {
namespace {

void Require(HRESULT hr, const char* pszWhat) {
    if (SUCCEEDED(hr)) return;
    std::array<char, 120> szText{};
    std::snprintf(szText.data(), szText.size(),
                  "the list of modules: cannot %s (0x%08" PRIX32 "); -v tells more", pszWhat,
                  static_cast<std::uint32_t>(hr));
    throw CCommandError(kExitBadOutput, szText.data());
}

/// Takes a module out that is not there any more and cannot do so itself.
void ForgetModule(const std::filesystem::path& module) {
    try {
        CModuleRegistry().Remove(module);
    } catch (const std::exception& error) {
        throw CCommandError(kExitBadOutput, std::string("the list of modules: ") + error.what());
    }
}

}  // namespace

void RunRegister(const std::string& strModule) {
    Require(LoadDemuxModule(strModule)->Register(), "enter the module");
}

void RunUnregister(const std::string& strModule) {
    if (!strModule.empty() && !std::filesystem::exists(strModule)) {
        ForgetModule(std::filesystem::weakly_canonical(std::filesystem::absolute(strModule)));
        return;
    }
    Require(LoadDemuxModule(strModule)->Unregister(), "take the module out");
}

}  // namespace kest

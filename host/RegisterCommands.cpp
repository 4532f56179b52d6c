#include <array>
#include <cinttypes>
#include <cstdio>

#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/DemuxModule.h"

namespace kest {

void RunRegister(const std::string& strModule) {
    const std::string strList = OpenModuleRegistry().GetFile().string();
    const HRESULT hr = LoadDemuxModule(strModule)->Register();
    if (SUCCEEDED(hr)) return;
    std::array<char, 80> szReason{};
    std::snprintf(szReason.data(), szReason.size(),
                  ": cannot register the module (0x%08" PRIX32 "; -v shows more)",
                  static_cast<std::uint32_t>(hr));
    throw CCommandError(kExitBadOutput, strList + szReason.data());
}

// Not through the module, whose file may be gone or of another version.
void RunUnregister(const std::string& strModule) {
    CModuleRegistry registry = OpenModuleRegistry();
    const std::filesystem::path found = FindDemuxModule(strModule);
    const auto module = OrEnd(
        kExitBadUsage, [&] { return std::filesystem::weakly_canonical(std::filesystem::absolute(found)); });
    const bool bRemoved = OrEnd(kExitBadOutput, [&] { return registry.Remove(module); });
    if (!bRemoved) throw CCommandError(kExitBadInput, found.string() + ": is not in the list of modules");
}

}  // namespace kest

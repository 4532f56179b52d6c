#include <array>
#include <cinttypes>
#include <cstdio>

#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/DemuxModule.h"

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

}  // namespace

void RunRegister(const std::string& strModule) {
    Require(LoadDemuxModule(strModule)->Register(), "enter the module");
}

void RunUnregister(const std::string& strModule) {
    Require(LoadDemuxModule(strModule)->Unregister(), "take the module out");
}

}  // namespace kest

// Registration on systems that have no list of modules: in the project's own.
#include <dlfcn.h>

#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <string>

#include "platform/DebugText.h"
#include "registration/Module.h"
#include "registration/ModuleRegistry.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

/// The names of modules are plain ASCII.
std::string Narrow(LPCWSTR pszText) {
    std::string strText;
    for (; *pszText; ++pszText) strText += static_cast<char>(*pszText);
    return strText;
}

void Describe(std::ostream& text, const AMOVIESETUP_PIN& pin) {
    text << "pin " << (pin.bOutput ? "output" : "input") << (pin.bRendered ? " rendered" : "")
         << (pin.bZero ? " zero" : "") << (pin.bMany ? " many" : "") << ": " << Narrow(pin.strName) << '\n';
    for (const AMOVIESETUP_MEDIATYPE& type : std::span(pin.lpMediaType, pin.nMediaTypes)) {
        text << "type " << FormatGuid(*type.clsMajorType) << ' ' << FormatGuid(*type.clsMinorType) << '\n';
    }
}

/// The lines of a module's entry.
std::string Describe(std::span<const CFactoryTemplate> templates) {
    std::ostringstream text;
    for (const CFactoryTemplate& each : templates) {
        text << "class " << FormatGuid(*each.m_ClsID) << ' ' << Narrow(each.m_Name) << '\n';
        const AMOVIESETUP_FILTER* pSetup = each.m_pAMovieSetup_Filter;
        if (!pSetup) continue;
        text << "filter " << FormatGuid(*pSetup->clsID) << ' ' << Narrow(pSetup->strName) << '\n'
             << "merit 0x" << std::hex << pSetup->dwMerit << std::dec << '\n';
        for (const AMOVIESETUP_PIN& pin : std::span(pSetup->lpPin, pSetup->nPins)) Describe(text, pin);
    }
    return text.str();
}

HRESULT ToResult(const std::error_code& error) {
    constexpr DWORD kDiskFull = 112;  // Windows' error number
    switch (error.value()) {
        case ENOSPC:
        case EDQUOT: return HRESULT_FROM_WIN32(kDiskFull);
        case EACCES:
        case EPERM:
        case EROFS: return E_ACCESSDENIED;
        default: return E_FAIL;
    }
}

template <class Change>
HRESULT ChangeList(Change change) {
    try {
        CModuleRegistry registry;
        change(registry);
        return S_OK;
    } catch (const std::runtime_error& error) {
        DebugText("The registration has failed: %s\n", error.what());
        const auto* pSystemError = dynamic_cast<const fs::filesystem_error*>(&error);
        return pSystemError ? ToResult(pSystemError->code()) : E_FAIL;
    }
}

}  // namespace

fs::path FindOwnModule() {
    Dl_info info{};
    if (!dladdr(reinterpret_cast<const void*>(&FindOwnModule), &info) || !info.dli_fname) return {};
    return fs::canonical(info.dli_fname);
}

void TurnOffThreadNotifications() {}

HRESULT RegisterModule(const fs::path& module, std::span<const CFactoryTemplate> templates) {
    return ChangeList([&](CModuleRegistry& registry) { registry.Add(module, Describe(templates)); });
}

HRESULT UnregisterModule(const fs::path& module, std::span<const CFactoryTemplate>) {
    return ChangeList([&](CModuleRegistry& registry) { registry.Remove(module); });
}

}  // namespace kest

#include "registration/LoadedModule.h"

#include <dlfcn.h>

#include "platform/ComPtr.h"
#include "platform/api/Interfaces.h"

namespace kest {

namespace fs = std::filesystem;

std::unique_ptr<CLoadedModule> CLoadedModule::Load(const fs::path& path, std::string& strError) {
    std::unique_ptr<CLoadedModule> pModule(new CLoadedModule);
    std::error_code error, ignored;
    const fs::path file = fs::absolute(path, error);  // the system searches its own folders for a bare name
    if (!error && fs::exists(file, ignored) && !fs::is_regular_file(file, ignored)) {
        error = std::make_error_code(std::errc::invalid_argument);  // loading a pipe would never end
    }
    if (error) {
        strError = path.string() + ": " + error.message();
        return nullptr;
    }
    pModule->m_hModule = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!pModule->m_hModule) {
        strError = dlerror();  // names the file
        return nullptr;
    }
    for (const bool bFound : {pModule->FindFunction("DllGetClassObject", pModule->m_pfnGetClassObject),
                              pModule->FindFunction("DllCanUnloadNow", pModule->m_pfnCanUnloadNow),
                              pModule->FindFunction("DllRegisterServer", pModule->m_pfnRegister),
                              pModule->FindFunction("DllUnregisterServer", pModule->m_pfnUnregister)}) {
        if (bFound) continue;
        strError = path.string() + ": is not a module of the media graph";
        return nullptr;
    }
    return pModule;
}

template <class Function>
bool CLoadedModule::FindFunction(const char* pszName, Function& pFunction) {
    pFunction = reinterpret_cast<Function>(dlsym(m_hModule, pszName));
    return pFunction != nullptr;
}

CLoadedModule::~CLoadedModule() {
    if (m_hModule && (!m_pfnCanUnloadNow || m_pfnCanUnloadNow() == S_OK)) dlclose(m_hModule);
}

HRESULT CLoadedModule::CreateInstance(REFCLSID clsid, REFIID riid, void** ppv) const {
    *ppv = nullptr;
    CComPtr<IClassFactory> pFactory;
    const HRESULT hr =
        m_pfnGetClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(pFactory.Put()));
    return SUCCEEDED(hr) ? pFactory->CreateInstance(nullptr, riid, ppv) : hr;
}

}  // namespace kest

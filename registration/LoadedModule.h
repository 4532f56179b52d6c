#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "platform/api/Unknown.h"

namespace kest {

/// A module that this program has loaded, for the classes it offers. Elsewhere than on Windows, where the
/// system itself finds and loads modules.
///
/// The module stays loaded as long as this object is there, and beyond that when something of it is still
/// alive. Operations may come from any thread.
class CLoadedModule {
public:
    /// Loads a module.
    /// @param path      its file.
    /// @param strError  why it could not be loaded, in one line that names the file.
    /// @return the module, or none.
    static std::unique_ptr<CLoadedModule> Load(const std::filesystem::path& path, std::string& strError);
    ~CLoadedModule();
    CLoadedModule(const CLoadedModule&) = delete;
    CLoadedModule& operator=(const CLoadedModule&) = delete;

    /// Makes an object of one of its classes. @return S_OK with a reference in *ppv;
    ///         CLASS_E_CLASSNOTAVAILABLE; E_NOINTERFACE; E_OUTOFMEMORY, with *ppv null.
    HRESULT CreateInstance(REFCLSID clsid, REFIID riid, void** ppv) const;
    /// Has the module enter itself into the list of modules, or take itself out. @return S_OK;
    ///         E_ACCESSDENIED; E_FAIL and other errors.
    HRESULT Register() const { return m_pfnRegister(); }
    HRESULT Unregister() const { return m_pfnUnregister(); }

private:
    CLoadedModule() = default;
    template <class Function>
    bool FindFunction(const char* pszName, Function& pFunction);

    void* m_hModule = nullptr;                                           // the system's handle
    HRESULT (*m_pfnGetClassObject)(REFCLSID, REFIID, void**) = nullptr;  // DllGetClassObject
    HRESULT (*m_pfnCanUnloadNow)() = nullptr;                            // DllCanUnloadNow
    HRESULT (*m_pfnRegister)() = nullptr;                                // DllRegisterServer
    HRESULT (*m_pfnUnregister)() = nullptr;                              // DllUnregisterServer
};

}  // namespace kest

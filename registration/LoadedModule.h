#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "platform/api/Unknown.h"

namespace kest {

/// A module that this program has loaded, for the classes it offers. Not for Windows, where the system itself
/// finds and loads modules.
///
/// The destructor unloads the module if none of its objects is alive; else it stays loaded until the process
/// ends. Operations may come from any thread.
class CLoadedModule {
public:
    /// Loads a module.
    /// @param path      its file, a regular one.
    /// @param strError  on failure the file and the reason, in one line.
    /// @return the module; null: it could not be loaded.
    static std::unique_ptr<CLoadedModule> Load(const std::filesystem::path& path, std::string& strError);
    ~CLoadedModule();
    CLoadedModule(const CLoadedModule&) = delete;
    CLoadedModule& operator=(const CLoadedModule&) = delete;

    /// Makes an object of one of its classes. @return S_OK with a reference in *ppv;
    ///         CLASS_E_CLASSNOTAVAILABLE; E_NOINTERFACE; E_OUTOFMEMORY, with *ppv null.
    HRESULT CreateInstance(REFCLSID clsid, REFIID riid, void** ppv) const;
    /// The module's DllRegisterServer and DllUnregisterServer; see CModule for results.
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

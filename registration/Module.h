#pragma once

#include <filesystem>
#include <span>

#include "registration/ClassFactory.h"

namespace kest {

/// A module that hosts load: what stands behind its four exported functions. There is one of it, a static
/// object: it comes and goes with the module and tells the classes so. What is alive is counted over the
/// whole module.
///
/// Every operation may be called from any thread.
class CModule {
public:
    /// @param templates  the classes that the module offers; they outlive it.
    explicit CModule(std::span<const CFactoryTemplate> templates);
    ~CModule();
    CModule(const CModule&) = delete;
    CModule& operator=(const CModule&) = delete;

    /// For DllGetClassObject: the class object of a class.
    /// @return S_OK with a reference in *ppv; CLASS_E_CLASSNOTAVAILABLE for a class that is not the module's;
    ///         E_NOINTERFACE unless asked for IClassFactory or IUnknown; E_OUTOFMEMORY; E_POINTER.
    HRESULT GetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) const;
    /// For DllCanUnloadNow. @return S_FALSE while an object of the module is alive or the module is locked.
    HRESULT CanUnloadNow() const { return CUnknown::AnyAlive() || IsServerLocked() ? S_FALSE : S_OK; }
    /// For DllRegisterServer: tells the host where the classes are and what the filters among them are like.
    /// Registering again replaces what is there. @return S_OK; E_ACCESSDENIED; E_FAIL and the system's
    /// errors.
    HRESULT Register() const;
    /// For DllUnregisterServer: takes that back. @return S_OK, also when nothing was registered; as above.
    HRESULT Unregister() const;

private:
    std::filesystem::path m_path;                         // of the module's file
    const std::span<const CFactoryTemplate> m_templates;  // see the constructor
};

// What CModule asks of the system.

/// The file of the module that this code is in; empty when the system does not tell.
std::filesystem::path FindOwnModule();
/// Asks the system not to tell the module of threads that begin and end. A system may refuse: Windows does
/// so to a module whose runtime keeps data for each thread and needs to be told.
void TurnOffThreadNotifications();
HRESULT RegisterModule(const std::filesystem::path& module, std::span<const CFactoryTemplate> templates);
HRESULT UnregisterModule(const std::filesystem::path& module, std::span<const CFactoryTemplate> templates);

}  // namespace kest

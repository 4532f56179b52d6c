#pragma once

#include <filesystem>
#include <span>

#include "registration/ClassFactory.h"

namespace kest {

/// A module that hosts load: its four exported functions call the operations here, which throw nothing. A
/// module has one static CModule, made when it is loaded and destroyed when it is unloaded. The counts of
/// objects and locks are those of the whole module.
///
/// Every operation may be called from any thread.
class CModule {
public:
    /// Calls the initialisation function of each class.
    /// @param templates  the classes that the module offers; they outlive it.
    explicit CModule(std::span<const CFactoryTemplate> templates);
    ~CModule();
    CModule(const CModule&) = delete;
    CModule& operator=(const CModule&) = delete;

    /// For DllGetClassObject: the class object of a class.
    /// @return S_OK with a reference in *ppv; CLASS_E_CLASSNOTAVAILABLE for a class that is not the module's;
    ///         E_NOINTERFACE for another interface than IClassFactory and IUnknown; E_OUTOFMEMORY; E_POINTER.
    HRESULT GetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) const;
    /// For DllCanUnloadNow. @return S_FALSE while an object of the module is alive or the module is locked.
    HRESULT CanUnloadNow() const { return CUnknown::AnyAlive() || IsServerLocked() ? S_FALSE : S_OK; }
    /// For DllRegisterServer: enters the module's file, its classes and the descriptions of its filters into the
    /// system's registry. Registering again replaces the earlier entries.
    /// @return S_OK; E_ACCESSDENIED; HRESULT_FROM_WIN32(ERROR_DISK_FULL); E_OUTOFMEMORY; E_FAIL, also when the
    ///         system does not give the module's file; on Windows other errors of the system.
    HRESULT Register() const;
    /// For DllUnregisterServer: removes these entries. @return S_OK, also when there were none; as Register.
    HRESULT Unregister() const;

private:
    std::filesystem::path m_path;                         // of the module's file
    const std::span<const CFactoryTemplate> m_templates;  // see the constructor
};

// The system's part of CModule, a source file each in posix/ and windows/. All but the second may throw.

/// The file of the module that this code is in, without links; empty when the system does not give it.
std::filesystem::path FindOwnModule();
/// Turns off the system's calls into the module when threads begin and end. Windows keeps them on for a module
/// whose runtime has data of its own for each thread.
void TurnOffThreadNotifications();
/// See CModule::Register and CModule::Unregister.
HRESULT RegisterModule(const std::filesystem::path& module, std::span<const CFactoryTemplate> templates);
HRESULT UnregisterModule(const std::filesystem::path& module, std::span<const CFactoryTemplate> templates);

}  // namespace kest

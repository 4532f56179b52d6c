// The module KestDemux2Filter: its four exported functions.
#include "registration/Module.h"

#include "module/Classes.h"

namespace {

const kest::CModule g_module(kest::kClasses);

}  // namespace

extern "C" {

HRESULT STDMETHODCALLTYPE DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
    return g_module.GetClassObject(rclsid, riid, ppv);
}

HRESULT STDMETHODCALLTYPE DllCanUnloadNow() { return g_module.CanUnloadNow(); }

HRESULT STDMETHODCALLTYPE DllRegisterServer() { return g_module.Register(); }

HRESULT STDMETHODCALLTYPE DllUnregisterServer() { return g_module.Unregister(); }

}  // extern "C"

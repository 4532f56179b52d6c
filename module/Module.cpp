// The module KestDemux2Filter: the classes it offers, and its four exported functions.
#include "registration/Module.h"

#include "control/Identifiers.h"
#include "filter/KestDemux2Filter.h"
#include "module/Setup.h"

namespace {

using namespace kest;

constexpr CFactoryTemplate kTemplates[] = {
    {L"Kest Stream Demux", &kFilterClass, CKestDemux2Filter::CreateInstance, nullptr, &kFilterSetup},
};

const CModule g_module(kTemplates);

}  // namespace

extern "C" {

HRESULT STDMETHODCALLTYPE DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
    return g_module.GetClassObject(rclsid, riid, ppv);
}

HRESULT STDMETHODCALLTYPE DllCanUnloadNow() { return g_module.CanUnloadNow(); }

HRESULT STDMETHODCALLTYPE DllRegisterServer() { return g_module.Register(); }

HRESULT STDMETHODCALLTYPE DllUnregisterServer() { return g_module.Unregister(); }

}  // extern "C"

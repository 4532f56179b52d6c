#include "registration/Module.h"

#include <exception>

#include "graph/Guard.h"
#include "platform/DebugText.h"

namespace kest {
namespace {

void InitialiseClasses(std::span<const CFactoryTemplate> templates, bool bLoading) {
    for (const CFactoryTemplate& each : templates) {
        if (each.m_lpfnInit) each.m_lpfnInit(bLoading, each.m_ClsID);
    }
}

}  // namespace

CModule::CModule(std::span<const CFactoryTemplate> templates) : m_templates(templates) {
    try {
        m_path = FindOwnModule();  // now: the current folder, which the path may be relative to, may change
    } catch (const std::exception& error) {
        DebugText("The module cannot find its own file: %s\n", error.what());
    }
    TurnOffThreadNotifications();
    InitialiseClasses(m_templates, true);
}

CModule::~CModule() { InitialiseClasses(m_templates, false); }

HRESULT CModule::GetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) const {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    for (const CFactoryTemplate& each : m_templates) {
        if (*each.m_ClsID == rclsid) return CreateClassObject(each, riid, ppv);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CModule::Register() const {
    return Guard([this] { return m_path.empty() ? E_FAIL : RegisterModule(m_path, m_templates); });
}

HRESULT CModule::Unregister() const {
    return Guard([this] { return m_path.empty() ? E_FAIL : UnregisterModule(m_path, m_templates); });
}

}  // namespace kest

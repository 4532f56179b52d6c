#include "registration/Module.h"

#include <exception>

#include "platform/DebugText.h"

namespace kest {
namespace {

void TellClasses(std::span<const CFactoryTemplate> templates, bool bLoading) {
    for (const CFactoryTemplate& each : templates) {
        if (each.m_lpfnInit) each.m_lpfnInit(bLoading, each.m_ClsID);
    }
}

/// No exception leaves the module: a registration that runs out of something has failed.
template <class Call>
HRESULT Guard(Call call) {
    try {
        return call();
    } catch (const std::exception& error) {
        DebugText("The registration has failed: %s\n", error.what());
        return E_FAIL;
    }
}

}  // namespace

CModule::CModule(std::span<const CFactoryTemplate> templates) : m_templates(templates) {
    try {
        m_path = FindOwnModule();  // now: a path that is relative to the current folder would not stay true
    } catch (const std::exception& error) {
        DebugText("The module does not find its own file: %s\n", error.what());
    }
    TurnOffThreadNotifications();
    TellClasses(m_templates, true);
}

CModule::~CModule() { TellClasses(m_templates, false); }

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

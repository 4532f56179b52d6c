// Registration with Windows: each class as an in-process server in the registry, each filter with the filter
// mapper too.
#include <olectl.h>

#include <array>
#include <string>
#include <vector>

#include "registration/Module.h"

namespace kest {
namespace {

constexpr DWORD kDescriptionVersion = 1;  // REGFILTER2 with REGFILTERPINS

HMODULE FindOwnHandle() {
    HMODULE hModule = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&FindOwnHandle), &hModule);
    return hModule;
}

/// Initialises COM on this thread for the length of a block, unless it is initialised already.
class CComUse {
public:
    CComUse() : m_hr(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    CComUse(const CComUse&) = delete;
    CComUse& operator=(const CComUse&) = delete;
    ~CComUse() {
        if (SUCCEEDED(m_hr)) CoUninitialize();
    }

private:
    const HRESULT m_hr;
};

// ---------------- classes

std::wstring ClassKey(const CLSID& clsid) {
    std::array<WCHAR, 40> szGuid{};
    StringFromGUID2(clsid, szGuid.data(), static_cast<int>(szGuid.size()));
    return std::wstring(L"CLSID\\") + szGuid.data();
}

/// Sets a text of a key below HKEY_CLASSES_ROOT; creates the key when it is missing.
/// @param pszValue  name of the value; null: the default value.
HRESULT SetText(const std::wstring& wszKey, LPCWSTR pszValue, const std::wstring& wszText) {
    const auto nBytes = static_cast<DWORD>((wszText.size() + 1) * sizeof(WCHAR));
    const LSTATUS nError =
        RegSetKeyValueW(HKEY_CLASSES_ROOT, wszKey.c_str(), pszValue, REG_SZ, wszText.c_str(), nBytes);
    return HRESULT_FROM_WIN32(nError);  // a macro that repeats its argument
}

HRESULT AddClass(const CFactoryTemplate& each, const std::wstring& wszModule) {
    const std::wstring wszKey = ClassKey(*each.m_ClsID);
    const std::wstring wszServer = wszKey + L"\\InprocServer32";
    HRESULT hr = SetText(wszKey, nullptr, each.m_Name);
    if (SUCCEEDED(hr)) hr = SetText(wszServer, nullptr, wszModule);
    if (SUCCEEDED(hr)) hr = SetText(wszServer, L"ThreadingModel", L"Both");
    return hr;
}

HRESULT RemoveClass(const CFactoryTemplate& each) {
    const LSTATUS nStatus = RegDeleteTreeW(HKEY_CLASSES_ROOT, ClassKey(*each.m_ClsID).c_str());
    return nStatus == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(nStatus);
}

// ---------------- filters

HRESULT CreateMapper(CComPtr<IFilterMapper2>& pMapper) {
    return CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper2,
                            reinterpret_cast<void**>(pMapper.Put()));
}

std::vector<REGPINTYPES> ToSystem(std::span<const AMOVIESETUP_MEDIATYPE> types) {
    std::vector<REGPINTYPES> result;
    for (const AMOVIESETUP_MEDIATYPE& type : types) result.push_back({type.clsMajorType, type.clsMinorType});
    return result;
}

HRESULT RegisterFilter(IFilterMapper2& mapper, const AMOVIESETUP_FILTER& setup) {
    const std::span pins(setup.lpPin, setup.nPins);
    std::vector<std::vector<REGPINTYPES>> types;
    std::vector<REGFILTERPINS> systemPins;
    for (const AMOVIESETUP_PIN& pin : pins) {
        types.push_back(ToSystem({pin.lpMediaType, pin.nMediaTypes}));
        systemPins.push_back({const_cast<LPWSTR>(pin.strName), pin.bRendered, pin.bOutput, pin.bZero,
                              pin.bMany, pin.clsConnectsToFilter, pin.strConnectsToPin, pin.nMediaTypes,
                              types.back().data()});
    }
    REGFILTER2 description{};
    description.dwVersion = kDescriptionVersion;
    description.dwMerit = setup.dwMerit;
    description.cPins = setup.nPins;
    description.rgPins = systemPins.data();
    return mapper.RegisterFilter(*setup.clsID, setup.strName, nullptr, nullptr, nullptr, &description);
}

HRESULT UnregisterFilter(IFilterMapper2& mapper, const AMOVIESETUP_FILTER& setup) {
    const HRESULT hr = mapper.UnregisterFilter(nullptr, nullptr, *setup.clsID);
    return hr == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) ? S_OK : hr;
}

/// Calls the operation with the mapper and the description of each filter among the classes.
template <class Operation>
HRESULT ForEachFilter(std::span<const CFactoryTemplate> templates, Operation operation) {
    const CComUse com;
    CComPtr<IFilterMapper2> pMapper;
    HRESULT hr = CreateMapper(pMapper);
    for (const CFactoryTemplate& each : templates) {
        if (SUCCEEDED(hr) && each.m_pAMovieSetup_Filter) {
            hr = operation(*pMapper, *each.m_pAMovieSetup_Filter);
        }
    }
    return hr;
}

}  // namespace

// ---------------- the system's part of CModule

std::filesystem::path FindOwnModule() {
    const HMODULE hModule = FindOwnHandle();
    if (!hModule) return {};
    std::vector<WCHAR> szPath(MAX_PATH);
    for (;;) {
        const DWORD nLength = GetModuleFileNameW(hModule, szPath.data(), static_cast<DWORD>(szPath.size()));
        if (nLength < szPath.size()) return std::filesystem::path(szPath.data(), szPath.data() + nLength);
        szPath.resize(szPath.size() * 2);
    }
}

void TurnOffThreadNotifications() { DisableThreadLibraryCalls(FindOwnHandle()); }

HRESULT RegisterModule(const std::filesystem::path& module, std::span<const CFactoryTemplate> templates) {
    HRESULT hr = S_OK;
    for (const CFactoryTemplate& each : templates) {
        if (SUCCEEDED(hr)) hr = AddClass(each, module.wstring());
    }
    if (SUCCEEDED(hr)) hr = ForEachFilter(templates, RegisterFilter);
    return hr;
}

HRESULT UnregisterModule(const std::filesystem::path&, std::span<const CFactoryTemplate> templates) {
    HRESULT hr = ForEachFilter(templates, UnregisterFilter);
    for (const CFactoryTemplate& each : templates) {
        const HRESULT hrClass = RemoveClass(each);
        if (SUCCEEDED(hr)) hr = hrClass;
    }
    return hr;
}

}  // namespace kest

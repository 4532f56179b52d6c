#pragma once

#include <algorithm>
#include <array>
#include <string>

#include "filter/KestDemux2Filter.h"
#include "platform/windows/ModuleInstance.h"
#include "support/Windows.h"
#include "ui/DemuxPropertyPage.h"

namespace kest {

/// A property frame of the smallest kind: a window, the site, and the property page of a filter.
class CPageFrame : public IPropertyPageSite {
public:
    CPageFrame() {
        HRESULT hr = S_OK;
        const CComPtr<IUnknown> pNewPage(CDemuxPropertyPage::CreateInstance(nullptr, &hr)->GetOwner());
        const CComPtr<IUnknown> pNewFilter(CKestDemux2Filter::CreateInstance(nullptr, &hr)->GetOwner());
        pNewPage->QueryInterface(IID_PPV_ARGS(pPage.Put()));
        pNewFilter->QueryInterface(IID_IKestDemux2Control, reinterpret_cast<void**>(pFilter.Put()));
        pPage->SetPageSite(this);
    }
    ~CPageFrame() {
        if (pPage) pPage->SetPageSite(nullptr);
        pPage = nullptr;
    }

    /// Connects and activates the page.
    CPageFrame& Open() {
        const RECT rect{5, 5, 385, 255};
        IUnknown* pObject = pFilter.Get();
        pPage->SetObjects(1, &pObject);
        pPage->Activate(hwnd, &rect, FALSE);
        PumpMessages();
        return *this;
    }
    /// What the filter has.
    SEND_SETTINGS GetSettings() const {
        SEND_SETTINGS settings;
        pFilter->get_Sending(&settings.bSending);
        pFilter->get_DisableDemux(&settings.bDisableDemux);
        pFilter->get_DemuxOutput(&settings.nDemuxOutput);
        pFilter->get_SendPort(&settings.nSendPort);
        pFilter->get_SendAddress(&settings.dwSendAddr);
        pFilter->get_LocalView(&settings.bLocalView);
        pFilter->get_LocalPort(&settings.nLocalPort);
        return settings;
    }
    /// The dump file's name in the filter, with an asterisk before it while dumping is on.
    std::string GetDump() const {
        std::array<char, kDumpFileNameSize> szName{};
        std::uint8_t bOn = 0;
        pFilter->get_DumpFileName(szName.data());
        pFilter->get_EnableDump(&bOn);
        return (bOn ? "*" : "") + std::string(szName.data());
    }
    HWND GetDialog() const { return GetWindow(hwnd, GW_CHILD); }
    HWND GetControl(int nControl) const { return GetDlgItem(GetDialog(), nControl); }
    void Click(int nControl) const {
        SendMessageW(GetControl(nControl), BM_CLICK, 0, 0);
        PumpMessages();
    }
    /// Types a text: the control has the focus meanwhile, and a neighbour has it then.
    void Type(int nControl, const std::string& strText) const { TypeInto(GetControl(nControl), strText); }
    /// Types into the fields of the address, which are its children, the last one first.
    void TypeAddress(std::array<std::string, 4> fields) const {
        HWND hwndField = GetWindow(GetControl(208), GW_CHILD);
        std::array<HWND, 4> windows{};
        for (HWND& window : windows) window = hwndField, hwndField = GetWindow(hwndField, GW_HWNDNEXT);
        std::ranges::sort(windows, {}, [](HWND window) {
            RECT rect{};
            GetWindowRect(window, &rect);
            return rect.left;
        });
        for (std::size_t i = 0; i < fields.size(); ++i) TypeInto(windows[i], fields[i]);
    }
    /// The controls in the order of their numbers: texts, a cross for a checked one, brackets around a disabled one.
    std::string Describe() const {
        std::string strAll;
        for (const int nControl : {208, 209, 211, 215, 216, 217, 218, 219, 220, 221, 223}) {
            const bool bButton = nControl >= 215 && nControl <= 221;
            const std::string strState = bButton ? (IsDlgButtonChecked(GetDialog(), nControl) ? "x" : "-")
                                                 : GetText(GetControl(nControl));
            strAll += IsWindowEnabled(GetControl(nControl)) ? strState + " " : "[" + strState + "] ";
        }
        return strAll;
    }

    CComPtr<IPropertyPage> pPage;
    CComPtr<IKestDemux2Control> pFilter;
    const HWND hwnd = GetFrameWindow();
    int nDirty = 0;  // reports of a change

    // IPropertyPageSite; the frame is no counted object

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override {
        return *ppv = nullptr, E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnStatusChange(DWORD dwFlags) override {
        nDirty += dwFlags == PROPPAGESTATUS_DIRTY;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetLocaleID(LCID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetPageContainer(IUnknown**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE TranslateAccelerator(MSG*) override { return E_NOTIMPL; }

private:
    /// One window for all: without a window manager a new one takes seconds.
    static HWND GetFrameWindow() {
        static const HWND s_hwnd = CreateWindowExW(0, L"Static", L"Frame", WS_POPUP | WS_VISIBLE, 0, 0, 400,
                                                   300, nullptr, nullptr, GetModuleInstance(), nullptr);
        return s_hwnd;
    }
    void TypeInto(HWND hwndEdit, const std::string& strText) const {
        SetFocus(hwndEdit);
        SetWindowTextA(hwndEdit, strText.c_str());
        SetFocus(GetControl(224));
        PumpMessages();
    }
};

}  // namespace kest

// The property page in the system's property frame, on the filter.
#pragma once

#include <windows.h>

#include <commctrl.h>
#include <olectl.h>

#include <filesystem>
#include <functional>

#include "ModuleGraph.h"
#include "control/Identifiers.h"
#include "control/KestDemux2Control.h"
#include "support/PageFrame.h"

namespace kest {

inline CComPtr<IKestDemux2Control> CreateFilter() {
    return Query<IKestDemux2Control>(Create<IUnknown>(kFilterClass), IID_IKestDemux2Control);
}

/// Opens the system's property frame with the pages that the filter names, and has it answered.
/// @param action, nMostMs  see CModalAnswer.
inline void OpenFrame(IKestDemux2Control& filter, std::function<bool(HWND)> action, DWORD nMostMs = 5000) {
    CComPtr<ISpecifyPropertyPages> pPages;
    RequireOk(filter.QueryInterface(IID_PPV_ARGS(pPages.Put())), "the filter has no pages");
    CAUUID pages{};
    RequireOk(pPages->GetPages(&pages), "the pages of the filter");
    Require(pages.cElems == 1 && pages.pElems[0] == kPropertyPageClass, "the filter names other pages");
    const HWND hwndOwner = CreateWindowExW(0, L"Static", L"", WS_POPUP, 0, 0, 10, 10, nullptr,
                                           nullptr, nullptr, nullptr);
    const CModalAnswer answer(std::move(action), nMostMs);
    IUnknown* pObject = &filter;
    const HRESULT hr = OleCreatePropertyFrame(hwndOwner, 0, 0, L"Kest Stream Demux", 1, &pObject,
                                              pages.cElems, pages.pElems, 0, 0, nullptr);
    CoTaskMemFree(pages.pElems);
    DestroyWindow(hwndOwner);
    RequireOk(hr, "the property frame");
    Require(answer.IsDone(), "the property frame does not show the page");
}

/// Opens the property frame for some seconds, for a picture.
inline std::string ShowPage(const std::wstring& wszSeconds, const std::wstring&) {
    const auto pFilter = CreateFilter();
    const DWORD nMostMs = std::stoul(wszSeconds) * 1000;
    const ULONGLONG nEndTick = GetTickCount64() + nMostMs;
    OpenFrame(
        *pFilter,
        [&](HWND hwnd) {
            if (GetTickCount64() < nEndTick) return false;
            PostMessageW(hwnd, WM_COMMAND, IDCANCEL, 0);
            return true;
        },
        2 * nMostMs);
    return {};
}

inline SEND_SETTINGS GetSettings(IKestDemux2Control& filter) {
    SEND_SETTINGS settings;
    filter.get_Sending(&settings.bSending);
    filter.get_DisableDemux(&settings.bDisableDemux);
    filter.get_DemuxOutput(&settings.nDemuxOutput);
    filter.get_SendPort(&settings.nSendPort);
    filter.get_SendAddress(&settings.dwSendAddr);
    filter.get_LocalView(&settings.bLocalView);
    filter.get_LocalPort(&settings.nLocalPort);
    return settings;
}

/// The page has its title in the system's frame, and nothing of what is changed there reaches the filter when the frame
/// is cancelled.
inline void CheckCancel() {
    const auto pFilter = CreateFilter();
    std::string strTitle;
    OpenFrame(*pFilter, [&](HWND hwnd) {
        const HWND hwndSending = FindChild(hwnd, "Button", "Enable Sending Function");
        const HWND hwndTab = FindChild(hwnd, "SysTabControl32", "");
        if (!hwndSending || !hwndTab) return false;
        std::array<char, 100> szTitle{};
        TCITEMA item{};
        item.mask = TCIF_TEXT;
        item.pszText = szTitle.data();
        item.cchTextMax = szTitle.size();
        SendMessageA(hwndTab, TCM_GETITEMA, 0, reinterpret_cast<LPARAM>(&item));
        strTitle = szTitle.data();
        SendMessageW(hwndSending, BM_CLICK, 0, 0);
        SendMessageW(FindChild(hwnd, "Edit", "8100"), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L"1234"));
        PostMessageW(hwnd, WM_COMMAND, IDCANCEL, 0);
        return true;
    });
    Require(strTitle == "KestDemuxFilter", "the title of the page is " + strTitle);
    Require(GetSettings(*pFilter) == SEND_SETTINGS{}, "a cancelled page has changed the filter");
}

/// What the controls are set to is in the filter after Apply; the dump switch is there at once.
/// @param wszFile  the dump file.
inline void CheckApply(const std::wstring& wszFile) {
    const auto pFilter = CreateFilter();
    CPageFrame frame(Create<IPropertyPage>(kPropertyPageClass), CComPtr<IUnknown>(pFilter.Get()));
    frame.Open();
    for (const int nControl : {215, 217, 219, 220}) frame.Click(nControl);
    frame.TypeAddress({"127", "0", "0", "1"});
    frame.Type(209, "1234");
    frame.Type(211, "4321");
    frame.Type(223, std::filesystem::path(wszFile).string());
    frame.Click(221);
    std::uint8_t bDump = 0;
    pFilter->get_EnableDump(&bDump);
    Require(bDump == 1 && !std::filesystem::exists(wszFile), "the dump switch is not on at once");
    Require(GetSettings(*pFilter) == SEND_SETTINGS{}, "a page has changed the filter before Apply");
    RequireOk(frame.pPage->Apply(), "Apply");
    const SEND_SETTINGS expected{4321, 1, 1, 1, 0, 1234, 0x0100007F, 1};
    Require(GetSettings(*pFilter) == expected, "Apply has not set the filter");
    Require(std::filesystem::exists(wszFile), "Apply has not opened the dump file");

    // Demultiplexing comes on again before the status would be posted: nobody has it open then.
    SHARED_STATUS status;
    frame.Click(220);
    RequireOk(frame.pPage->Apply(), "Apply");
    Require(pFilter->get_RemoteStatus(&status) == E_FAIL, "the status is still published");
}

/// @param wszFile  the dump file, which does not exist.
inline std::string CheckPage(const std::wstring& wszFile, const std::wstring&) {
    CheckCancel();
    CheckApply(wszFile);
    return "shown in the system's frame\n";
}

}  // namespace kest

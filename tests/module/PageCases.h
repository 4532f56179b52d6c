// The property page in the system's property frame, on the filter.
#pragma once

#include <windows.h>

#include <commctrl.h>
#include <olectl.h>

#include <functional>

#include "ModuleGraph.h"
#include "control/Identifiers.h"
#include "control/KestDemux2Control.h"
#include "support/Windows.h"

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
    const HWND hwndOwner =
        CreateWindowExW(0, L"Static", L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr, nullptr, nullptr);
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

/// The page has its title in the system's frame, and nothing of what is changed there reaches the filter when the frame
/// is cancelled.
inline std::string CheckPage(const std::wstring&, const std::wstring&) {
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
    std::uint8_t bSending = 1;
    std::uint32_t nPort = 0;
    pFilter->get_Sending(&bSending);
    pFilter->get_SendPort(&nPort);
    Require(bSending == 0 && nPort == 8100, "a cancelled page has changed the filter");
    return "shown in the system's frame\n";
}

}  // namespace kest

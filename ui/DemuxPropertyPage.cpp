#include "ui/DemuxPropertyPage.h"

#include <winsock2.h>

#include <commctrl.h>
#include <commdlg.h>

#include <algorithm>
#include <new>

#include "ui/Resource.h"

namespace kest {
namespace {

constexpr std::size_t kAddressTextSize = 64;  // bytes
constexpr std::size_t kChosenPathSize = 256;  // bytes of a path from the file dialog

/// The text of a control in the ANSI code page, cut to nSize - 1 bytes.
template <std::size_t nSize>
std::array<char, nSize> GetText(HWND hwnd, int nControl) {
    std::array<char, nSize> szText{};
    GetDlgItemTextA(hwnd, nControl, szText.data(), static_cast<int>(nSize));
    return szText;
}

std::uint8_t IsChecked(HWND hwnd, int nControl) { return IsDlgButtonChecked(hwnd, nControl) == BST_CHECKED; }

void Check(HWND hwnd, int nControl, bool bOn) {
    CheckDlgButton(hwnd, nControl, bOn ? BST_CHECKED : BST_UNCHECKED);
}

void Enable(HWND hwnd, int nControl, bool bOn) { EnableWindow(GetDlgItem(hwnd, nControl), bOn); }

}  // namespace

CUnknown* CDemuxPropertyPage::CreateInstance(IUnknown* pOuter, HRESULT* phr) {
    auto* pPage = new (std::nothrow) CDemuxPropertyPage(pOuter);
    if (!pPage) *phr = E_OUTOFMEMORY;
    return pPage;
}

CDemuxPropertyPage::CDemuxPropertyPage(IUnknown* pOuter) : CBasePropertyPage(pOuter, IDD_PAGE, IDS_TITLE) {
    const INITCOMMONCONTROLSEX controls{sizeof controls, ICC_INTERNET_CLASSES};  // the address control
    InitCommonControlsEx(&controls);
}

// ---------------- the filter

HRESULT CDemuxPropertyPage::OnConnect(IUnknown* pObject) {
    const HRESULT hr =
        pObject->QueryInterface(IID_IKestDemux2Control, reinterpret_cast<void**>(m_pControl.Put()));
    if (FAILED(hr)) return hr;
    m_pControl->get_DemuxOutput(&m_settings.nDemuxOutput);
    m_pControl->get_Sending(&m_settings.bSending);
    m_pControl->get_LocalView(&m_settings.bLocalView);
    m_pControl->get_LocalPort(&m_settings.nLocalPort);
    m_pControl->get_SendPort(&m_settings.nSendPort);
    m_pControl->get_DisableDemux(&m_settings.bDisableDemux);
    m_pControl->get_SendAddress(&m_settings.dwSendAddr);
    m_pControl->get_DumpFileName(m_szDumpFile.data());
    m_pControl->get_EnableDump(&m_bDump);
    return S_OK;
}

HRESULT CDemuxPropertyPage::OnDisconnect() {
    if (!m_pControl) return E_UNEXPECTED;
    m_pControl = nullptr;
    return S_OK;
}

HRESULT CDemuxPropertyPage::OnApplyChanges() {
    m_pControl->put_Sending(m_settings.bSending);
    m_pControl->put_SendAddress(m_settings.dwSendAddr);
    m_pControl->put_LocalView(m_settings.bLocalView);
    m_pControl->put_LocalPort(m_settings.nLocalPort);
    m_pControl->put_SendPort(m_settings.nSendPort);
    m_pControl->put_DisableDemux(m_settings.bDisableDemux);
    m_pControl->put_DemuxOutput(m_settings.nDemuxOutput);
    m_pControl->ApplySendSettings();
    if (m_bDumpChanged) {
        if (m_bDump) m_pControl->put_DumpFileName(m_szDumpFile.data());
        m_pControl->put_EnableDump(m_bDump);
    }
    m_bDumpChanged = false;
    return S_OK;
}

// ---------------- the dialog

HRESULT CDemuxPropertyPage::OnActivate() {
    FillControls(GetDialog());
    m_bInactive = false;
    return S_OK;
}

HRESULT CDemuxPropertyPage::OnDeactivate() {
    m_bInactive = true;
    return S_OK;
}

void CDemuxPropertyPage::FillControls(HWND hwnd) {
    if (m_pControl) {
        // As a number: not every implementation of the control shows a text in its fields.
        std::array<char, kAddressTextSize> szAddress{};
        m_pControl->get_SendAddressText(szAddress.data());
        SendDlgItemMessageW(hwnd, IDC_SEND_ADDRESS, IPM_SETADDRESS, 0, ntohl(inet_addr(szAddress.data())));
    }
    SetDlgItemTextA(hwnd, IDC_DUMP_FILE, m_szDumpFile.data());
    SetDlgItemInt(hwnd, IDC_SEND_PORT, m_settings.nSendPort, TRUE);
    SetDlgItemInt(hwnd, IDC_LOCAL_PORT, m_settings.nLocalPort, TRUE);
    CheckRadioButton(hwnd, IDC_PES, IDC_FREE_RUN, static_cast<int>(IDC_PES + m_settings.nDemuxOutput));
    Check(hwnd, IDC_LOCAL_VIEW, m_settings.bLocalView);
    Check(hwnd, IDC_SENDING, m_settings.bSending);
    Check(hwnd, IDC_DISABLE_DEMUX, m_settings.bDisableDemux);
    Check(hwnd, IDC_DUMP, m_bDump);
    UpdateLocalViewControls(hwnd);
    UpdateSendingControls(hwnd);
}

void CDemuxPropertyPage::UpdateSendingControls(HWND hwnd) {
    Enable(hwnd, IDC_DISABLE_DEMUX, m_settings.bSending);
    if (m_settings.bSending) return;
    Check(hwnd, IDC_DISABLE_DEMUX, false);
    m_settings.bDisableDemux = 0;
}

void CDemuxPropertyPage::UpdateLocalViewControls(HWND hwnd) const {
    Enable(hwnd, IDC_LOCAL_PORT, m_settings.bLocalView);
}

INT_PTR CDemuxPropertyPage::OnReceiveMessage(HWND hwnd, UINT nMessage, WPARAM wParam, LPARAM) {
    if (m_bInactive) return FALSE;
    if (nMessage == WM_DESTROY) return TRUE;
    if (nMessage != WM_COMMAND) return FALSE;
    if (OnCommand(hwnd, LOWORD(wParam), HIWORD(wParam))) SetDirty();
    return TRUE;
}

/// @return whether there is something to apply now.
bool CDemuxPropertyPage::OnCommand(HWND hwnd, WORD nControl, WORD nNotification) {
    switch (nControl) {
        case IDC_SEND_ADDRESS:
            if (nNotification != EN_KILLFOCUS) return false;
            m_settings.dwSendAddr = inet_addr(GetText<kAddressTextSize>(hwnd, nControl).data());
            return true;
        case IDC_SEND_PORT:
            if (nNotification != EN_CHANGE) return false;
            m_settings.nSendPort = GetDlgItemInt(hwnd, nControl, nullptr, FALSE);
            return true;
        case IDC_LOCAL_PORT:
            if (nNotification != EN_CHANGE) return false;
            m_settings.nLocalPort = GetDlgItemInt(hwnd, nControl, nullptr, FALSE);
            return true;
        case IDC_LOCAL_VIEW:
            m_settings.bLocalView = IsChecked(hwnd, nControl);
            UpdateLocalViewControls(hwnd);
            return true;
        case IDC_PES:
        case IDC_AV_ES:
        case IDC_FREE_RUN:
            m_settings.nDemuxOutput = static_cast<std::uint32_t>(nControl - IDC_PES);
            return true;
        case IDC_SENDING:
            m_settings.bSending = IsChecked(hwnd, nControl);
            UpdateSendingControls(hwnd);
            return true;
        case IDC_DISABLE_DEMUX: m_settings.bDisableDemux = IsChecked(hwnd, nControl); return true;
        case IDC_DUMP: SwitchDump(IsChecked(hwnd, nControl)); return true;
        case IDC_DUMP_FILE:
            if (nNotification != EN_KILLFOCUS) return false;
            m_szDumpFile = GetText<kDumpFileNameSize>(hwnd, nControl);
            return true;
        case IDC_BROWSE: Browse(hwnd); return false;
        default: return false;
    }
}

void CDemuxPropertyPage::SwitchDump(bool bOn) {
    if (bOn != (m_bDump != 0)) m_bDumpChanged = true;
    m_bDump = bOn;
    if (m_pControl) m_pControl->put_EnableDump(m_bDump);
}

void CDemuxPropertyPage::Browse(HWND hwnd) {
    std::array<char, kChosenPathSize> szPath{"*.*"};
    OPENFILENAMEA query{};
    query.lStructSize = OPENFILENAME_SIZE_VERSION_400A;  // the fields up to the template's name
    query.hwndOwner = hwnd;
    query.lpstrFilter = "*.*\0*.*\0";  // name and pattern of the one file type
    query.lpstrFile = szPath.data();
    query.nMaxFile = kChosenPathSize;
    query.Flags = OFN_FILEMUSTEXIST;
    if (!GetSaveFileNameA(&query)) return;
    std::ranges::copy(szPath, m_szDumpFile.begin());
    SetDlgItemTextA(hwnd, IDC_DUMP_FILE, m_szDumpFile.data());
}

}  // namespace kest

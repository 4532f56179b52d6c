#include "graph/BasePropertyPage.h"

#include <algorithm>

#include "platform/windows/ModuleInstance.h"

namespace kest {
namespace {

constexpr SIZE kDefaultSize = {340, 150};  // pixels, of a dialog that cannot be measured

INT_PTR CALLBACK HandleNothing(HWND, UINT, WPARAM, LPARAM) { return FALSE; }

}  // namespace

CBasePropertyPage::~CBasePropertyPage() {
    if (!m_hwnd) return;
    SetWindowLongPtrW(m_hwnd, DWLP_USER, 0);  // its last messages find no page
    DestroyWindow(m_hwnd);
}

HRESULT CBasePropertyPage::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IPropertyPage) return GetInterface<IPropertyPage>(this, ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

// ---------------- the frame's side

HRESULT CBasePropertyPage::SetPageSite(IPropertyPageSite* pPageSite) {
    if ((pPageSite != nullptr) == (m_pPageSite.Get() != nullptr)) return E_UNEXPECTED;
    m_pPageSite = pPageSite;
    return S_OK;
}

HRESULT CBasePropertyPage::SetObjects(ULONG cObjects, IUnknown** ppUnk) {
    if (cObjects > 1) return E_UNEXPECTED;
    if (cObjects == 0) {
        m_bObjectSet = false;
        return OnDisconnect();
    }
    if (!ppUnk || !*ppUnk) return E_POINTER;
    const HRESULT hr = OnConnect(*ppUnk);
    m_bObjectSet = SUCCEEDED(hr);
    return hr;
}

HRESULT CBasePropertyPage::GetPageInfo(PROPPAGEINFO* pPageInfo) {
    if (!pPageInfo) return E_POINTER;
    *pPageInfo = {sizeof *pPageInfo, nullptr, {}, nullptr, nullptr, 0};
    LPCWSTR pszTitle = nullptr;  // in the resources, without a final zero
    const int nLength = LoadStringW(GetModuleInstance(), m_nTitle, reinterpret_cast<LPWSTR>(&pszTitle), 0);
    const std::size_t nBytes = (static_cast<std::size_t>(nLength) + 1) * sizeof(WCHAR);
    auto* pCopy = nLength > 0 ? static_cast<LPWSTR>(CoTaskMemAlloc(nBytes)) : nullptr;
    if (!pCopy) return E_OUTOFMEMORY;
    *std::copy_n(pszTitle, nLength, pCopy) = 0;
    pPageInfo->pszTitle = pCopy;
    pPageInfo->size = MeasureDialog();
    return S_OK;
}

SIZE CBasePropertyPage::MeasureDialog() const {
    const HWND hwnd =
        CreateDialogW(GetModuleInstance(), MAKEINTRESOURCEW(m_nDialog), GetDesktopWindow(), HandleNothing);
    RECT rect{};
    if (!hwnd) return kDefaultSize;
    GetWindowRect(hwnd, &rect);
    DestroyWindow(hwnd);
    return {rect.right - rect.left, rect.bottom - rect.top};
}

HRESULT CBasePropertyPage::Activate(HWND hwndParent, LPCRECT prect, BOOL) {
    if (!prect) return E_POINTER;
    if (!m_bObjectSet || m_hwnd) return E_UNEXPECTED;
    m_hwnd = CreateDialogParamW(GetModuleInstance(), MAKEINTRESOURCEW(m_nDialog), hwndParent, DialogProc,
                                reinterpret_cast<LPARAM>(this));
    if (!m_hwnd) return E_OUTOFMEMORY;
    // The frame's keyboard handling goes on into the page's controls.
    SetWindowLongPtrW(m_hwnd, GWL_EXSTYLE, GetWindowLongPtrW(m_hwnd, GWL_EXSTYLE) | WS_EX_CONTROLPARENT);
    OnActivate();
    Move(prect);
    return Show(SW_SHOWNORMAL);
}

HRESULT CBasePropertyPage::Deactivate() {
    if (!m_hwnd) return E_UNEXPECTED;
    OnDeactivate();
    DestroyWindow(std::exchange(m_hwnd, nullptr));
    return S_OK;
}

HRESULT CBasePropertyPage::Show(UINT nCmdShow) {
    if (!m_hwnd) return E_UNEXPECTED;
    if (nCmdShow != SW_SHOW && nCmdShow != SW_SHOWNORMAL && nCmdShow != SW_HIDE) return E_INVALIDARG;
    ShowWindow(m_hwnd, static_cast<int>(nCmdShow));
    return S_OK;
}

HRESULT CBasePropertyPage::Move(LPCRECT prect) {
    if (!prect) return E_POINTER;
    if (!m_hwnd) return E_UNEXPECTED;
    MoveWindow(m_hwnd, prect->left, prect->top, prect->right - prect->left, prect->bottom - prect->top, TRUE);
    return S_OK;
}

HRESULT CBasePropertyPage::Apply() {
    if (!m_bObjectSet || !m_pPageSite) return E_UNEXPECTED;
    if (!m_bDirty) return S_OK;
    const HRESULT hr = OnApplyChanges();
    if (SUCCEEDED(hr)) m_bDirty = false;
    return hr;
}

// ---------------- the page's side

void CBasePropertyPage::SetDirty() {
    m_bDirty = true;
    if (m_pPageSite) m_pPageSite->OnStatusChange(PROPPAGESTATUS_DIRTY);
}

INT_PTR CALLBACK CBasePropertyPage::DialogProc(HWND hwnd, UINT nMessage, WPARAM wParam, LPARAM lParam) {
    if (nMessage == WM_INITDIALOG) SetWindowLongPtrW(hwnd, DWLP_USER, lParam);
    auto* pPage = reinterpret_cast<CBasePropertyPage*>(GetWindowLongPtrW(hwnd, DWLP_USER));
    if (!pPage) return FALSE;  // before its initialisation or after the page's end
    const CComPtr<IUnknown> pKeep(pPage->GetOwner());
    return pPage->OnReceiveMessage(hwnd, nMessage, wParam, lParam);
}

}  // namespace kest

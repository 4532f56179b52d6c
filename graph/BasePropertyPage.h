#pragma once

#include "graph/Unknown.h"

#include <ocidl.h>

namespace kest {

/// Base of a property page: a dialog of the module's resources that a host's property frame shows for an object. It
/// holds the site, the dialog and whether there are changes to apply; a derived class connects itself with the object,
/// fills the dialog and answers its messages through the hooks. Windows only.
///
/// The frame's order is SetPageSite, SetObjects with the object, Activate, Apply, Deactivate, SetObjects with none. A
/// page may be activated several times while it is connected. Everything runs on the thread of the frame.
class CBasePropertyPage : public CImplements<CUnknown, IPropertyPage> {
public:
    /// @param pOuter   see CUnknown.
    /// @param nDialog  number of the dialog resource.
    /// @param nTitle   number of the string that is the page's title.
    CBasePropertyPage(IUnknown* pOuter, UINT nDialog, UINT nTitle)
        : CImplements(pOuter), m_nDialog(nDialog), m_nTitle(nTitle) {}
    /// Destroys a dialog that is still open; no hook is called for it.
    ~CBasePropertyPage() override;

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IPropertyPage

    /// @param pPageSite  whom changes are reported to; null: nobody from now on.
    /// @return E_UNEXPECTED: there is a site already, or none to give up.
    HRESULT STDMETHODCALLTYPE SetPageSite(IPropertyPageSite* pPageSite) override;
    /// Opens the dialog in the frame's window and shows it.
    /// @param prect  where, in pixels of the parent's client area.
    /// @return E_UNEXPECTED: no object, or open already; E_OUTOFMEMORY: the dialog cannot be made; E_POINTER.
    HRESULT STDMETHODCALLTYPE Activate(HWND hwndParent, LPCRECT prect, BOOL fModal) override;
    /// Destroys the dialog. @return E_UNEXPECTED: none is open.
    HRESULT STDMETHODCALLTYPE Deactivate() override;
    /// Gives the title, which the caller frees, and the dialog's size in pixels; no texts of help.
    /// @return E_OUTOFMEMORY, also when there is no such title; E_POINTER.
    HRESULT STDMETHODCALLTYPE GetPageInfo(PROPPAGEINFO* pPageInfo) override;
    /// Connects with the object, or disconnects when there is none.
    /// @return what the hook says; E_UNEXPECTED: more than one object; E_POINTER.
    HRESULT STDMETHODCALLTYPE SetObjects(ULONG cObjects, IUnknown** ppUnk) override;
    /// @param nCmdShow  SW_SHOW, SW_SHOWNORMAL or SW_HIDE; E_INVALIDARG for others.
    /// @return E_UNEXPECTED: no dialog is open.
    HRESULT STDMETHODCALLTYPE Show(UINT nCmdShow) override;
    /// @param prect  as in Activate. @return E_UNEXPECTED: no dialog is open; E_POINTER.
    HRESULT STDMETHODCALLTYPE Move(LPCRECT prect) override;
    /// @return S_OK: there are changes to apply; S_FALSE.
    HRESULT STDMETHODCALLTYPE IsPageDirty() override { return m_bDirty ? S_OK : S_FALSE; }
    /// Applies the changes if there are any; they are pending still when that fails.
    /// @return what the hook says; E_UNEXPECTED: no object or no site.
    HRESULT STDMETHODCALLTYPE Apply() override;
    HRESULT STDMETHODCALLTYPE Help(LPCOLESTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE TranslateAccelerator(MSG*) override { return E_NOTIMPL; }

protected:
    // Hooks

    /// The page gets its object. A failure is SetObjects' result, and the page then has none.
    virtual HRESULT OnConnect(IUnknown* pObject) = 0;
    /// The page gives its object up.
    virtual HRESULT OnDisconnect() = 0;
    /// The dialog is made and not shown yet.
    virtual HRESULT OnActivate() = 0;
    /// The dialog is about to be destroyed.
    virtual HRESULT OnDeactivate() = 0;
    /// Writes the changes to the object.
    virtual HRESULT OnApplyChanges() = 0;
    /// A message of the dialog, from its initialisation to its end; the page is alive until it returns.
    /// @return the dialog procedure's result: 0 for a message that is not handled.
    virtual INT_PTR OnReceiveMessage(HWND hwnd, UINT nMessage, WPARAM wParam, LPARAM lParam) = 0;

    /// Records a change and reports it to the site.
    void SetDirty();
    /// The open dialog; null: none.
    HWND GetDialog() const { return m_hwnd; }

private:
    static INT_PTR CALLBACK DialogProc(HWND hwnd, UINT nMessage, WPARAM wParam, LPARAM lParam);
    SIZE MeasureDialog() const;

    const UINT m_nDialog;                    // see the constructor
    const UINT m_nTitle;                     // see the constructor
    CComPtr<IPropertyPageSite> m_pPageSite;  // see SetPageSite
    HWND m_hwnd = nullptr;                   // see GetDialog
    bool m_bObjectSet = false;               // connected with an object
    bool m_bDirty = false;                   // there are changes to apply
};

}  // namespace kest

#pragma once

#include <array>

#include "control/KestDemux2Control.h"
#include "graph/BasePropertyPage.h"

namespace kest {

/// The filter's property page: sending, local view, demux function and dump file. It talks to the filter through
/// IKestDemux2Control alone, and ignores what that answers.
///
/// The page reads every setting when it is connected and keeps its own copy, edits that are not applied yet included,
/// while the dialog is closed and opened again. Apply writes the copy back. Only the dump switch reaches the filter at
/// the click; the dump file's name goes with the next Apply after such a click. The address is shown as the filter has
/// it. Demultiplexing can be off only while sending is on.
class CDemuxPropertyPage : public CBasePropertyPage {
public:
    /// For the class factory.
    /// @param phr  E_OUTOFMEMORY when there is no memory for a page. @return null then.
    static CUnknown* CreateInstance(IUnknown* pOuter, HRESULT* phr);

protected:
    /// @return the query's failure for an object without IKestDemux2Control.
    HRESULT OnConnect(IUnknown* pObject) override;
    /// @return E_UNEXPECTED: not connected.
    HRESULT OnDisconnect() override;
    HRESULT OnActivate() override;
    HRESULT OnDeactivate() override;
    HRESULT OnApplyChanges() override;
    INT_PTR OnReceiveMessage(HWND hwnd, UINT nMessage, WPARAM wParam, LPARAM lParam) override;

private:
    explicit CDemuxPropertyPage(IUnknown* pOuter);

    void FillControls(HWND hwnd);
    void UpdateSendingControls(HWND hwnd);
    void UpdateLocalViewControls(HWND hwnd) const;
    bool OnCommand(HWND hwnd, WORD nControl, WORD nNotification);
    void SwitchDump(bool bOn);
    void Browse(HWND hwnd);

    bool m_bInactive = true;                             // dialog messages are ignored
    CComPtr<IKestDemux2Control> m_pControl;              // the filter; null: not connected
    SEND_SETTINGS m_settings;                            // the page's copy of the settings
    std::array<char, kDumpFileNameSize> m_szDumpFile{};  // the dump file's name, ANSI
    std::uint8_t m_bDump = 0;                            // the dump switch, as the filter has it
    bool m_bDumpChanged = false;                         // the dump switch was changed since the last Apply
};

}  // namespace kest

// Windows of the test's own thread: finding them and answering the modal ones.
#pragma once

#include <windows.h>

#include <array>
#include <functional>
#include <string>
#include <utility>

namespace kest {

/// Handles the messages that are waiting for this thread's windows.
inline void PumpMessages() {
    for (MSG message; PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

inline std::string GetText(HWND hwnd) {
    std::array<char, 400> szText{};
    GetWindowTextA(hwnd, szText.data(), szText.size());
    return szText.data();
}

/// Finds a child of any depth. @return null: none has this class and text.
inline HWND FindChild(HWND hwndParent, const std::string& strClass, const std::string& strText) {
    for (HWND hwnd = GetWindow(hwndParent, GW_CHILD); hwnd; hwnd = GetWindow(hwnd, GW_HWNDNEXT)) {
        std::array<char, 100> szClass{};
        GetClassNameA(hwnd, szClass.data(), szClass.size());
        if (strClass == szClass.data() && strText == GetText(hwnd)) return hwnd;
        if (const HWND hwndFound = FindChild(hwnd, strClass, strText)) return hwndFound;
    }
    return nullptr;
}

/// Answers a modal dialog that the next call opens: its message loop calls an action with the dialog again and again
/// until that says that it is done. After three seconds the dialog is cancelled.
class CModalAnswer {
public:
    /// @param action  gets the newest dialog of this thread; true: it has answered.
    CModalAnswer(HWND hwndOwner, std::function<bool(HWND)> action)
        : m_hwndOwner(hwndOwner), m_action(std::move(action)) {
        s_pCurrent = this;
        m_nTimer = SetTimer(nullptr, 0, 20, OnTimer);
    }
    ~CModalAnswer() { KillTimer(nullptr, m_nTimer); }
    CModalAnswer(const CModalAnswer&) = delete;
    CModalAnswer& operator=(const CModalAnswer&) = delete;
    bool IsDone() const { return m_bDone; }

private:
    static void CALLBACK OnTimer(HWND, UINT, UINT_PTR, DWORD) { s_pCurrent->Poll(); }
    void Poll() {
        const HWND hwnd = GetLastActivePopup(m_hwndOwner);
        if (m_bDone || hwnd == m_hwndOwner || !IsWindowVisible(hwnd)) return;
        m_bDone = m_action(hwnd);
        if (!m_bDone && ++m_nTries > 150) PostMessageW(hwnd, WM_COMMAND, IDCANCEL, 0);
    }

    inline static CModalAnswer* s_pCurrent = nullptr;
    const HWND m_hwndOwner;
    const std::function<bool(HWND)> m_action;
    UINT_PTR m_nTimer = 0;
    int m_nTries = 0;
    bool m_bDone = false;
};

}  // namespace kest

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

/// Answers a modal dialog that the next call opens: the dialog's message loop calls an action with it again and again
/// until that says that it is done. After some time the dialog is cancelled.
class CModalAnswer {
public:
    /// @param action   gets the dialog; true: it has answered.
    /// @param nMostMs  when the dialog is cancelled.
    explicit CModalAnswer(std::function<bool(HWND)> action, DWORD nMostMs = 5000)
        : m_action(std::move(action)), m_nEndTick(GetTickCount64() + nMostMs) {
        s_pCurrent = this;
        m_nTimer = SetTimer(nullptr, 0, 20, OnTimer);
    }
    ~CModalAnswer() { KillTimer(nullptr, m_nTimer); }
    CModalAnswer(const CModalAnswer&) = delete;
    CModalAnswer& operator=(const CModalAnswer&) = delete;
    bool IsDone() const { return m_bDone; }

private:
    static void CALLBACK OnTimer(HWND, UINT, UINT_PTR, DWORD) {
        if (!s_pCurrent->m_bDone) EnumThreadWindows(GetCurrentThreadId(), OnWindow, 0);
    }
    /// Polls a dialog; @return whether to go on with the thread's next window.
    static BOOL CALLBACK OnWindow(HWND hwnd, LPARAM) {
        constexpr ATOM kDialogClass = 32770;
        if (GetClassWord(hwnd, GCW_ATOM) != kDialogClass || !IsWindowVisible(hwnd)) return TRUE;
        s_pCurrent->m_bDone = s_pCurrent->m_action(hwnd);
        const bool bTooLate = !s_pCurrent->m_bDone && GetTickCount64() > s_pCurrent->m_nEndTick;
        if (bTooLate) PostMessageW(hwnd, WM_COMMAND, IDCANCEL, 0);
        return FALSE;
    }

    inline static CModalAnswer* s_pCurrent = nullptr;
    const std::function<bool(HWND)> m_action;
    const ULONGLONG m_nEndTick;
    UINT_PTR m_nTimer = 0;
    bool m_bDone = false;
};

}  // namespace kest

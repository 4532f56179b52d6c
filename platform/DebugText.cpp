#include "platform/DebugText.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>

#include "platform/Types.h"

namespace kest {
namespace {

/// A sink that may be exchanged while others write to it.
class CTextOutput {
public:
    void Set(TextSink sink) {
        std::lock_guard lock(m_mutex);
        m_sink = std::move(sink);
        m_bInstalled = static_cast<bool>(m_sink);
    }
    bool IsInstalled() const { return m_bInstalled; }
    /// False when no sink is installed.
    bool Write(const char* pszText) {
        std::lock_guard lock(m_mutex);
        if (m_sink) m_sink(pszText);
        return static_cast<bool>(m_sink);
    }

private:
    std::mutex m_mutex;
    TextSink m_sink;
    std::atomic<bool> m_bInstalled{false};
};

// Never destroyed: a thread may still write while the process ends.
CTextOutput& DebugOutput() {
    static auto* pOutput = new CTextOutput;
    return *pOutput;
}
CTextOutput& TraceOutput() {
    static auto* pOutput = new CTextOutput;
    return *pOutput;
}

#ifndef _WIN32
std::atomic<bool>& DebugTextsShown() {
    static std::atomic<bool> bShown = [] {
        const char* pszValue = std::getenv("KEST_DEBUG");
        return pszValue && std::string_view(pszValue) == "1";
    }();
    return bShown;
}
#endif

constexpr std::size_t kMaxText = 1024;  // longer texts are cut

}  // namespace

void SetDebugSink(TextSink sink) { DebugOutput().Set(std::move(sink)); }
void SetTraceSink(TextSink sink) { TraceOutput().Set(std::move(sink)); }
bool HasTraceSink() { return TraceOutput().IsInstalled(); }

#ifdef _WIN32
void ShowDebugTexts(bool) {}
#else
void ShowDebugTexts(bool bShow) { DebugTextsShown() = bShow; }
#endif

void DebugText(const char* pszFormat, ...) {
#ifndef _WIN32
    if (!DebugOutput().IsInstalled() && !DebugTextsShown()) return;
#endif
    char szText[kMaxText];
    va_list args;
    va_start(args, pszFormat);
    std::vsnprintf(szText, sizeof szText, pszFormat, args);
    va_end(args);
    if (DebugOutput().Write(szText)) return;
#ifdef _WIN32
    OutputDebugStringA(szText);
#else
    std::fputs(szText, stderr);
#endif
}

void Trace(const char* pszFormat, ...) {
    if (!TraceOutput().IsInstalled()) return;
    char szText[kMaxText];
    va_list args;
    va_start(args, pszFormat);
    std::vsnprintf(szText, sizeof szText, pszFormat, args);
    va_end(args);
    TraceOutput().Write(szText);
}

}  // namespace kest

#include "platform/DebugText.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/CritSec.h"
#include "platform/api/Types.h"

namespace kest {
namespace {

using UsualSink = void (*)(const char* pszText);

/// A sink that may be exchanged while others write to it.
class CTextOutput {
public:
    /// @param pfnUsual  the sink while no other is installed; may be null.
    explicit CTextOutput(UsualSink pfnUsual) : m_pfnUsual(pfnUsual), m_bListening(pfnUsual != nullptr) {}

    void Set(TextSink sink) {
        auto pSink = sink ? std::make_shared<const TextSink>(std::move(sink)) : nullptr;
        CAutoLock lock(m_cs);
        m_pSink.swap(pSink);  // what was there ends after the lock
        m_bListening = m_pSink || m_pfnUsual;
    }
    bool IsListening() const { return m_bListening; }

    /// Formats a text and hands it to the sink; costs one load when there is none.
    void Write(const char* pszFormat, va_list args) {
        if (!m_bListening) return;
        char szText[kMaxText];
        std::vsnprintf(szText, sizeof szText, pszFormat, args);
        if (const auto pSink = InstalledSink()) {
            (*pSink)(szText);
        } else if (m_pfnUsual) {
            m_pfnUsual(szText);
        }
    }

private:
    static constexpr std::size_t kMaxText = 1024;  // longer texts are cut

    std::shared_ptr<const TextSink> InstalledSink() {
        CAutoLock lock(m_cs);
        return m_pSink;
    }

    const UsualSink m_pfnUsual;
    CCritSec m_cs;  // guards m_pSink; not held while a sink is called or ends
    std::shared_ptr<const TextSink> m_pSink;
    std::atomic<bool> m_bListening;
};

#ifdef _WIN32

UsualSink UsualDebugSink() {
    return [](const char* pszText) { OutputDebugStringA(pszText); };
}
UsualSink UsualTraceSink() { return nullptr; }

#else

/// Standard error, when a variable of the environment is 1.
UsualSink StandardErrorIf(const char* pszVariable) {
    const char* pszValue = std::getenv(pszVariable);
    if (!pszValue || std::string_view(pszValue) != "1") return nullptr;
    return [](const char* pszText) { std::fputs(pszText, stderr); };
}
UsualSink UsualDebugSink() { return StandardErrorIf("KEST_DEBUG"); }
UsualSink UsualTraceSink() { return StandardErrorIf("KEST_TRACE"); }

#endif

/// An output that is not destroyed when the process ends: a thread may still write then.
class CLastingOutput {
public:
    explicit CLastingOutput(UsualSink pfnUsual) : m_output(pfnUsual) {}
    ~CLastingOutput() {}
    union {
        CTextOutput m_output;
    };
};

CTextOutput& DebugOutput() {
    static CLastingOutput lasting(UsualDebugSink());
    return lasting.m_output;
}
CTextOutput& TraceOutput() {
    static CLastingOutput lasting(UsualTraceSink());
    return lasting.m_output;
}

}  // namespace

void SetDebugSink(TextSink sink) { DebugOutput().Set(std::move(sink)); }
void SetTraceSink(TextSink sink) { TraceOutput().Set(std::move(sink)); }
bool HasTraceSink() { return TraceOutput().IsListening(); }

void DebugText(const char* pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    DebugOutput().Write(pszFormat, args);
    va_end(args);
}

void Trace(const char* pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    TraceOutput().Write(pszFormat, args);
    va_end(args);
}

}  // namespace kest

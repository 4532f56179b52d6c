#include "platform/DebugText.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>

#include "platform/api/Types.h"

namespace kest {
namespace {

/// A sink that may be exchanged while others write to it.
class CTextOutput {
public:
    /// @param usual  the sink while no other is installed; may be empty.
    explicit CTextOutput(TextSink usual) : m_usual(std::move(usual)) { Set(nullptr); }

    void Set(TextSink sink) {
        std::lock_guard lock(m_mutex);
        m_sink = sink ? std::move(sink) : m_usual;
        m_bListening = static_cast<bool>(m_sink);
    }
    bool IsListening() const { return m_bListening; }

    /// Formats a text and hands it over; costs one load when nobody listens.
    void Write(const char* pszFormat, va_list args) {
        if (!m_bListening) return;
        char szText[kMaxText];
        std::vsnprintf(szText, sizeof szText, pszFormat, args);
        std::lock_guard lock(m_mutex);
        if (m_sink) m_sink(szText);
    }

private:
    static constexpr std::size_t kMaxText = 1024;  // longer texts are cut

    std::mutex m_mutex;  // guards the sinks
    const TextSink m_usual;
    TextSink m_sink;
    std::atomic<bool> m_bListening{false};
};

#ifdef _WIN32

TextSink UsualDebugSink() {
    return [](const char* pszText) { OutputDebugStringA(pszText); };
}
TextSink UsualTraceSink() { return nullptr; }

#else

/// Standard error, when a variable of the environment is 1.
TextSink StandardErrorIf(const char* pszVariable) {
    const char* pszValue = std::getenv(pszVariable);
    if (!pszValue || std::string_view(pszValue) != "1") return nullptr;
    return [](const char* pszText) { std::fputs(pszText, stderr); };
}
TextSink UsualDebugSink() { return StandardErrorIf("KEST_DEBUG"); }
TextSink UsualTraceSink() { return StandardErrorIf("KEST_TRACE"); }

#endif

/// An output that is not destroyed when the process ends: a thread may still write then.
class CLastingOutput {
public:
    explicit CLastingOutput(TextSink usual) : m_output(std::move(usual)) {}
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

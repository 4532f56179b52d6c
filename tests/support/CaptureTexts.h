#pragma once

#include <mutex>
#include <string>

#include "platform/DebugText.h"

namespace kest {

/// Collects the debug and trace texts for as long as it lives, one behind the other; nothing reaches the
/// debugger output meanwhile. One at a time.
class CCaptureTexts {
public:
    CCaptureTexts() {
        SetDebugSink([this](const char* pszText) { Add(m_debug, pszText); });
        SetTraceSink([this](const char* pszText) { Add(m_trace, pszText); });
    }
    ~CCaptureTexts() {
        SetDebugSink(nullptr);
        SetTraceSink(nullptr);
    }
    CCaptureTexts(const CCaptureTexts&) = delete;
    CCaptureTexts& operator=(const CCaptureTexts&) = delete;

    std::string DebugTexts() const { return Copy(m_debug); }
    std::string TraceTexts() const { return Copy(m_trace); }

private:
    void Add(std::string& texts, const char* pszText) {
        std::lock_guard lock(m_mutex);
        texts += pszText;
    }
    std::string Copy(const std::string& texts) const {
        std::lock_guard lock(m_mutex);
        return texts;
    }

    mutable std::mutex m_mutex;  // guards the texts
    std::string m_debug;
    std::string m_trace;
};

}  // namespace kest

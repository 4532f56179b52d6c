#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "platform/DebugText.h"

namespace kest {

/// Collects the debug and trace texts for as long as it lives, one behind the other; nothing reaches the debugger output
/// meanwhile. One at a time.
class CCaptureTexts {
public:
    CCaptureTexts() {
        SetDebugSink([pTexts = m_pTexts](const char* pszText) { pTexts->Add(pTexts->debug, pszText); });
        SetTraceSink([pTexts = m_pTexts](const char* pszText) { pTexts->Add(pTexts->trace, pszText); });
    }
    ~CCaptureTexts() {
        SetDebugSink(nullptr);
        SetTraceSink(nullptr);
    }
    CCaptureTexts(const CCaptureTexts&) = delete;
    CCaptureTexts& operator=(const CCaptureTexts&) = delete;

    std::string DebugTexts() const { return m_pTexts->Copy(m_pTexts->debug); }
    std::string TraceTexts() const { return m_pTexts->Copy(m_pTexts->trace); }

private:
    struct Texts {
        void Add(std::string& texts, const char* pszText) {
            std::lock_guard lock(mutex);
            texts += pszText;
        }
        std::string Copy(const std::string& texts) {
            std::lock_guard lock(mutex);
            return texts;
        }

        std::mutex mutex;  // guards the texts
        std::string debug;
        std::string trace;
    };

    const std::shared_ptr<Texts> m_pTexts = std::make_shared<Texts>();  // a call under way may outlive this
};

}  // namespace kest

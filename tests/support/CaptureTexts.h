#pragma once

#include <mutex>
#include <string>

#include "platform/DebugText.h"

namespace kest {

/// Collects the debug or trace texts that are written while it lives.
class CCaptureTexts {
public:
    enum class EKind { Debug, Trace };

    explicit CCaptureTexts(EKind kind) : m_kind(kind) {
        Install([this](const char* pszText) {
            std::lock_guard lock(m_mutex);
            m_strTexts += pszText;
        });
    }
    ~CCaptureTexts() { Install({}); }
    CCaptureTexts(const CCaptureTexts&) = delete;
    CCaptureTexts& operator=(const CCaptureTexts&) = delete;

    std::string Get() const {
        std::lock_guard lock(m_mutex);
        return m_strTexts;
    }
    bool Contains(const std::string& strText) const { return Get().find(strText) != std::string::npos; }

private:
    void Install(TextSink sink) {
        m_kind == EKind::Debug ? SetDebugSink(std::move(sink)) : SetTraceSink(std::move(sink));
    }

    const EKind m_kind;
    mutable std::mutex m_mutex;
    std::string m_strTexts;
};

}  // namespace kest

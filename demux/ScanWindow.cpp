#include "demux/ScanWindow.h"

#include <algorithm>

namespace kest {

CScanWindow::CScanWindow(IScanSource& source)
    : m_source(source), m_pBytes(std::make_unique<std::uint8_t[]>(kSize)) {}

Bytes CScanWindow::From(std::int64_t llBegin, std::int64_t n) {
    if (!Hold(llBegin, llBegin + n, std::min(llBegin, m_source.GetEnd() - kSize))) return {};
    return {m_pBytes.get() + (llBegin - m_llBegin), static_cast<std::size_t>(m_llBegin + kSize - llBegin)};
}

Bytes CScanWindow::Before(std::int64_t llEnd, std::int64_t n) {
    if (!Hold(llEnd - n, llEnd, std::max(llEnd - kSize, std::int64_t{0}))) return {};
    return {m_pBytes.get(), static_cast<std::size_t>(llEnd - m_llBegin)};
}

/// Has the bytes from llBegin to llEnd in the window; when they are not, it is read anew at llWindow.
bool CScanWindow::Hold(std::int64_t llBegin, std::int64_t llEnd, std::int64_t llWindow) {
    m_bFailed = false;
    if (m_bHeld && llBegin >= m_llBegin && llEnd <= m_llBegin + kSize) return true;
    const std::int64_t llSourceEnd = m_source.GetEnd();
    if (llBegin < 0 || llEnd > llSourceEnd || llWindow < 0 || llWindow > llSourceEnd - kSize) return false;
    m_bHeld = m_source.Read(llWindow, {m_pBytes.get(), static_cast<std::size_t>(kSize)});
    m_bFailed = !m_bHeld;
    m_llBegin = llWindow;
    return m_bHeld;
}

}  // namespace kest

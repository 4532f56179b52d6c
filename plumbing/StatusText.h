#pragma once

#include <cstddef>
#include <span>

namespace kest {

/// Appends formatted lines to a caller's buffer, always terminated and never beyond its end: what does not
/// fit is cut.
class CStatusText {
public:
    explicit CStatusText(std::span<char> buffer) : m_buffer(buffer) {
        if (!m_buffer.empty()) m_buffer[0] = '\0';
    }
    /// Appends text in printf's format.
    [[gnu::format(printf, 2, 3)]] void Add(const char* pszFormat, ...);

private:
    std::span<char> m_buffer;   // the caller's
    std::size_t m_nLength = 0;  // characters in it, without the terminator
};

}  // namespace kest

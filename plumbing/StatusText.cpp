#include "plumbing/StatusText.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace kest {

void CStatusText::Add(const char* pszFormat, ...) {
    if (m_buffer.empty()) return;
    const auto rest = m_buffer.subspan(m_nLength);
    va_list args;
    va_start(args, pszFormat);
    const int nWanted = std::vsnprintf(rest.data(), rest.size(), pszFormat, args);
    va_end(args);
    if (nWanted > 0) m_nLength += std::min(static_cast<std::size_t>(nWanted), rest.size() - 1);
}

}  // namespace kest

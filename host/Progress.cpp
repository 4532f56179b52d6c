#include "host/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace kest {
namespace {

constexpr auto kDrawInterval = std::chrono::milliseconds(100);
constexpr int kBarWidth = 30;
constexpr double kMega = 1e6;
constexpr double kMaxLeft = 99 * 3600;  // seconds; not more are shown

}  // namespace

CProgress::CProgress(std::int64_t llTotal, bool bQuiet)
    : m_llTotal(llTotal), m_bShown(!bQuiet && isatty(STDERR_FILENO)) {}

CProgress::~CProgress() {
    if (m_bDrawn) std::fputs("\r\033[K", stderr);
}

void CProgress::Show(std::int64_t llDone) {
    const auto now = Clock::now();
    if (!m_bShown || now - m_lastDrawn < kDrawInterval) return;
    m_lastDrawn = now;
    m_bDrawn = true;
    const double seconds = std::chrono::duration<double>(now - m_begin).count();
    if (m_llTotal <= 0) {
        const auto mega = static_cast<double>(llDone) / kMega;
        std::fprintf(stderr, "\r%.0f MB  %.0f MB/s\033[K", mega, seconds > 0 ? mega / seconds : 0);
        return;
    }
    const auto done = static_cast<double>(std::clamp<std::int64_t>(llDone, 0, m_llTotal));
    const auto total = static_cast<double>(m_llTotal);
    const double rate = seconds > 0 ? done / seconds : 0;
    const int nLeft = rate > 0 ? static_cast<int>(std::min((total - done) / rate, kMaxLeft)) : 0;
    std::string strBar(static_cast<std::size_t>(kBarWidth * done / total), '#');
    strBar.resize(kBarWidth, '.');
    std::fprintf(stderr, "\r[%s] %3.0f%%  %.0f/%.0f MB  %.0f MB/s  %d:%02d left\033[K", strBar.c_str(),
                 100 * done / total, done / kMega, total / kMega, rate / kMega, nLeft / 60, nLeft % 60);
}

}  // namespace kest

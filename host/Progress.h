#pragma once

#include <chrono>
#include <cstdint>

namespace kest {

/// A progress bar on standard error: bytes, percent, MB/s, time left. Shows nothing unless standard error is
/// a terminal.
class CProgress {
public:
    /// @param llTotal  bytes of the whole work; 0: not known, then neither percent nor time left are shown.
    /// @param bQuiet   nothing is shown at all.
    explicit CProgress(std::int64_t llTotal, bool bQuiet = false);
    ~CProgress();
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    /// Shows that llDone bytes are done; drawn a few times a second at most.
    void Show(std::int64_t llDone);

private:
    using Clock = std::chrono::steady_clock;

    const std::int64_t m_llTotal;
    const bool m_bShown;    // standard error is a terminal
    bool m_bDrawn = false;  // there is a bar to wipe out
    const Clock::time_point m_begin = Clock::now();
    Clock::time_point m_lastDrawn{};
};

}  // namespace kest

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "demux/BigEndian.h"

namespace kest {

/// A source that can be read at any position.
class IScanSource {
public:
    /// Reads all bytes of `room` from a file offset on. @return false: they cannot be had, or not now.
    virtual bool Read(std::int64_t llPosition, std::span<std::uint8_t> room) = 0;
    /// The byte after the last one of the source; 0 or below: not known, then nothing of it is scanned.
    virtual std::int64_t GetEnd() const = 0;

protected:
    ~IScanSource() = default;
};

/// The 32768 bytes of a source that are being scanned, forward or backward. They are read in one go, wherever
/// they lie: at the end of the source its last 32768 bytes, at its beginning the first. A source that is
/// shorter cannot be scanned.
///
/// What a request returns is valid until the next one.
class CScanWindow {
public:
    static constexpr std::int64_t kSize = 32768;

    explicit CScanWindow(IScanSource& source);

    /// The bytes from llBegin to the end of the window, at least n (1 to kSize), read when there are fewer.
    /// None when the source ends before or cannot be read.
    Bytes From(std::int64_t llBegin, std::int64_t n);
    /// The bytes of the window up to llEnd, at least n; otherwise as `From`.
    Bytes Before(std::int64_t llEnd, std::int64_t n);
    /// The last request brought nothing although the source should have the bytes.
    bool HasFailed() const { return m_bFailed; }
    /// Forgets the bytes: they are read anew.
    void Clear() { m_bHeld = false; }

private:
    bool Hold(std::int64_t llBegin, std::int64_t llEnd, std::int64_t llWindow);

    IScanSource& m_source;
    std::unique_ptr<std::uint8_t[]> m_pBytes;  // kSize bytes
    std::int64_t m_llBegin = 0;                // offset in the source of the first of them
    bool m_bHeld = false;                      // they are valid
    bool m_bFailed = false;                    // see HasFailed
};

}  // namespace kest

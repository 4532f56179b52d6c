#pragma once

#include <array>
#include <cstdint>
#include <limits>

#include "demux/BigEndian.h"
#include "platform/api/AsyncReader.h"

namespace kest {

/// Searches a pull source for 32-bit codes, over a scan buffer that is refilled from the source in whole
/// fillings of 32768 bytes: a code that lies only in the last, partial filling is not found.
class CStartCodeScanner {
public:
    static constexpr int kScanSize = 32768;
    static constexpr std::int64_t kNoEnd = std::numeric_limits<std::int64_t>::max();

    /// The source to scan; borrowed, it must outlive the scanning.
    void SetReader(IAsyncReader* pReader) { m_pReader = pReader; }
    /// Empties the scan buffer; the next filling begins at file offset llFilePos.
    void SeekTo(std::int64_t llFilePos);
    /// Goes to the first byte of the next occurrence of `nCode` (in stream order, most significant byte
    /// first). A code of all ones is found at once without moving.
    /// @param llEnd  no filling is read that begins at this file offset or behind.
    /// @return 1, or -1 when the source ends first.
    int FindStartCode(std::uint32_t nCode, std::int64_t llEnd = kNoEnd);
    /// Reads the next filling. @return its size, or -1 when the source does not give all of it.
    int Refill();
    /// File offset of the byte that the scanner stands on.
    std::int64_t GetPosition() const { return m_llFilePos - kScanSize + m_nScanIndex; }
    /// The next n bytes from where the scanner stands, read anew from there when the present filling does not
    /// hold all of them. Empty when the source does not give a whole filling there.
    Bytes GetBytes(int n);

private:
    static constexpr int kKept = 3;  // bytes of the filling before, for codes that end in the present one

    IAsyncReader* m_pReader = nullptr;  // the source, borrowed
    std::int64_t m_llFilePos = 0;       // file offset just behind the present filling
    int m_nScanIndex = kScanSize;  // next byte to examine, counted in the filling; kScanSize: there is none;
                                   // below 0: the found code begins in the filling before
    std::array<std::uint8_t, kKept + kScanSize> m_abScan{};  // the kept bytes, then the filling
};

}  // namespace kest

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/api/AsyncReader.h"

namespace kest {

/// Searches a pull source for 32-bit patterns, over a scan buffer that is refilled from the source in whole
/// fillings of 32768 bytes: a pattern that lies only in the last, partial filling is not found.
class CStartCodeScanner {
public:
    static constexpr int kScanSize = 32768;

    /// The source to scan; borrowed, it must outlive the scanning.
    void SetReader(IAsyncReader* pReader) { m_pReader = pReader; }
    /// Empties the scan buffer; the next filling begins at file offset llFilePos.
    void SeekTo(std::int64_t llFilePos);
    /// Goes to the first byte of the next occurrence of `nCode` (in stream order, most significant byte
    /// first). A code of all ones is found at once without moving.
    /// @return 1, or -1 when the source ends first.
    int FindStartCode(std::uint32_t nCode);
    /// Reads the next filling. @return its size, or -1 when the source does not give all of it.
    int Refill();
    /// File offset of the byte that the scanner stands on.
    std::int64_t GetPosition() const { return m_llFilePos - kScanSize + m_nScanIndex; }
    /// The next n bytes from where the scanner stands, read anew from there when the scan buffer does not
    /// hold all of them. Empty when the source does not give a whole filling there.
    std::span<const std::uint8_t> GetBytes(int n);

private:
    IAsyncReader* m_pReader = nullptr;
    std::int64_t m_llFilePos = 0;  // file offset just behind the scan buffer's contents
    int m_nScanIndex = kScanSize;  // next byte to examine; kScanSize: empty; below 0: the found
                                   // code began in the filling before
    std::array<std::uint8_t, kScanSize> m_abScan{};
};

}  // namespace kest

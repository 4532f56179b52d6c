#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kest {

/// Reads a header bit by bit, most significant first, and never past its end.
///
/// A read that would pass the end gives 0 and makes the reader fail for good: a parser reads a whole header
/// and asks `Failed` once, before it believes any of it.
class CBitReader {
public:
    explicit CBitReader(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}

    /// The next nBits (0 to 32) as an unsigned number.
    std::uint32_t Read(unsigned nBits) {
        if (nBits > BitsLeft()) m_bFailed = true;
        if (m_bFailed) return 0;
        std::uint32_t nValue = 0;
        for (; nBits > 0; --nBits, ++m_nPosition) {
            nValue = nValue << 1 | (m_bytes[m_nPosition / 8] >> (7 - m_nPosition % 8) & 1U);
        }
        return nValue;
    }
    bool ReadFlag() { return Read(1) != 0; }
    void Skip(unsigned nBits) {
        if (nBits > BitsLeft()) m_bFailed = true;
        if (!m_bFailed) m_nPosition += nBits;
    }
    std::size_t BitsLeft() const { return m_bytes.size() * 8 - m_nPosition; }
    /// Some read so far would have passed the end.
    bool Failed() const { return m_bFailed; }

private:
    std::span<const std::uint8_t> m_bytes;  // the header
    std::size_t m_nPosition = 0;            // bits read so far
    bool m_bFailed = false;                 // a read would have passed the end
};

}  // namespace kest

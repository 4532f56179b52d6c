#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace kest {

/// A byte buffer of fixed capacity in which one frame is assembled: bytes are added behind what it holds, read
/// in place from its start, and dropped from its front. It never wraps and never grows; bytes that do
/// not all fit are not added at all. Used by one thread.
class CFrameAccumulator {
public:
    /// @param nCapacity  bytes; the block is allocated here and never again.
    explicit CFrameAccumulator(std::uint32_t nCapacity);

    /// Empties it. @return 1.
    int Reset();
    /// Adds bytes behind the held ones. @return 1, or 0 when they do not fit (then none is added).
    int Append(std::span<const std::uint8_t> bytes);
    /// Adds n bytes that the caller writes itself.
    /// @return where to write them; a span without address when they do not fit (then nothing changes).
    std::span<std::uint8_t> Reserve(std::uint32_t n);
    /// Drops n bytes from the front; those behind them move down.
    /// @return 1, or 0 when it holds fewer or n is negative (then nothing changes).
    int Consume(std::int32_t n);

    /// Whether n bytes more fit.
    bool HasRoom(std::size_t n) const { return n <= m_nCapacity - m_nFill; }
    /// The number of bytes held.
    std::uint32_t GetFill() const { return m_nFill; }
    /// The bytes held, in place, until the next change.
    std::span<const std::uint8_t> GetBytes() const { return {m_pData.get(), m_nFill}; }

private:
    const std::uint32_t m_nCapacity;          // bytes of the block
    std::uint32_t m_nFill = 0;                // bytes held
    std::unique_ptr<std::uint8_t[]> m_pData;  // the block
};

}  // namespace kest

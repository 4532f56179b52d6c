#include "plumbing/FrameAccumulator.h"

#include <algorithm>

namespace kest {

CFrameAccumulator::CFrameAccumulator(std::uint32_t nCapacity)
    : m_nCapacity(nCapacity), m_pData(std::make_unique_for_overwrite<std::uint8_t[]>(nCapacity)) {}

int CFrameAccumulator::Reset() {
    m_nFill = 0;
    return 1;
}

int CFrameAccumulator::Append(std::span<const std::uint8_t> bytes) {
    if (!HasRoom(bytes.size())) return 0;
    std::copy(bytes.begin(), bytes.end(), m_pData.get() + m_nFill);
    m_nFill += static_cast<std::uint32_t>(bytes.size());
    return 1;
}

std::span<std::uint8_t> CFrameAccumulator::Reserve(std::uint32_t n) {
    if (!HasRoom(n)) return {};
    const std::span<std::uint8_t> room(m_pData.get() + m_nFill, n);
    m_nFill += n;
    return room;
}

int CFrameAccumulator::Consume(std::int32_t n) {
    if (n < 0 || static_cast<std::uint32_t>(n) > m_nFill) return 0;
    const auto held = GetBytes();
    std::copy(held.begin() + n, held.end(), m_pData.get());
    m_nFill -= static_cast<std::uint32_t>(n);
    return 1;
}

}  // namespace kest

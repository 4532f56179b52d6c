#include "demux/TsPacketReader.h"

#include "platform/DebugText.h"

namespace kest {

bool CTsPacketReader::SkipPacket() {
    m_nOffset += kTsPacketSize;
    return m_window[m_nOffset] == kTsSyncByte || TryThreeTimes([this] { return FindSync(); });
}

bool CTsPacketReader::FindSync() {
    constexpr std::size_t kSearchSize = 4 * kTsPacketSize;  // also what is wanted behind each place
    std::size_t i = 0;
    while (i < kSearchSize && HasMoreThan(i + kSearchSize)) {
        if (IsSync(m_nOffset + i)) {
            m_nOffset += i;
            return true;
        }
        ++i;
    }
    if (i == kSearchSize) m_nOffset += kSearchSize;
    Trace("Can not find sync byte\n");
    return false;
}

bool CTsPacketReader::IsSync(std::size_t nIndex) const {
    for (std::size_t i = 0; i < 4; ++i) {
        if (m_window[nIndex + i * kTsPacketSize] != kTsSyncByte) return false;
    }
    return true;
}

/// More than n bytes can be read from the packet's first one on.
bool CTsPacketReader::HasMoreThan(std::size_t n) {
    if (m_nOffset + n >= m_window.size()) Refill();
    return m_nOffset + n < m_window.size();
}

/// Moves the window to the packet; without a whole one, what there is of the present window stays.
void CTsPacketReader::Refill() {
    const auto nRest = static_cast<std::uint32_t>(m_window.size() - m_nOffset);
    m_input.Skip(static_cast<std::uint32_t>(m_nOffset));
    m_nOffset = 0;
    m_window = m_input.Peek(kWindowSize);
    if (m_window.empty() && nRest > 0) m_window = m_input.Peek(nRest);
}

}  // namespace kest

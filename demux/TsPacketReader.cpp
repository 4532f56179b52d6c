#include "demux/TsPacketReader.h"

#include <utility>

#include "platform/DebugText.h"

namespace kest {

bool CTsPacketReader::SkipPacket() {
    m_nOffset += kTsPacketSize;
    ++m_counters.nPacks;
    const bool bNothingBehind = m_nOffset == m_window.size();  // only of the last packet
    return bNothingBehind || m_window[m_nOffset] == kTsSyncByte || Synchronise();
}

bool CTsPacketReader::Synchronise() {
    if (!m_bDrain) return TryThreeTimes([this] { return FindSync() == ESync::Found; });
    ESync sync = FindSync();
    while (sync == ESync::NotFound) sync = FindSync();
    return sync == ESync::Found;
}

/// Goes to the first of the next 752 bytes with which a run of packets begins, or behind these bytes.
CTsPacketReader::ESync CTsPacketReader::FindSync() {
    constexpr std::size_t kSearchSize = 4 * kTsPacketSize;  // also what is wanted behind each place
    std::size_t i = 0;
    while (i < kSearchSize && (HasMoreThan(i + kSearchSize) || IsLast(i + kTsPacketSize))) {
        if (IsSync(m_nOffset + i)) {
            CountSkipped(i);
            m_bSearching = false;
            m_nOffset += i;
            return ESync::Found;
        }
        ++i;
    }
    Trace("Can not find sync byte\n");
    if (i < kSearchSize) {
        SkipRest();
        return ESync::NoData;
    }
    CountSkipped(kSearchSize);
    m_nOffset += kSearchSize;
    return ESync::NotFound;
}

void CTsPacketReader::CountSkipped(std::size_t n) {
    if (n == 0) return;
    if (!std::exchange(m_bSearching, true)) ++m_counters.nResyncs;
    m_counters.llBytesSkipped += n;
}

void CTsPacketReader::SkipRest() {
    if (!m_bDrain) return;
    CountSkipped(m_window.size() - m_nOffset);
    m_nOffset = m_window.size();
}

bool CTsPacketReader::IsSync(std::size_t nIndex) const {
    for (std::size_t i = 0; i < 4; ++i, nIndex += kTsPacketSize) {
        if (nIndex >= m_window.size()) break;  // at the end of the input
        if (m_window[nIndex] != kTsSyncByte) return false;
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
    if (m_window.empty() && m_bDrain && m_input.Pad()) m_window = m_input.Peek(kWindowSize);
    m_window = m_input.TrimPadding(m_window);
    m_bAtEnd = m_bDrain && m_window.size() < kWindowSize;
    if (m_window.empty() && nRest > 0) m_window = m_input.Peek(nRest);
}

}  // namespace kest

#include "demux/PesBuffer.h"

#include <algorithm>
#include <cstring>

namespace kest {

void CPesBuffer::Allocate(std::uint32_t nLeastPayload) {
    Free();
    m_nCapacity = std::max(kLeastCapacity, nLeastPayload + kHeadSize);
    m_pStorage = std::make_unique_for_overwrite<std::uint8_t[]>(kSlack + 2 * std::size_t{m_nCapacity});
}

void CPesBuffer::Free() {
    m_pStorage.reset();
    m_nBegin = m_nFill = 0;
    DropPes();
}

// ---------------- the PES packet

/// Moves the elementary stream to the front when there may be too little room behind it.
void CPesBuffer::BeginPes() {
    std::fill_n(m_abHead.begin(), kTimestampsEnd, std::uint8_t{0});
    if (m_nFill > 0 && m_nBegin < kSlack) return;
    std::memmove(m_pStorage.get(), m_pStorage.get() + m_nBegin, m_nFill);
    m_nBegin = 0;
}

/// Adds bytes to a packet of which the header may not be complete.
void CPesBuffer::AppendHead(Bytes bytes) {
    if (m_nPesFill == 0) BeginPes();
    std::copy_n(bytes.begin(), std::min<std::size_t>(bytes.size(), kHeadSize - m_nPesFill),
                m_abHead.begin() + m_nPesFill);
    const std::uint32_t nHeader = GetHeaderSize();
    const Bytes payload = BytesFrom(bytes, nHeader > m_nPesFill ? nHeader - m_nPesFill : 0);
    const std::uint32_t nBefore = m_nPesFill > nHeader ? m_nPesFill - nHeader : 0;
    std::copy(payload.begin(), payload.end(), m_pStorage.get() + m_nBegin + m_nFill + nBefore);
}

PesPacket CPesBuffer::GetPes(std::uint32_t nLeast) {
    PesPacket packet;
    const std::uint32_t nTimestampsEnd = nLeast > 0 ? kTimestampsEnd : std::min(kTimestampsEnd, m_nPesFill);
    if (!m_bContinued) {
        packet.timestamps =
            ParsePtsDts(m_abHead[7] >> 6, BytesFrom(Bytes(m_abHead).first(nTimestampsEnd), kPesFixedHeader));
    }
    std::uint8_t* const pPayload = m_pStorage.get() + m_nBegin + m_nFill;
    const std::uint32_t nHeader = GetHeaderSize();
    const std::uint32_t nKept = std::min(packet.timestamps ? nLeast : std::min(nLeast, 1U), m_nPesFill);
    if (nHeader + nKept <= m_nPesFill) {
        packet.payload = {pPayload, m_nPesFill - nHeader};
    } else {
        std::copy_n(m_abHead.begin() + (m_nPesFill - nKept), nKept, pPayload);
        packet.payload = {pPayload, nKept};
    }
    return packet;
}

// ---------------- the elementary stream

bool CPesBuffer::Take(Bytes part) {
    if (part.empty()) return true;
    if (part.size() > m_nCapacity - m_nFill) return false;
    const auto nPart = static_cast<std::uint32_t>(part.data() - m_pStorage.get());
    if (m_nFill == 0) m_nBegin = nPart;
    const std::uint32_t nEnd = m_nBegin + m_nFill;
    if (nPart != nEnd) std::memmove(m_pStorage.get() + nEnd, part.data(), part.size());
    m_nFill += static_cast<std::uint32_t>(part.size());
    return true;
}

void CPesBuffer::Consume(std::size_t n) {
    m_nBegin += static_cast<std::uint32_t>(n);
    m_nFill -= static_cast<std::uint32_t>(n);
}

}  // namespace kest

#include "demux/StartCodeScanner.h"

#include <algorithm>

#include "demux/StartCodeSearch.h"

namespace kest {

void CStartCodeScanner::SeekTo(std::int64_t llFilePos) {
    m_llFilePos = llFilePos;
    m_nScanIndex = kScanSize;
}

int CStartCodeScanner::FindStartCode(std::uint32_t nCode, std::int64_t llEnd) {
    if (nCode == 0xFFFFFFFF) return 1;
    for (;;) {
        const Bytes rest = Bytes(m_abScan).subspan(static_cast<std::size_t>(kKept + m_nScanIndex));
        if (const auto nFound = kest::FindStartCode(rest, nCode)) {
            m_nScanIndex += static_cast<int>(*nFound);
            return 1;
        }
        const int nUnsearched =
            kScanSize - std::max(m_nScanIndex, kScanSize - kKept);  // a code may begin there
        m_nScanIndex = kScanSize;
        if (m_llFilePos >= llEnd || Refill() < 0) return -1;
        m_nScanIndex = -nUnsearched;
    }
}

int CStartCodeScanner::Refill() {
    if (!m_pReader || m_llFilePos < 0 || m_llFilePos > kNoEnd - kScanSize) return -1;
    std::copy(m_abScan.end() - kKept, m_abScan.end(), m_abScan.begin());
    if (m_pReader->SyncRead(m_llFilePos, kScanSize, m_abScan.data() + kKept) != S_OK) return -1;
    m_llFilePos += kScanSize;
    m_nScanIndex = 0;
    return kScanSize;
}

Bytes CStartCodeScanner::GetBytes(int n) {
    if (m_nScanIndex < 0 || m_nScanIndex + n > kScanSize) {
        SeekTo(GetPosition());
        if (Refill() < 0) return {};
    }
    return Bytes(m_abScan).subspan(static_cast<std::size_t>(kKept + m_nScanIndex),
                                   static_cast<std::size_t>(n));
}

}  // namespace kest

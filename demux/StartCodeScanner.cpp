#include "demux/StartCodeScanner.h"

namespace kest {

void CStartCodeScanner::SeekTo(std::int64_t llFilePos) {
    m_llFilePos = llFilePos;
    m_nScanIndex = kScanSize;
}

int CStartCodeScanner::FindStartCode(std::uint32_t nCode) {
    constexpr int kCodeTail = 3;  // bytes of a code behind its first
    std::uint32_t nRegister = 0xFFFFFFFF;
    if (nCode == nRegister) return 1;
    if (m_nScanIndex < 0) SeekTo(GetPosition());  // the code just found began in the filling before
    for (;;) {
        for (; m_nScanIndex < kScanSize; ++m_nScanIndex) {
            nRegister = nRegister << 8 | m_abScan[static_cast<std::size_t>(m_nScanIndex)];
            if (nRegister == nCode) {
                m_nScanIndex -= kCodeTail;
                return 1;
            }
        }
        if (Refill() < 0) return -1;
    }
}

int CStartCodeScanner::Refill() {
    if (!m_pReader || m_pReader->SyncRead(m_llFilePos, kScanSize, m_abScan.data()) != S_OK) return -1;
    m_llFilePos += kScanSize;
    m_nScanIndex = 0;
    return kScanSize;
}

std::span<const std::uint8_t> CStartCodeScanner::GetBytes(int n) {
    if (m_nScanIndex < 0 || m_nScanIndex + n > kScanSize) {
        SeekTo(GetPosition());
        if (Refill() < 0) return {};
    }
    return std::span<const std::uint8_t>(m_abScan).subspan(static_cast<std::size_t>(m_nScanIndex),
                                                           static_cast<std::size_t>(n));
}

}  // namespace kest

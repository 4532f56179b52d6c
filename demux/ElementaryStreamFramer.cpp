#include "demux/ElementaryStreamFramer.h"

#include <algorithm>
#include <utility>

#include "demux/FrameInfo.h"
#include "demux/StartCodeSearch.h"
#include "demux/VideoStartCodes.h"

namespace kest {
namespace {

constexpr std::uint32_t kVopStartCode = 0x00000100 | kVop;
constexpr std::uint32_t kSequenceEndCode = 0x000001B7;
constexpr std::uint32_t kPrefix = 0x000001;  // of a start code
constexpr std::int32_t kCodeSize = 4;        // bytes of a start code

}  // namespace

void CElementaryStreamFramer::Reset() {
    m_dwStartCode = kNoCode;
    m_bInVop = m_bHeaderSeen = false;
    m_pFrameAcc->Reset();
}

bool CElementaryStreamFramer::Push(Bytes data, CBlockMemFileEx& queue) {
    m_llBytes += data.size();
    std::size_t nBegin = 0;  // first byte that is not in the accumulator
    for (std::size_t i = 0; (i = FindCodeEnd(data, i)) < data.size();) {
        ++i;
        if (!IsUnitEnd()) continue;
        m_pFrameAcc->Append(data.subspan(nBegin, i - nBegin));
        nBegin = i;
        if (!Deliver(queue)) return false;
        if (m_dwStartCode == kSequenceEndCode) m_pFrameAcc->Consume(kCodeSize);
    }
    m_pFrameAcc->Append(data.subspan(nBegin));
    return true;
}

/// Index of the last byte of the next start code, at nFrom or behind; the size when there is none. The code
/// register has that byte then, or the last of all.
std::size_t CElementaryStreamFramer::FindCodeEnd(Bytes data, std::size_t nFrom) {
    constexpr std::uint32_t kLow24 = 0xFFFFFF;
    for (std::size_t i = nFrom; i < data.size(); ++i) {
        const bool bMayBegin = (m_dwStartCode & 0xFF) == 0 || (m_dwStartCode & kLow24) == kPrefix;
        if (!bMayBegin) {  // no start code has begun yet: go to the last byte of the next one
            const auto nPrefix = FindStartCodePrefix(data.subspan(i));
            const std::size_t nCode = std::min(nPrefix ? i + *nPrefix + 3 : data.size(), data.size() - 1);
            for (i = std::max(i, nCode - std::min(nCode, std::size_t{kCodeSize - 1})); i < nCode; ++i) {
                m_dwStartCode = m_dwStartCode << 8 | data[i];
            }
        }
        m_dwStartCode = m_dwStartCode << 8 | data[i];
        if (m_dwStartCode >> 8 == kPrefix) return i;
    }
    return data.size();
}

/// Follows the start code in the register. @return whether a unit ends in front of it.
bool CElementaryStreamFramer::IsUnitEnd() {
    if (m_dwStartCode == kVopStartCode) {
        m_bInVop = true;
        return !std::exchange(m_bHeaderSeen, false);
    }
    m_bHeaderSeen = true;
    return std::exchange(m_bInVop, false);
}

/// Puts the unit in front of the start code, with which the accumulator ends, into the queue, if it has any
/// bytes. @return whether the queue took it.
bool CElementaryStreamFramer::Deliver(CBlockMemFileEx& queue) {
    if (m_pFrameAcc->GetFill() <= kCodeSize) return true;
    const Bytes unit = m_pFrameAcc->GetBytes().first(m_pFrameAcc->GetFill() - kCodeSize);
    const FRAME_INFO info{};
    const std::size_t nExpected = std::min<std::size_t>(unit.size(), queue.GetBlockSize());
    if (queue.WriteEx(unit, &info, kInfinite) < static_cast<int>(nExpected)) return false;
    ++m_counters.nQueued;
    if (unit.size() > nExpected) ++m_counters.nCut;
    m_counters.llBytesCut += unit.size() - nExpected;
    m_pFrameAcc->Consume(static_cast<std::int32_t>(unit.size()));
    return true;
}

}  // namespace kest

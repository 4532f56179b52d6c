#include "demux/ElementaryStreamFramer.h"

#include <algorithm>
#include <utility>

#include "demux/FrameInfo.h"
#include "demux/ParseSettings.h"
#include "demux/StartCodeSearch.h"
#include "demux/VideoStartCodes.h"

namespace kest {
namespace {

constexpr std::uint32_t kSequenceEndCode = 0x000001B7;
constexpr std::uint32_t kPrefix = 0x000001;  // of a start code
constexpr std::uint32_t kCodeSize = 4;       // bytes of a start code

}  // namespace

void CElementaryStreamFramer::Reset() {
    if (m_pFrameAcc->GetFill() > 0) ++m_counters.nLost;
    m_counters.llBytesLost += m_pFrameAcc->GetFill();
    m_dwStartCode = kNoCode;
    m_bInVop = m_bHeaderSeen = m_bContinues = false;
    m_pFrameAcc->Reset();
}

bool CElementaryStreamFramer::Push(Bytes data, CBlockMemFileEx& queue) {
    m_llBytes += data.size();
    std::size_t nBegin = 0;  // first byte that is not in the accumulator
    for (std::size_t i = 0; (i = FindCodeEnd(data, i)) < data.size();) {
        ++i;
        if (!IsUnitEnd()) continue;
        if (!Append(data.subspan(nBegin, i - nBegin), queue)) return false;
        nBegin = i;
        const bool bSequenceEnd = m_dwStartCode == kSequenceEndCode;
        if (!Deliver(m_bDrain && bSequenceEnd ? 0 : kCodeSize, queue)) {
            m_counters.llBytesLost += data.size() - nBegin;
            return false;
        }
        if (!m_bDrain && bSequenceEnd && m_pFrameAcc->Consume(kCodeSize)) m_counters.llBytesLost += kCodeSize;
    }
    return Append(data.subspan(nBegin), queue);
}

bool CElementaryStreamFramer::Flush(CBlockMemFileEx& queue) {
    const bool bTaken = Deliver(0, queue);
    Reset();
    return bTaken;
}

/// Adds bytes to the unit. What does not fit is left out, or when draining follows what has been queued before it.
/// @return false when the queue does not take that.
bool CElementaryStreamFramer::Append(Bytes part, CBlockMemFileEx& queue) {
    constexpr std::size_t kMaxPart = 65536;  // fits into an empty accumulator
    if (!m_bDrain) {
        if (!m_pFrameAcc->Append(part)) m_counters.llBytesLost += part.size();
        return true;
    }
    while (!part.empty()) {
        const Bytes next = part.first(std::min(part.size(), kMaxPart));
        if (!m_pFrameAcc->HasRoom(next.size())) {
            if (!Deliver(0, queue)) return false;
            m_bContinues = true;
        }
        m_pFrameAcc->Append(next);
        part = part.subspan(next.size());
    }
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
    if (m_dwStartCode == MakeStartCode(kVop)) {
        m_bInVop = true;
        return !std::exchange(m_bHeaderSeen, false);
    }
    m_bHeaderSeen = true;
    return std::exchange(m_bInVop, false);
}

/// Puts the unit into the queue, if it has any bytes. @param nBehind  bytes behind it in the accumulator.
/// @return whether the queue took it.
bool CElementaryStreamFramer::Deliver(std::uint32_t nBehind, CBlockMemFileEx& queue) {
    if (m_pFrameAcc->GetFill() <= nBehind) return true;
    const Bytes unit = m_pFrameAcc->GetBytes().first(m_pFrameAcc->GetFill() - nBehind);
    if (!Write(unit, queue)) return false;
    m_pFrameAcc->Consume(static_cast<std::int32_t>(unit.size()));
    m_bContinues = false;
    return true;
}

/// Writes a unit: cut to its block, or when draining the rest as blocks without times.
bool CElementaryStreamFramer::Write(Bytes unit, CBlockMemFileEx& queue) {
    for (;;) {
        FRAME_INFO info{};
        if (m_bContinues) info.llPts = info.llDts = kNoFrameTime;
        const std::size_t nFits = std::min<std::size_t>(unit.size(), queue.GetBlockSize());
        const Bytes part = m_bDrain ? unit.first(nFits) : unit;
        if (queue.WriteEx(part, &info, kInfinite) < static_cast<int>(nFits)) return false;
        ++m_counters.nQueued;
        if (part.size() > nFits) ++m_counters.nCut;
        m_counters.llBytesCut += part.size() - nFits;
        unit = unit.subspan(part.size());
        if (unit.empty()) return true;
        m_bContinues = true;
    }
}

}  // namespace kest

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "demux/BigEndian.h"
#include "demux/ParseCounters.h"
#include "plumbing/BlockMemFile.h"
#include "plumbing/FrameAccumulator.h"

namespace kest {

/// Cuts an MPEG-4 video elementary stream (ISO/IEC 14496-2) into units at its start codes: a VOP (video object
/// plane) with the headers in front of it, up to the next start code. Its state goes on from one part of the
/// stream to the next.
///
/// A unit ends at the start code behind its VOP, so that the last one of a stream stays behind. A sequence
/// end code behind a VOP is left out. Bytes that would make a unit longer than it may be are left out, as many
/// as come at a time, and a unit that is longer than a block of the queue is cut to the block.
///
/// When draining, every byte is queued: a sequence end code belongs to the VOP before it, and what is too long is
/// followed by units without times that go on with it.
class CElementaryStreamFramer {
public:
    static constexpr std::uint32_t kMaxUnit = 524288;

    /// @param nMaxUnit  bytes of the longest unit.
    explicit CElementaryStreamFramer(std::uint32_t nMaxUnit = kMaxUnit)
        : m_nMaxUnit(nMaxUnit), m_pFrameAcc(std::make_unique<CFrameAccumulator>(nMaxUnit)) {}

    std::uint32_t GetMaxUnit() const { return m_nMaxUnit; }
    /// Loses what is being assembled, and forgets what came so far.
    void Reset();
    /// Nothing is dropped. Before the first part of a stream.
    void SetDrain(bool bDrain) { m_bDrain = bDrain; }
    /// Takes the next part of the stream and puts every unit that ends in it into the queue, waiting without
    /// limit for a free block. Its FRAME_INFO is zero. When the queue gives a unit back, being closed or
    /// emptied meanwhile, the unit is kept, and the bytes behind its end are dropped.
    /// @return false in that case.
    bool Push(Bytes data, CBlockMemFileEx& queue);
    /// The stream has ended: queues what there is, as `Push` does, and begins anew.
    bool Flush(CBlockMemFileEx& queue);
    /// What has become of the units, and the bytes that have come, since it was made. Any thread.
    const FrameCounters& GetCounters() const { return m_counters; }
    std::uint64_t CountBytes() const { return m_llBytes; }

private:
    static constexpr std::uint32_t kNoCode = 0xFFFFFFFF;

    std::size_t FindCodeEnd(Bytes data, std::size_t nFrom);
    bool IsUnitEnd();
    bool Append(Bytes part, CBlockMemFileEx& queue);
    bool Deliver(std::uint32_t nBehind, CBlockMemFileEx& queue);
    bool Write(Bytes unit, CBlockMemFileEx& queue);

    const std::uint32_t m_nMaxUnit;                        // see the constructor
    std::uint32_t m_dwStartCode = kNoCode;                 // the last four bytes, most recent lowest
    const std::unique_ptr<CFrameAccumulator> m_pFrameAcc;  // the unit that is being assembled
    bool m_bDrain = false;                                 // see SetDrain
    bool m_bContinues = false;   // what comes next goes on with a unit that has been queued
    bool m_bInVop = false;       // inside a VOP
    bool m_bHeaderSeen = false;  // a start code other than that of a VOP came since the last cut
    FrameCounters m_counters;    // see GetCounters
    CCount m_llBytes;            // see CountBytes
};

}  // namespace kest

#pragma once

#include "graph/BaseReferenceClock.h"

namespace kest {

/// The reference clock that the filter offers to the graph: the system's millisecond timer, running 3.003 s
/// ahead. Aggregated with the filter.
class CKestDemuxClock final : public CBaseReferenceClock {
public:
    static constexpr REFERENCE_TIME kAhead = 30030000;  // 100 ns

    explicit CKestDemuxClock(IUnknown* pOuter) : CBaseReferenceClock(pOuter) {}
    ~CKestDemuxClock() override { EndAdvises(); }

    REFERENCE_TIME GetPrivateTime() override { return CBaseReferenceClock::GetPrivateTime() + kAhead; }
};

}  // namespace kest

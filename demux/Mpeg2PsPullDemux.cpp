#include "demux/Mpeg2PsPullDemux.h"

#include <limits>

namespace kest {

bool KestMpeg2PsPullDemux::SetRate(double dRate) {
    constexpr double kLeast = std::numeric_limits<int>::min(), kMost = std::numeric_limits<int>::max();
    const double dTenfold = dRate * 10.0;
    if (!(dTenfold > kLeast - 1 && dTenfold < kMost + 1)) return false;  // not a number is neither
    RequestRate(static_cast<int>(dTenfold));
    return true;
}

}  // namespace kest

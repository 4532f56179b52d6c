#pragma once

#include <cstdint>
#include <optional>

#include "demux/BigEndian.h"
#include "demux/Mpeg4Headers.h"
#include "platform/api/Interfaces.h"

namespace kest {

/// Knows the time of each picture of an MPEG-4 video elementary stream from its own headers.
class CElementaryStreamClock {
public:
    /// Simple: every modulo_time_base moves the clock on, and a second has 1001 ms, so that the B-VOPs around the
    /// turn of a second may be a second late. Standard: as ISO/IEC 14496-2 has it, the seconds of a B-VOP counting
    /// from the reference VOP that is shown before it.
    enum class ERules { Simple, Standard };

    explicit CElementaryStreamClock(ERules rules = ERules::Simple) : m_rules(rules) { Reset(); }

    /// Reads the headers in front of the frame's first VOP and that VOP's time.
    /// @return whether the frame has a VOP whose time could be read; only behind a video object layer.
    bool ParseFrame(Bytes frame);
    /// Time of the last VOP, 100 ns.
    REFERENCE_TIME GetTime() const { return static_cast<REFERENCE_TIME>(m_state.nTime); }

private:
    /// A VOP that others refer to.
    struct Reference {
        std::int64_t nSeconds = 0;
        std::int64_t llTicks = 0;  // of the layer's time base, with the seconds
    };

    void Reset();
    bool ParseVop(Bytes vop);
    std::int64_t PlaceReference(const VopFields& vop);
    std::int64_t PlaceBetween(const VopFields& vop) const;

    const ERules m_rules;
    MPEG4_HEADER_STATE m_state;
    bool m_bHeaderSeen = false;            // a layer header came; for the whole run, until the sequence ends
    std::optional<Reference> m_reference;  // the last one; only by the standard's rules, like the next
    Reference m_earlier;                   // the one before it; itself if there is none
};

}  // namespace kest

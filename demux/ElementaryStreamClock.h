#pragma once

#include "demux/BigEndian.h"
#include "demux/Mpeg4Headers.h"
#include "platform/api/Interfaces.h"

namespace kest {

/// Knows the time of each picture of an MPEG-4 video elementary stream from its own headers.
class CElementaryStreamClock {
public:
    CElementaryStreamClock() { Reset(); }

    /// Reads the headers in front of the frame's first VOP and that VOP's time.
    /// @return whether the frame has a VOP whose time could be read; only behind a video object layer.
    bool ParseFrame(Bytes frame);
    /// Time of the last VOP, 100 ns.
    REFERENCE_TIME GetTime() const { return static_cast<REFERENCE_TIME>(m_state.nTime); }

private:
    void Reset();

    MPEG4_HEADER_STATE m_state;
    bool m_bHeaderSeen = false;  // a layer header came; for the whole run, until the sequence ends
};

}  // namespace kest

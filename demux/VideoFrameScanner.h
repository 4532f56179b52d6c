#pragma once

#include <cstdint>

#include "demux/ScanWindow.h"
#include "plumbing/FrameAccumulator.h"

namespace kest {

/// Finds whole video frames in a program stream, forward or backward from any position, by the start codes of
/// its video packets (stream id 0xE0) alone; what lies between these packets is passed over byte by byte.
///
/// A frame is the payload from one packet with a PTS up to the next such packet. A start code or header is
/// found wherever it lies against the blocks that are read, forward up to the end of the source, backward
/// down to its beginning. Used by one thread.
class CVideoFrameScanner {
public:
    enum class EFrame {
        Found,
        None,    // there is none in this direction, or it is not whole
        Failed,  // the source cannot be read, for now
    };

    /// @param nMaxFrame  bytes of a frame that are taken in; packets that do not fit are left out.
    CVideoFrameScanner(IScanSource& source, std::uint32_t nMaxFrame)
        : m_window(source), m_source(source), m_frame(nMaxFrame) {}

    /// Goes on at a file offset inside the source, which is read anew.
    void SeekTo(std::int64_t llPosition);
    /// File offset of the byte that the scanner stands on.
    std::int64_t GetPosition() const { return m_llPosition; }

    /// Takes the first frame that begins here or behind, and stands on the packet that ends it. A packet
    /// without a PTS in front of it is passed over by its fixed header alone: a start code in its payload
    /// counts.
    /// @return None at the end of the source, where the scanner then stands. Failed: it stands where it did.
    EFrame ReadFrameForward();
    /// Takes the nearest frame whose first start code lies wholly before this position, and stands on that
    /// packet, also when the frame has no end (None) or its bytes cannot be read (Failed).
    /// @return None without such a packet: then the scanner stands on the first byte of the source. Failed when
    ///         the search cannot read: it stands where it did.
    EFrame ReadFrameBackward();

    /// The frame found last, until the next one is looked for, and the file offset of its first packet.
    Bytes GetFrame() const { return m_frame.GetBytes(); }
    std::int64_t GetFramePos() const { return m_llFramePos; }

private:
    EFrame AssembleFrame();
    bool AppendPayload(Bytes header);
    Bytes FindPacket();
    EFrame FindPacketBackward();
    /// Why the window has brought nothing.
    EFrame GetFailure() const { return m_window.HasFailed() ? EFrame::Failed : EFrame::None; }

    CScanWindow m_window;
    const IScanSource& m_source;
    CFrameAccumulator m_frame;
    std::int64_t m_llPosition = 0;  // see GetPosition
    std::int64_t m_llFramePos = 0;  // see GetFramePos
};

}  // namespace kest

#pragma once

#include "demux/ElementaryStreamClock.h"
#include "pins/Timeline.h"

namespace kest {

/// The rules of time with the switch RobustTiming, the same for both pins and every working mode. Both
/// streams lie on one line of time (SharedLine), so that samples of audio and video are as far apart as their
/// timestamps say, through wraps, jumps, pauses and seeks. Decoding timestamps find the place, since they do
/// not go back where pictures are reordered; a video frame starts as much later as its presentation timestamp
/// is.
///
/// For each frame, the first of these that holds:
///
/// 1. The stream had been taken for one that jumped, but the other has gone on for 8 s without that jump, or
///    the frame follows that before the jump: a timestamp was wrong. It comes back to the other stream.
/// 2. The timestamp goes on: it is at most a second from the last of its stream or from where a step like the
///    last one leads. Or the other stream has gone on for more than a second meanwhile, and this one comes to
///    where the other is: a pause of one stream stays as long as it is.
/// 3. It has jumped to where the other stream is already: it takes the place that the other gives it.
/// 4. It begins, or jumps first: it waits up to about 310 ms until the other stream makes 2 true or comes to
///    the same jump. Then the line goes on where the later of the two ends, without a hole or an overlap.
///
/// A jump and a pause of both streams cannot be distinguished: 4 closes both. A jump in a recording is common,
/// and hours of nothing are worse than a pause that is cut.
///
/// The first frame of a segment, the earlier one of both streams, has time 0; in an MPEG-1 system stream and
/// in a program stream that is pushed it has the stream time at which it comes, and a jump leads at least to
/// the present one. Behind a seek by time, the seek's target has time 0, whichever stream comes first. A stream
/// that begins later may have earlier times. A reset does not begin the times anew,
/// and no rule seeks, flushes or asks for resets.
class CRobustTimeline final : public CTimeline {
public:
    /// @param pin    whose timeline it is.
    /// @param mode   decides whether there is a second stream, and where the times come from.
    /// @param bPush  the input is live.
    CRobustTimeline(EPin pin, const WorkingMode& mode, bool bPush);

    Placement Map(const TimedFrame& frame, AvTimes& times) override;

private:
    ERequest FindPlace(const TimedFrame& frame, AvTimes& times) const;
    bool ComeBack(std::int64_t llTimestamp, SharedLine& line) const;
    bool GoOn(std::int64_t llTimestamp, SharedLine& line) const;
    bool Join(std::int64_t llTimestamp, SharedLine& line) const;
    std::int64_t FindBeginning(std::int64_t llEarliest, SharedLine& line) const;
    void BeginEpoch(SharedLine::Place place, SharedLine& line) const;
    void MoveTo(std::uint32_t nEpoch, SharedLine::Place place, SharedLine& line) const;
    SharedLine::Stream& Own(SharedLine& line) const { return line.Of(m_pin); }
    SharedLine::Stream& Peer(SharedLine& line) const { return line.Of(PeerOf(m_pin)); }

    const EPin m_pin;
    const std::int64_t m_llFrame;  // ticks of a frame, as long as the timestamps do not say it
    const bool m_bAlone;           // the mode has no other stream
    const bool m_bLive;            // no epoch begins before the present stream time
    const bool m_bAnnounces;       // segments are announced
    const bool m_bHasOwnClock;     // the times are those in the headers of an elementary stream
    CElementaryStreamClock m_clock{CElementaryStreamClock::ERules::Standard};  // reads them
};

}  // namespace kest

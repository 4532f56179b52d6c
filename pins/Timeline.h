#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "pins/AvTiming.h"
#include "pins/WorkingMode.h"

namespace kest {

/// A frame as the rules of time see it, and what its loop has done for it so far.
struct TimedFrame {
    std::int64_t llTimestamp = 0;             // PTS of video, DTS of audio; 90 kHz
    std::int64_t llDecoding = 0;              // DTS, of both; only for CRobustTimeline
    std::uint32_t nSegment = 0;               // see CFrameQueue::Taken; the same
    bool bDiscontinuity = false;              // its record says so
    std::span<const std::uint8_t> bytes{};    // its bytes, for the times in an elementary stream
    bool bFlushed = false;                    // the flush that was requested for it has been made
    int nBaseWaits = 0;                       // waits for the other pin
    std::optional<REFERENCE_TIME> rtClock{};  // stream time by the graph's clock, 100 ns; 0 without a clock
};

/// What must come before a frame has its place.
enum class ERequest {
    None,           // nothing: the frame is placed
    Drop,           // the frame is not delivered
    FlushOwn,       // flush downstream, then map again
    FlushBoth,      // flush downstream of both pins, then map again
    AwaitTimeBase,  // wait a while for the other pin's timing, then map again
    ReadClock,      // read the graph's clock, then map again
};

/// Where a frame belongs: the properties of its sample, and what its loop must do. Times in 100 ns.
struct Placement {
    ERequest request = ERequest::None;  // all but traces is meaningless unless None
    REFERENCE_TIME rtStart = 0;         // of the sample
    bool bSyncPoint = true;             // flags of the sample
    bool bDiscontinuity = false;
    bool bPreroll = false;
    bool bRestart = false;       // begins a timing: the sample says that the media type has not changed
    bool bAnnounce = false;      // announce a segment before it
    bool bSkipAhead = false;     // seek a little ahead; the frame goes out nevertheless
    bool bRequestReset = false;  // ask the filter for a reset
    bool bAwaitAudio = false;    // hold it until the audio has come as far: see CVideoTimeline::IsAudioBehind

    REFERENCE_TIME rtFromBase = 0;  // the next three are for statistics: its own time less the time base
    REFERENCE_TIME rtOwn = 0;       // its time by the headers of an elementary stream
    std::int64_t llStep = 0;        // its timestamp less the one before, 90 kHz
    std::string traces;             // texts for the trace, without those of statistics
    std::string debugText;          // text for the debugger output
};

/// The rules that turn timestamps into sample times, for one run of one pin. Values in, values out: no
/// threads, no samples, no waits. The loop maps a frame until no request is left, and finishes it.
class CTimeline {
public:
    virtual ~CTimeline() = default;
    CTimeline(const CTimeline&) = delete;
    CTimeline& operator=(const CTimeline&) = delete;

    /// Places a frame. A request leaves the frame's place open: when it has been fulfilled, the frame is
    /// mapped again.
    /// @param times  both pins' timing, changed in one step.
    virtual Placement Map(const TimedFrame& frame, AvTimes& times) = 0;
    /// The last step, when the pin has been where resets hold it: may still move a placed frame, and counts
    /// its timestamp as the last.
    virtual void Finish(const TimedFrame& frame, AvTimes& times, Placement& place);
    /// A placed frame is not delivered after all.
    virtual bool IsWithheld(const AvTimes&) const { return false; }

    /// Converts a timestamp (90 kHz) into 100 ns.
    static REFERENCE_TIME ToTime(std::int64_t llTimestamp);
    /// The two timestamps lie more than 90090 ticks (1.001 s) apart.
    static bool IsTimestampBroken(std::int64_t llTimestamp, std::int64_t llLast);

protected:
    explicit CTimeline(std::int64_t llFrameTicks) : m_llFrameTicks(llFrameTicks) {}

    static Placement Ask(ERequest request);
    /// The time base of a segment that was sought by time, for a stream that goes on with this timestamp: whatever the
    /// two have wrapped, they lie close together.
    static REFERENCE_TIME BaseOf(const SeekTarget& target, std::int64_t llTimestamp);
    /// Places a frame that begins the timing: own.rtTimeBase is set.
    Placement Begin(const TimedFrame& frame, PinTiming& own);
    /// Places a frame that goes on with it.
    Placement Continue(const TimedFrame& frame, const PinTiming& own) const;
    /// Moves a start further than rtLimit from the last to one frame behind the last.
    static void ClampJump(Placement& place, const PinTiming& own, REFERENCE_TIME rtLimit,
                          REFERENCE_TIME rtFrame);
    /// Publishes the start of a placed frame, as that which the next is measured against too.
    static void Publish(const Placement& place, PinTiming& own);
    /// The 33-bit counter began anew: moves the time base back by its range. @return false: it did not.
    bool RepairWrap(const TimedFrame& frame, PinTiming& own, Placement& place) const;
    /// A frame whose timestamp cannot be true is placed one frame behind the last. @return false: it is true.
    bool RepairBroken(const TimedFrame& frame, PinTiming& own, Placement& place, bool bSyncPoint);
    /// Asks for a reset.
    void RequestReset(Placement& place);
    /// Appends a formatted text for the trace, when anybody reads it.
    [[gnu::format(printf, 2, 3)]] static void AddTrace(std::string& traces, const char* pszFormat, ...);

    std::int64_t m_llLast = 0;       // the timestamp that the next is measured against
    bool m_bResetRequested = false;  // this run has asked for a reset: m_llLast stays where repairs put it

private:
    const std::int64_t m_llFrameTicks;  // one frame, 90 kHz: the step of repaired timestamps
};

}  // namespace kest

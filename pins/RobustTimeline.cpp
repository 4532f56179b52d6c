#include "pins/RobustTimeline.h"

#include <algorithm>
#include <cinttypes>
#include <limits>
#include <utility>

#include "demux/TimestampArithmetic.h"
#include "graph/TimeArithmetic.h"

namespace kest {
namespace {

// 90 kHz
constexpr std::int64_t kSecond = kTicksPerSecond;
constexpr std::int64_t kVideoFrame = 3003, kAudioFrame = 2160;  // as long as the timestamps do not say it
constexpr std::int64_t kPause = kSecond;     // longer ones need the other stream, see the class
constexpr std::int64_t kNear = 8 * kSecond;  // one stream may be as far behind the other, in its queue
constexpr std::int64_t kLongestStep = 60 * kSecond;  // from picture to picture of a slide show
constexpr std::int64_t kMostLead = 10 * kSecond;     // from a decoding to a presentation timestamp

constexpr int kWaits = 31;  // for the other stream, 10 ms each

bool IsNear(std::int64_t llA, std::int64_t llB, std::int64_t llLimit) {
    return llA - llB <= llLimit && llB - llA <= llLimit;
}

/// How much later than it is decoded a frame is presented. 0: audio, or the timestamps cannot be true.
std::int64_t GetLead(const TimedFrame& frame, EPin pin) {
    if (pin == EPin::Audio) return 0;
    const std::int64_t llLead = SharedLine::Place::Distance(frame.llDecoding, frame.llTimestamp);
    return llLead >= -kPause && llLead <= kMostLead ? llLead : 0;
}

std::int64_t ToTicks(REFERENCE_TIME rt) { return MulDiv(rt, 9, 1000); }

}  // namespace

CRobustTimeline::CRobustTimeline(EPin pin, const WorkingMode& mode, bool bPush)
    : CTimeline(pin == EPin::Video ? kVideoFrame : kAudioFrame),
      m_pin(pin),
      m_llFrame(pin == EPin::Video ? kVideoFrame : kAudioFrame),
      m_bAlone(mode.nOutputPins < 2),
      m_bLive(mode.family == ECoreFamily::Mpeg1 || (mode.family == ECoreFamily::Program && bPush)),
      m_bAnnounces(mode.family == ECoreFamily::Program),
      m_bHasOwnClock(mode.videoTimeline == ETimeline::ElementaryStream) {}

Placement CRobustTimeline::Map(const TimedFrame& frame, AvTimes& times) {
    SharedLine& line = times.line;
    if (frame.nSegment != line.nSegment) line = {.nSegment = frame.nSegment};
    TimedFrame timed = frame;
    if (m_bHasOwnClock) {
        const bool bHasVop = m_clock.ParseFrame(frame.bytes);
        if (!bHasVop && Own(line).nEpoch == 0) return Ask(ERequest::Drop);
        timed.llTimestamp = timed.llDecoding = ToTicks(m_clock.GetTime());
    }
    const SharedLine::Stream before = Own(line);
    if (const ERequest request = FindPlace(timed, times); request != ERequest::None) return Ask(request);

    PinTiming& own = times.Of(m_pin);
    Placement place;
    place.rtStart = place.rtFromBase = ToTime(Own(line).last.llAt + GetLead(timed, m_pin));
    place.rtOwn = m_clock.GetTime();
    place.bAnnounce = m_bAnnounces && before.nEpoch == 0;
    place.bRestart = std::exchange(own.bFirstTime, false) || before.nEpoch == 0;
    place.bDiscontinuity = place.bRestart || frame.bDiscontinuity || before.nEpoch != Own(line).nEpoch;
    if (place.bRestart) own.nAccessCount = 0;
    if (place.bDiscontinuity) {
        AddTrace(place.traces, "%s timestamp %" PRId64 " begins at %" PRId64 "\n",
                 m_pin == EPin::Video ? "Video" : "Audio", timed.llTimestamp, std::int64_t{place.rtStart});
    }
    Publish(place, own);
    return place;
}

/// Finds the place of a frame and moves the stream there. @return what must come before.
ERequest CRobustTimeline::FindPlace(const TimedFrame& frame, AvTimes& times) const {
    SharedLine& line = times.line;
    SharedLine::Stream& own = Own(line);
    SharedLine::Stream& peer = Peer(line);
    const std::int64_t llTimestamp = frame.llDecoding;
    own.bEnded = false;
    if (ComeBack(llTimestamp, line) || GoOn(llTimestamp, line) || Join(llTimestamp, line))
        return ERequest::None;
    if (times.seekTarget && line.nEpochs == 0) {
        const SharedLine::Place target = {.llTimestamp = times.seekTarget->llTimestamp, .llAt = 0};
        BeginEpoch({llTimestamp, target.Find(llTimestamp)}, line);
        return ERequest::None;
    }

    const bool bIsPeer = !m_bAlone && !times.Of(PeerOf(m_pin)).bAbsent && !peer.bEnded;
    const bool bWaits = bIsPeer && own.bContinued && !peer.llWaiting;
    own.llWaiting = llTimestamp;
    own.llLead = GetLead(frame, m_pin);
    if (bWaits && frame.nBaseWaits < kWaits) return ERequest::AwaitTimeBase;
    if (m_bLive && !frame.rtClock) return ERequest::ReadClock;
    const std::int64_t llEarliest =
        m_bLive ? ToTicks(*frame.rtClock) : std::numeric_limits<std::int64_t>::min() / 2;
    BeginEpoch({llTimestamp, FindBeginning(llEarliest, line)}, line);
    return ERequest::None;
}

/// Leaves an epoch that the other stream has not come to: it will not come, or a wrong timestamp began it.
bool CRobustTimeline::ComeBack(std::int64_t llTimestamp, SharedLine& line) const {
    const SharedLine::Stream& own = Own(line);
    const SharedLine::Stream& peer = Peer(line);
    if (own.nEpoch <= peer.nEpoch || peer.nEpoch == 0) return false;
    std::uint32_t nLeft = peer.nEpoch + 1;  // the epoch for which this stream left that of the other
    while (!line.Remembers(nLeft)) ++nLeft;
    const std::int64_t llAt = peer.last.Find(llTimestamp);
    const bool bNoJump =
        peer.last.llAt > line.Of(nLeft).llBegin + kNear && IsNear(llAt, peer.last.llAt, kNear);
    const bool bWrongTimestamp =
        !IsNear(own.last.Find(llTimestamp), own.last.llAt, kPause) && IsNear(llAt, own.llEnd, kPause);
    if (!bNoJump && !bWrongTimestamp) return false;
    MoveTo(peer.nEpoch, {llTimestamp, llAt}, line);
    return true;
}

/// Goes on in the present epoch.
bool CRobustTimeline::GoOn(std::int64_t llTimestamp, SharedLine& line) const {
    SharedLine::Stream& own = Own(line);
    const SharedLine::Stream& peer = Peer(line);
    if (own.nEpoch == 0) return false;
    const std::int64_t llAt = own.last.Find(llTimestamp), llFrom = own.last.llAt;
    const bool bStep = IsNear(llAt, llFrom, kPause) || IsNear(llAt, llFrom + own.llStep, kPause);
    const bool bPause = peer.nEpoch == own.nEpoch && peer.last.llAt > llFrom + kPause && llAt > llFrom &&
                        llAt <= peer.last.llAt + kNear;
    if (!bStep && !bPause) return false;
    MoveTo(own.nEpoch, {llTimestamp, llAt}, line);
    own.bContinued = true;
    return true;
}

/// Goes to an epoch that the other stream has begun.
bool CRobustTimeline::Join(std::int64_t llTimestamp, SharedLine& line) const {
    const SharedLine::Stream& own = Own(line);
    const SharedLine::Stream& peer = Peer(line);
    for (std::uint32_t n = own.nEpoch ? own.nEpoch + 1 : peer.nEpoch; n != 0 && n <= peer.nEpoch; ++n) {
        if (!line.Remembers(n)) continue;
        const SharedLine::Epoch& epoch = line.Of(n);
        const std::int64_t llAt = epoch.last.Find(llTimestamp);
        if (llAt < epoch.llBegin - kNear || llAt > epoch.llEnd + kNear) continue;
        MoveTo(n, {llTimestamp, llAt}, line);
        return true;
    }
    return false;
}

/// Where an epoch begins with the frame that waits: behind the end of its stream, and so that the frame of the other
/// that waits at the same jump comes behind the end of that.
/// @param llEarliest  no frame is presented before this place of the line.
std::int64_t CRobustTimeline::FindBeginning(std::int64_t llEarliest, SharedLine& line) const {
    const auto FindLeast = [=](const SharedLine::Stream& stream, const SharedLine::Stream& other) {
        const std::int64_t llFirst = other.nEpoch ? other.last.llAt : -stream.llLead;
        return std::max(stream.nEpoch ? stream.llEnd : llFirst, llEarliest - stream.llLead);
    };
    const SharedLine::Stream& own = Own(line);
    const SharedLine::Stream& peer = Peer(line);
    const std::int64_t llAt = FindLeast(own, peer);
    if (!peer.llWaiting) return llAt;
    const std::int64_t llBehind = SharedLine::Place::Distance(*own.llWaiting, *peer.llWaiting);
    return IsNear(llBehind, 0, kNear) ? std::max(llAt, FindLeast(peer, own) - llBehind) : llAt;
}

void CRobustTimeline::BeginEpoch(SharedLine::Place place, SharedLine& line) const {
    line.Of(++line.nEpochs) = {.last = place, .llBegin = place.llAt, .llEnd = place.llAt};
    MoveTo(line.nEpochs, place, line);
}

/// Moves the stream to a place of an epoch.
void CRobustTimeline::MoveTo(std::uint32_t nEpoch, SharedLine::Place place, SharedLine& line) const {
    SharedLine::Stream& own = Own(line);
    const std::int64_t llStep = SharedLine::Place::Distance(own.last.llTimestamp, place.llTimestamp);
    const bool bSame = nEpoch == own.nEpoch;
    own.llStep = own.nEpoch && llStep > 0 && llStep <= kLongestStep ? llStep : 0;
    const std::int64_t llEnd = place.llAt + (bSame && own.llStep ? own.llStep : m_llFrame);
    own.llEnd = bSame ? std::max(llEnd, own.llEnd) : llEnd;
    own.nEpoch = nEpoch;
    own.last = place;
    own.bContinued = false;
    own.llWaiting.reset();
    if (!line.Remembers(nEpoch)) return;
    SharedLine::Epoch& epoch = line.Of(nEpoch);
    epoch.last = place;
    epoch.llBegin = std::min(epoch.llBegin, place.llAt);
    epoch.llEnd = std::max(epoch.llEnd, place.llAt);
}

}  // namespace kest

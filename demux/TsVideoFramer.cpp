#include "demux/TsVideoFramer.h"

#include <algorithm>

#include "demux/StartCodeSearch.h"
#include "demux/TimestampArithmetic.h"
#include "demux/VideoStartCodes.h"

namespace kest {
namespace {

constexpr std::uint32_t kLeastPayload = 3;

/// The start codes that begin an MPEG-2 frame.
constexpr ThreeCodes kMpeg2FrameCodes = {kSequenceHeader, kGroupOfPictures, kPicture};

bool BeginsMpeg2Frame(std::uint8_t nCode) {
    return std::ranges::find(kMpeg2FrameCodes, nCode) != kMpeg2FrameCodes.end();
}

/// The start codes that begin an MPEG-4 frame at the beginning of a PES packet.
bool BeginsMpeg4Frame(std::uint8_t nCode) {
    return nCode <= kLastVideoObjectLayer || nCode == kGroupOfVop || nCode == kVop;
}

}  // namespace

void CTsVideoFramer::Begin(ETsTiming timing) {
    m_timing = timing;
    m_next = kNoTimestamps;
    m_llStep.reset();
    m_bContinues = false;
}

void CTsVideoFramer::OnPes() {
    const auto [timestamps, payload] = m_buffer.GetPes(m_bDrain ? 0 : kLeastPayload);
    if (!timestamps) {
        Take(payload);
    } else {
        const auto nStart = FindFrameStart(payload);
        if (nStart && (HasTime() || m_bDrain)) {
            Take(payload.first(*nStart));
            SplitFrames(timestamps->llDts);
        } else {
            CountLost(nStart.value_or(0));
        }
        Take(payload.subspan(nStart.value_or(0)));
        m_next = *timestamps;
    }
    m_buffer.DropPes();
}

/// Adds a part of the payload to the buffer; when draining, it is given room.
void CTsVideoFramer::Take(Bytes part) {
    while (!m_buffer.Take(part)) {
        if (!m_bDrain) return CountLost(part.size());
        SplitRest(/*bAll=*/false);
    }
}

std::optional<std::size_t> CTsVideoFramer::FindFrameStart(Bytes payload) const {
    std::optional<std::size_t> nStart;
    ForEachStartCode(payload, [&](std::size_t nIndex, std::uint8_t nCode) {
        if (m_bMpeg4 ? BeginsMpeg4Frame(nCode) : BeginsMpeg2Frame(nCode)) nStart = nIndex;
        return !nStart;
    });
    return nStart;
}

bool CTsVideoFramer::BeginsWithCode() const {
    const Bytes bytes = m_buffer.GetBytes();
    return bytes.size() >= 3 && Read24(bytes, 0) == 1;
}

/// What does not begin with a start code is dropped, unless everything is wanted.
bool CTsVideoFramer::HasFrameStart() {
    if (m_bDrain ? !m_buffer.GetBytes().empty() : BeginsWithCode()) return true;
    CountLost(m_buffer.GetBytes().size());
    m_buffer.Clear();
    return false;
}

/// Queues the frames that end in the buffer. What follows the last end stays.
/// @param llNextDts  of the PES packet behind them.
void CTsVideoFramer::SplitFrames(std::int64_t llNextDts) {
    if (!HasFrameStart()) {
        m_bContinues = false;
        return;
    }
    FindFrameEnds(/*bAll=*/true);
    const auto llFrames = static_cast<std::int64_t>(m_ends.size()) - (m_bContinues ? 1 : 0);
    const auto llStep = FindStep(llNextDts, llFrames);
    if (llStep) m_llStep = llStep;
    if (llStep || m_bDrain) return QueueFrames(m_llStep);
    QueueFrames(0);
}

/// The distance of the frames in front of a PES packet. None: its DTS is not later than that of the first of them; or
/// when draining more than a second later than it should be.
std::optional<std::int64_t> CTsVideoFramer::FindStep(std::int64_t llNextDts, std::int64_t llFrames) const {
    constexpr std::int64_t kSecond = 90000;
    if (!HasTime() || llFrames == 0) return std::nullopt;
    const std::int64_t llDistance =
        m_bDrain ? SubtractTimestamps(llNextDts, m_next.llDts) : llNextDts - m_next.llDts;
    const bool bJump = m_bDrain && llDistance > llFrames * m_llStep.value_or(kSecond) + kSecond;
    return llDistance > 0 && !bJump ? std::optional(llDistance / llFrames) : std::nullopt;
}

/// Queues what is in the buffer before the next timestamps are known: its frames have the distance of those
/// before, and as long as there is none, only the first has times.
/// @param bAll  to the end; else up to the frame that is not complete. If that is the only one, its beginning.
void CTsVideoFramer::SplitRest(bool bAll) {
    if (!HasFrameStart()) return;
    FindFrameEnds(bAll);
    if (bAll) m_ends.back() = m_buffer.GetBytes().size();
    const bool bBeginning = !bAll && m_ends.back() == m_buffer.GetBytes().size();
    QueueFrames(m_llStep);
    m_bContinues = bBeginning;
}

/// Queues the frames whose ends were found. @param llStep  their distance; none: it is not known.
void CTsVideoFramer::QueueFrames(std::optional<std::int64_t> llStep) {
    std::size_t nBegin = 0;
    for (const std::size_t nEnd : m_ends) {
        const bool bMoves = HasTime() && !m_bContinues;
        QueueFrame(nEnd - nBegin);
        nBegin = nEnd;
        if (bMoves) MoveOn(llStep);
    }
}

/// Moves to the times of the next frame.
void CTsVideoFramer::MoveOn(std::optional<std::int64_t> llStep) {
    if (!llStep) {
        m_next = kNoTimestamps;
    } else if (m_bDrain) {
        m_next = {AddTimestamp(m_next.llPts, *llStep), AddTimestamp(m_next.llDts, *llStep)};
    } else {
        m_next = {m_next.llPts + *llStep, m_next.llDts + *llStep};
    }
}

/// A frame ends where the next one begins: behind a picture, before a header of the layers above or the next
/// picture. In MPEG-4 nothing but the VOP itself belongs to its picture.
/// @param bAll  the last picture ends with the buffer; else only if it is the only one.
void CTsVideoFramer::FindFrameEnds(bool bAll) {
    const Bytes bytes = m_buffer.GetBytes();
    bool bPicture = m_bContinues;  // there is one since the last end
    m_ends.clear();
    const auto OnStartCode = [&](std::size_t nIndex, std::uint8_t nCode) {
        if (bPicture) {
            m_ends.push_back(nIndex);
            bPicture = false;
        }
        if (nCode == (m_bMpeg4 ? kVop : kPicture)) bPicture = true;
        return true;
    };
    if (m_bMpeg4) {
        ForEachStartCode(bytes, OnStartCode);
    } else {
        ForEachStartCodeOf(bytes, kMpeg2FrameCodes, OnStartCode);
    }
    if ((bPicture && bAll) || m_ends.empty()) m_ends.push_back(bytes.size());
}

/// Queues the first bytes of the buffer as a frame, and takes them from there.
void CTsVideoFramer::QueueFrame(std::size_t nSize) {
    const Bytes frame = m_buffer.GetBytes().first(nSize);
    const auto timestamps = frame.empty() ? std::nullopt : FindTime(frame);
    timestamps ? m_output.QueueFrame(frame, *timestamps) : CountLost(nSize);
    m_buffer.Consume(nSize);
    m_bContinues = false;
}

/// The timestamps of the frame that the buffer begins with; none: it is dropped.
std::optional<PesTimestamps> CTsVideoFramer::FindTime(Bytes frame) {
    if (m_bContinues) return kNoTimestamps;
    if (m_timing == ETsTiming::Pes) return m_next;
    if (!m_bDrain) return m_clock.Advance(frame, m_bMpeg4);
    const bool bFrame = BeginsWithCode() && FindFrameStart(frame);  // else what came before the first one
    return bFrame ? m_clock.Advance(frame, m_bMpeg4).value_or(kNoTimestamps) : kNoTimestamps;
}

void CTsVideoFramer::Flush() {
    if (m_bDrain) {
        if (m_buffer.HasPes()) OnPes();
        SplitRest(/*bAll=*/true);
        return;
    }
    if (m_buffer.HasPes()) m_buffer.Take(m_buffer.GetPes(kLeastPayload).payload);
    m_buffer.DropPes();
    if (HasFrameStart()) QueueFrame(m_buffer.GetBytes().size());
}

}  // namespace kest

#include "demux/TsVideoFramer.h"

#include <algorithm>

#include "demux/StartCodeSearch.h"
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
}

void CTsVideoFramer::OnPes() {
    const auto [timestamps, payload] = m_buffer.GetPes(kLeastPayload);
    if (!timestamps) {
        m_buffer.Take(payload);
    } else {
        const auto nStart = FindFrameStart(payload);
        const bool bFirst = m_next.llPts == kNoTimestamps.llPts;
        if (nStart && !bFirst) {
            m_buffer.Take(payload.first(*nStart));
            SplitFrames(timestamps->llDts);
        }
        m_buffer.Take(payload.subspan(nStart.value_or(0)));
        m_next = *timestamps;
    }
    m_buffer.DropPes();
}

std::optional<std::size_t> CTsVideoFramer::FindFrameStart(Bytes payload) const {
    std::optional<std::size_t> nStart;
    ForEachStartCode(payload, [&](std::size_t nIndex, std::uint8_t nCode) {
        if (m_bMpeg4 ? BeginsMpeg4Frame(nCode) : BeginsMpeg2Frame(nCode)) nStart = nIndex;
        return !nStart;
    });
    return nStart;
}

/// What does not begin with a start code is dropped.
bool CTsVideoFramer::HasFrameStart() {
    const Bytes bytes = m_buffer.GetBytes();
    if (bytes.size() >= 3 && Read24(bytes, 0) == 1) return true;
    m_buffer.Clear();
    return false;
}

/// Queues the frames that end in the buffer. What follows the last end stays.
/// @param llNextDts  of the PES packet behind them.
void CTsVideoFramer::SplitFrames(std::int64_t llNextDts) {
    if (!HasFrameStart()) return;
    FindFrameEnds();
    const auto llFrames = static_cast<std::int64_t>(m_ends.size());
    const std::int64_t llStep = llNextDts > m_next.llDts ? (llNextDts - m_next.llDts) / llFrames : 0;
    std::size_t nBegin = 0;
    for (const std::size_t nEnd : m_ends) {
        QueueFrame(nEnd - nBegin);
        nBegin = nEnd;
        m_next.llDts += llStep;
        m_next.llPts += llStep;
    }
}

/// A frame ends where the next one begins: behind a picture, before a header of the layers above or the next
/// picture. In MPEG-4 nothing but the VOP itself belongs to its picture.
void CTsVideoFramer::FindFrameEnds() {
    const Bytes bytes = m_buffer.GetBytes();
    bool bPicture = false;  // there is one since the last end
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
    if (bPicture || m_ends.empty()) m_ends.push_back(bytes.size());
}

/// Queues the first bytes of the buffer as a frame, and takes them from there.
void CTsVideoFramer::QueueFrame(std::size_t nSize) {
    const Bytes frame = m_buffer.GetBytes().first(nSize);
    const auto timestamps =
        m_timing == ETsTiming::Elementary ? m_clock.Advance(frame, m_bMpeg4) : std::optional(m_next);
    if (timestamps) m_output.QueueFrame(frame, *timestamps);
    m_buffer.Consume(nSize);
}

void CTsVideoFramer::Flush() {
    if (m_buffer.HasPes()) m_buffer.Take(m_buffer.GetPes(kLeastPayload).payload);
    m_buffer.DropPes();
    if (HasFrameStart()) QueueFrame(m_buffer.GetBytes().size());
}

}  // namespace kest

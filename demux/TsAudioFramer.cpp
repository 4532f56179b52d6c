#include "demux/TsAudioFramer.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kest {
namespace {

constexpr std::uint32_t kLeastPayload = 1;

/// An MPEG-1 audio frame begins here: its syncword and ID.
bool IsSync(Bytes bytes, std::size_t nIndex) {
    return nIndex + 2 <= bytes.size() && Read16(bytes, nIndex) >= 0xFFF8;
}

/// Index of the first sync at nFrom or behind; the end without one.
std::size_t FindSync(Bytes bytes, std::size_t nFrom) {
    while (nFrom < bytes.size()) {
        const void* p = std::memchr(bytes.data() + nFrom, 0xFF, bytes.size() - nFrom);
        if (!p) break;
        nFrom = static_cast<std::size_t>(static_cast<const std::uint8_t*>(p) - bytes.data());
        if (IsSync(bytes, nFrom)) return nFrom;
        ++nFrom;
    }
    return bytes.size();
}

/// The header of the audio frame that the bytes begin with; none when it has a fault.
std::optional<MpegAudioHeader> ReadHeader(Bytes bytes) {
    if (bytes.size() < 4 || !IsSync(bytes, 0)) return std::nullopt;
    const MpegAudioHeader header = ParseMpegAudioHeader(bytes);
    return header.nBitRate > 0 && header.nSamplingRate > 0 ? std::optional(header) : std::nullopt;
}

/// Samples of an audio frame.
std::int64_t GetSamples(const MpegAudioHeader& header) { return header.nLayer == 1 ? 384 : 1152; }

}  // namespace

void CTsAudioFramer::Begin(ETsTiming timing) {
    m_timing = timing;
    m_next = kNoTimestamps;
    m_description.reset();
    m_nFrames = 0;
    m_llPending = 0;
}

void CTsAudioFramer::OnPes() {
    const auto [timestamps, payload] = m_buffer.GetPes(kLeastPayload);
    if (!timestamps) {
        m_buffer.Take(payload);
    } else {
        if (m_next.llPts == kNoTimestamps.llPts) {
            const std::size_t nSync = FindSync(payload, 0);
            m_buffer.Take(payload.subspan(nSync < payload.size() ? nSync : 0));
        } else {
            OnNextFrames(payload, *timestamps);
        }
        m_next = *timestamps;
    }
    m_buffer.DropPes();
}

/// Queues the frames before a PES packet with timestamps. The first frame that begins in the packet is looked
/// for where the last one before it should end.
void CTsAudioFramer::OnNextFrames(Bytes payload, const PesTimestamps& timestamps) {
    const auto header = ReadHeader(m_buffer.GetBytes());
    std::int64_t llExpected = 0;
    if (header) {
        if (!m_description) m_description = header;
        const std::int64_t llFrame = 90000 * GetSamples(*header);  // in units of a timestamp by sampling rate
        const std::int64_t llGap =
            (header->nSamplingRate * (timestamps.llDts - m_next.llDts) + llFrame / 2) / llFrame;
        m_llPending += llGap;
        llExpected = llGap * (std::int64_t{header->GetFrameLength()} - 2) -
                     static_cast<std::int64_t>(m_buffer.GetBytes().size());
        if (llExpected < 0 || llExpected >= static_cast<std::int64_t>(payload.size())) llExpected = 0;
    }
    const std::size_t nSync = FindSync(payload, static_cast<std::size_t>(llExpected));
    m_buffer.Take(payload.first(nSync));
    if (!header) {
        EmitFrames(timestamps, 1, 0);
    } else if (m_clock.GetAudioBase()) {
        EmitFrames(timestamps, std::max<std::int64_t>(std::exchange(m_llPending, 0), 1),
                   header->GetFrameLength());
    }
    m_buffer.Take(payload.subspan(nSync));
}

/// Queues frames from the buffer.
/// @param next        timestamps of the PES packet behind them.
/// @param llFrames    how many there are, at least 1; of one, all bytes are it.
/// @param nFrameSize  bytes of each, not counting a padding slot.
void CTsAudioFramer::EmitFrames(const PesTimestamps& next, std::int64_t llFrames, std::uint32_t nFrameSize) {
    constexpr std::size_t kTolerance = 4, kBehind = 10;  // bytes
    if (!IsSync(m_buffer.GetBytes(), 0)) {
        m_buffer.Clear();
        return;
    }
    if (llFrames == 1) {
        QueueFrame(m_buffer.GetBytes().size());
        return;
    }
    auto Step = [&](std::int64_t llFrom, std::int64_t llTo) {
        return llTo > llFrom ? (llTo - llFrom) / llFrames : 0;
    };
    const PesTimestamps step = {.llPts = Step(m_next.llPts, next.llPts),
                                .llDts = Step(m_next.llDts, next.llDts)};
    for (std::int64_t i = 0; i < llFrames && m_buffer.GetBytes().size() >= nFrameSize + kBehind; ++i) {
        const Bytes reach = m_buffer.GetBytes().first(nFrameSize + kTolerance + 2);
        const std::size_t nEnd = FindSync(reach, nFrameSize - kTolerance);
        QueueFrame(nEnd < reach.size() ? nEnd : nFrameSize);
        m_next.llPts += step.llPts;
        m_next.llDts += step.llDts;
    }
}

/// Queues the first bytes of the buffer as a frame, and takes them from there. Without a time the frame is
/// dropped.
void CTsAudioFramer::QueueFrame(std::size_t nSize) {
    const Bytes frame = m_buffer.GetBytes().first(nSize);
    if (m_timing == ETsTiming::Pes) {
        m_output.QueueFrame(frame, m_next);
    } else if (m_description && m_clock.GetAudioBase()) {
        m_output.QueueFrame(frame, CountTime());
    }
    m_buffer.Consume(nSize);
}

/// The time of the next frame by the number of those before it.
PesTimestamps CTsAudioFramer::CountTime() {
    constexpr std::uint64_t kSecond = 27'000'000, kTimestampTicks = 300;
    const auto nTicks = static_cast<std::uint64_t>(GetSamples(*m_description)) * kSecond;
    const std::uint64_t nTime = *m_clock.GetAudioBase() + nTicks * m_nFrames++ / m_description->nSamplingRate;
    const auto llTime = static_cast<std::int64_t>(nTime / kTimestampTicks);
    return {.llPts = llTime, .llDts = llTime};
}

void CTsAudioFramer::Flush() {
    if (m_buffer.HasPes()) m_buffer.Take(m_buffer.GetPes(kLeastPayload).payload);
    m_buffer.DropPes();
    EmitFrames(kNoTimestamps, 1, 0);
}

}  // namespace kest

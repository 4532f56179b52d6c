#include "demux/TsAudioFramer.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "demux/TimestampArithmetic.h"

namespace kest {
namespace {

constexpr std::uint32_t kLeastPayload = 1;
constexpr std::uint64_t kTimestampTicks = 300;  // of a 27 MHz clock
constexpr std::size_t kHeaderSize = 4;          // bytes of an audio frame's header
constexpr std::size_t kBehind = 10;             // bytes that are wanted behind a frame

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
    if (bytes.size() < kHeaderSize || !IsSync(bytes, 0)) return std::nullopt;
    const MpegAudioHeader header = ParseMpegAudioHeader(bytes);
    return header.nBitRate > 0 && header.nSamplingRate > 0 ? std::optional(header) : std::nullopt;
}

/// The end of the frame of nSize bytes, more or less, that the bytes begin with: where the next one begins. None: it
/// does not.
std::optional<std::size_t> FindFrameEnd(Bytes bytes, std::uint32_t nSize) {
    constexpr std::size_t kTolerance = 4;  // bytes
    const Bytes reach = bytes.first(std::min<std::size_t>(bytes.size(), nSize + kTolerance + 2));
    const std::size_t nEnd = FindSync(reach, nSize - kTolerance);
    return nEnd < reach.size() ? std::optional(nEnd) : std::nullopt;
}

/// The same by the frame's own header; best where that says, with the padding slot.
std::optional<std::size_t> FindFrameEnd(Bytes bytes) {
    const auto frame = ParseAnyMpegAudioHeader(bytes);
    if (!frame) return std::nullopt;
    return IsSync(bytes, frame->nSize) ? std::optional<std::size_t>(frame->nSize)
                                       : FindFrameEnd(bytes, frame->nSize);
}

/// Samples of an audio frame.
std::int64_t GetSamples(const MpegAudioHeader& header) { return header.nLayer == 1 ? 384 : 1152; }

}  // namespace

void CTsAudioFramer::Begin(ETsTiming timing) {
    m_timing = timing;
    m_ownBase.reset();
    m_next = kNoTimestamps;
    m_description.reset();
    m_nFrames = 0;
    m_llPending = 0;
}

void CTsAudioFramer::OnPes() {
    const auto [timestamps, payload] = m_buffer.GetPes(m_bDrain ? 0 : kLeastPayload);
    if (!timestamps) {
        Take(payload);
    } else {
        if (m_bAlone && !m_ownBase)
            m_ownBase = static_cast<std::uint64_t>(timestamps->llPts) * kTimestampTicks;
        if (m_next.llPts == kNoTimestamps.llPts) {
            OnFirstFrames(payload);
        } else if (m_bDrain) {
            EndFrames(payload);
        } else {
            OnNextFrames(payload, *timestamps);
        }
        m_next = *timestamps;
    }
    m_buffer.DropPes();
}

/// Adds a part of the payload to the buffer; when draining, it is given room.
void CTsAudioFramer::Take(Bytes part) {
    while (!m_buffer.Take(part)) {
        if (!m_bDrain) return CountLost(part.size());
        EmitRest(/*bAll=*/false);
    }
}

/// The first frame with times begins with the first sync, or where there is none with the payload.
void CTsAudioFramer::OnFirstFrames(Bytes payload) {
    std::size_t nSync = FindSync(payload, 0);
    if (nSync == payload.size()) nSync = 0;
    if (m_bDrain) {
        Take(payload.first(nSync));
        EmitRest(/*bAll=*/true);
    } else {
        CountLost(nSync);
    }
    Take(payload.subspan(nSync));
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
    Take(payload.first(nSync));
    if (!header) {
        EmitFrames(timestamps, 1, 0);
    } else if (GetBase()) {
        EmitFrames(timestamps, std::max<std::int64_t>(std::exchange(m_llPending, 0), 1),
                   header->GetFrameLength());
    }
    Take(payload.subspan(nSync));
}

/// The same when draining.
void CTsAudioFramer::EndFrames(Bytes payload) {
    const std::size_t nSync = FindSync(payload, std::min(CountMissing(), payload.size()));
    Take(payload.first(nSync));
    if (m_timing == ETsTiming::Pes || GetBase()) EmitRest(/*bAll=*/true);
    Take(payload.subspan(nSync));
}

/// Bytes that the last frame in the buffer wants; it is as long as the one before it, if its header is not complete.
std::size_t CTsAudioFramer::CountMissing() const {
    Bytes bytes = m_buffer.GetBytes();
    std::size_t nSize = 0;
    for (std::optional<std::size_t> nEnd = 0; nEnd; nEnd = FindFrameEnd(bytes)) {
        bytes = bytes.subspan(*nEnd);
        if (bytes.size() < kHeaderSize) break;
        if (!ReadHeader(bytes)) return 0;
        nSize = ParseAnyMpegAudioHeader(bytes)->nSize;
    }
    return nSize - std::min(nSize, bytes.size());
}

/// Queues frames from the buffer.
/// @param next        timestamps of the PES packet behind them.
/// @param llFrames    how many there are, at least 1; of one, all bytes are it.
/// @param nFrameSize  bytes of each, not counting a padding slot.
void CTsAudioFramer::EmitFrames(const PesTimestamps& next, std::int64_t llFrames, std::uint32_t nFrameSize) {
    if (m_buffer.GetBytes().empty()) return;
    if (!IsSync(m_buffer.GetBytes(), 0)) {
        CountLost(m_buffer.GetBytes().size());
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
        QueueFrame(FindFrameEnd(m_buffer.GetBytes(), nFrameSize).value_or(nFrameSize));
        m_next.llPts += step.llPts;
        m_next.llDts += step.llDts;
    }
}

/// Queues frames from the buffer before the next timestamps are known. A frame ends where the header of the next one
/// should be and is; without it, the rest is one frame.
/// @param bAll  to the end; else up to a frame whose end is not there, unless it is the only one.
void CTsAudioFramer::EmitRest(bool bAll) {
    const PesTimestamps first = m_next;
    for (std::int64_t llFrames = 1; !m_buffer.GetBytes().empty(); ++llFrames) {
        const Bytes bytes = m_buffer.GetBytes();
        const auto header = ReadHeader(bytes);
        const auto nEnd = header ? FindFrameEnd(bytes) : std::nullopt;
        if (!nEnd && !bAll && llFrames > 1) return;
        if (!m_description) m_description = header;
        const bool bTimes = header && first.llPts != kNoTimestamps.llPts;
        const std::int64_t llDuration =
            bTimes ? llFrames * GetSamples(*header) * 90000 / header->nSamplingRate : 0;
        QueueFrame(nEnd.value_or(bytes.size()));
        m_next = bTimes ? PesTimestamps{AddTimestamp(first.llPts, llDuration),
                                        AddTimestamp(first.llDts, llDuration)}
                        : kNoTimestamps;
    }
}

/// Queues the first bytes of the buffer as a frame, and takes them from there. Without a time the frame is
/// dropped, or when draining goes without.
void CTsAudioFramer::QueueFrame(std::size_t nSize) {
    const Bytes frame = m_buffer.GetBytes().first(nSize);
    if (m_timing == ETsTiming::Pes) {
        m_output.QueueFrame(frame, m_next);
    } else if (m_description && GetBase()) {
        m_output.QueueFrame(frame, CountTime());
    } else if (m_bDrain) {
        m_output.QueueFrame(frame, kNoTimestamps);
    } else {
        CountLost(nSize);
    }
    m_buffer.Consume(nSize);
}

/// The time of the next frame by the number of those before it.
PesTimestamps CTsAudioFramer::CountTime() {
    constexpr std::uint64_t kSecond = 27'000'000;
    const auto nTicks = static_cast<std::uint64_t>(GetSamples(*m_description)) * kSecond;
    const std::uint64_t nTime = *GetBase() + nTicks * m_nFrames++ / m_description->nSamplingRate;
    const auto llTime = static_cast<std::int64_t>(nTime / kTimestampTicks);
    return {.llPts = llTime, .llDts = llTime};
}

void CTsAudioFramer::Flush() {
    if (m_bDrain) {
        if (m_buffer.HasPes()) OnPes();
        EmitRest(/*bAll=*/true);
        return;
    }
    if (m_buffer.HasPes()) m_buffer.Take(m_buffer.GetPes(kLeastPayload).payload);
    m_buffer.DropPes();
    EmitFrames(kNoTimestamps, 1, 0);
}

}  // namespace kest

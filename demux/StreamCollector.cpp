#include "demux/StreamCollector.h"

#include "demux/AudioHeaders.h"
#include "demux/SystemLayer.h"
#include "demux/TimestampArithmetic.h"
#include "demux/VideoHeaders.h"

namespace kest {
namespace {

/// Kind and codec that stand for a stream_type, ISO/IEC 13818-1 table 2-34; 0x81 is AC-3 by ATSC A/52.
struct TypeMeaning {
    std::uint8_t nStreamType;
    EStreamKind kind;
    ECodec codec;
};
constexpr TypeMeaning kMeanings[] = {
    {kStreamTypeMpeg1Video, EStreamKind::Video, ECodec::Mpeg1Video},
    {kStreamTypeMpeg2Video, EStreamKind::Video, ECodec::Mpeg2Video},
    {kStreamTypeMpeg4Video, EStreamKind::Video, ECodec::Mpeg4Video},
    {0x1B, EStreamKind::Video, ECodec::H264Video},
    {0x24, EStreamKind::Video, ECodec::HevcVideo},
    {kStreamTypeMpeg1Audio, EStreamKind::Audio, ECodec::MpegAudio},
    {kStreamTypeMpeg2Audio, EStreamKind::Audio, ECodec::MpegAudio},
    {0x0F, EStreamKind::Audio, ECodec::AacAudio},
    {0x11, EStreamKind::Audio, ECodec::AacAudio},
    {0x81, EStreamKind::Audio, ECodec::Ac3Audio},
};

/// What the map says of a stream.
void ApplyStreamType(StreamDescription& stream) {
    for (const TypeMeaning& meaning : kMeanings) {
        if (meaning.nStreamType != stream.nStreamType) continue;
        stream.kind = meaning.kind;
        stream.codec = meaning.codec;
    }
}

/// What the stream says of itself goes before what the map says.
void ApplyHeaders(StreamDescription& stream, Bytes bytes) {
    const bool bForeign = stream.codec == ECodec::H264Video || stream.codec == ECodec::HevcVideo ||
                          stream.codec == ECodec::AacAudio;
    if (bForeign) return;
    if (stream.kind == EStreamKind::Video) {
        if (auto found = FindVideoHeaders(bytes)) {
            stream.codec = found->codec;
            stream.video = std::move(found->format);
        }
        return;
    }
    if (stream.kind == EStreamKind::Audio && stream.codec != ECodec::Ac3Audio) {
        if (const auto format = FindMpegAudioHeader(bytes)) {
            stream.codec = ECodec::MpegAudio;
            stream.audio = *format;
            return;
        }
    }
    if (stream.codec != ECodec::MpegAudio) {
        if (const auto format = FindAc3Header(bytes)) {
            stream.kind = EStreamKind::Audio;
            stream.codec = ECodec::Ac3Audio;
            stream.audio = *format;
        }
    }
}

}  // namespace

bool HasFormat(const StreamDescription& stream) {
    switch (stream.codec) {
        case ECodec::H264Video:
        case ECodec::HevcVideo:
        case ECodec::AacAudio: return true;
        default: break;
    }
    switch (stream.kind) {
        case EStreamKind::Video: return stream.video.IsKnown();
        case EStreamKind::Audio: return stream.audio.IsKnown();
        default: return true;
    }
}

void CStreamCollector::List(std::uint16_t nId, std::uint8_t nStreamType) {
    if (m_listed.try_emplace(nId, nStreamType).second) m_listOrder.push_back(nId);
}

void CStreamCollector::Take(std::uint16_t nId, std::uint8_t nSubstreamId, EStreamKind kind,
                            const std::optional<PesTimestamps>& timestamps, Bytes payload) {
    const auto [position, bNew] = m_seen.try_emplace(GetKey(nId, nSubstreamId), m_streams.size());
    if (bNew) {
        Stream& stream = m_streams.emplace_back();
        stream.description.nId = nId;
        stream.description.nSubstreamId = nSubstreamId;
        stream.description.kind = kind;
        stream.description.bSeen = true;
    }
    Stream& stream = m_streams[position->second];
    stream.bytes.insert(stream.bytes.end(), payload.begin(), payload.end());
    if (timestamps) TakeTimestamps(stream, *timestamps);
}

// The earliest PTS is among the first ones: pictures come in the order of their decoding. A PTS that goes back by more
// is that of another recording.
void CStreamCollector::TakeTimestamps(Stream& stream, const PesTimestamps& timestamps) {
    constexpr int kFirstOnes = 16;
    StreamDescription& description = stream.description;
    if (stream.nTimestamps++ == 0) {
        description.llFirstDts = timestamps.llDts;
        description.llFirstPts = description.llLastPts = timestamps.llPts;
        return;
    }
    const std::int64_t llFromFirst = SubtractTimestamps(timestamps.llPts, description.llFirstPts);
    if (stream.nTimestamps <= kFirstOnes && llFromFirst < 0 && llFromFirst > -kTicksPerSecond)
        description.llFirstPts = timestamps.llPts;
    const std::int64_t llFromLast = SubtractTimestamps(timestamps.llPts, description.llLastPts);
    if (llFromLast > 0 || llFromLast < -kTicksPerSecond) description.llLastPts = timestamps.llPts;
}

std::vector<StreamDescription> CStreamCollector::Describe() const {
    std::vector<StreamDescription> descriptions;
    std::map<std::uint16_t, std::uint8_t> unseen = m_listed;
    for (const Stream& stream : m_streams) {
        StreamDescription& description = descriptions.emplace_back(stream.description);
        if (const auto listed = m_listed.find(description.nId); listed != m_listed.end()) {
            description.nStreamType = listed->second;
            ApplyStreamType(description);
        }
        ApplyHeaders(description, stream.bytes);
        unseen.erase(description.nId);
    }
    for (const std::uint16_t nId : m_listOrder) {
        if (!unseen.contains(nId)) continue;
        StreamDescription& description = descriptions.emplace_back();
        description.nId = nId;
        description.nStreamType = unseen[nId];
        ApplyStreamType(description);
    }
    return descriptions;
}

}  // namespace kest

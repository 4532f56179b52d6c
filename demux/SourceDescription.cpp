#include "demux/SourceDescription.h"

#include <algorithm>

#include "demux/StreamTypeProbe.h"
#include "demux/TimestampArithmetic.h"

namespace kest {
namespace {

/// The demuxers take streams of this codec.
bool IsTaken(ECodec codec) {
    return codec == ECodec::Mpeg1Video || codec == ECodec::Mpeg2Video || codec == ECodec::Mpeg4Video ||
           codec == ECodec::MpegAudio;
}

}  // namespace

std::int64_t StreamDescription::GetFrameTicks() const {
    if (kind == EStreamKind::Video && video.frameRate.IsKnown())
        return kTicksPerSecond * video.frameRate.nDenominator / video.frameRate.nNumerator;
    if (kind == EStreamKind::Audio && audio.IsKnown())
        return kTicksPerSecond * audio.nFrameSamples / audio.nSamplingRate;
    return 0;
}

std::int64_t StreamDescription::GetDuration() const {
    if (llFirstPts < 0 || llLastPts < 0) return -1;
    const std::int64_t llTicks = SubtractTimestamps(llLastPts, llFirstPts);
    return llTicks < 0 ? -1 : llTicks + GetFrameTicks();
}

const StreamDescription* SourceDescription::FindStream(EStreamKind kind, std::int32_t nChoice) const {
    const bool bLast = nChoice < 0 && container == EContainer::TransportStream;
    const StreamDescription* pFound = nullptr;
    for (const StreamDescription& stream : streams) {
        if (stream.kind != kind) continue;
        if (nChoice > 0 ? stream.nId != nChoice : !IsTaken(stream.codec)) continue;
        if (!pFound || bLast) pFound = &stream;
    }
    return pFound;
}

std::int64_t SourceDescription::GetStart() const {
    std::int64_t llStart = -1;
    for (const StreamDescription& stream : streams) {
        if (stream.llFirstPts < 0) continue;
        if (llStart < 0 || SubtractTimestamps(stream.llFirstPts, llStart) < 0) llStart = stream.llFirstPts;
    }
    return llStart;
}

std::int64_t SourceDescription::GetDuration() const {
    const std::int64_t llStart = GetStart();
    std::int64_t llDuration = -1;
    for (const StreamDescription& stream : streams) {
        const std::int64_t llOwn = stream.GetDuration();
        if (llOwn < 0) continue;
        llDuration = std::max(llDuration, llOwn + SubtractTimestamps(stream.llFirstPts, llStart));
    }
    return llDuration;
}

int SourceDescription::GetStreamClass() const {
    const StreamDescription* pVideo = FindStream(EStreamKind::Video);
    const bool bMpeg4 = pVideo && pVideo->codec == ECodec::Mpeg4Video;
    switch (container) {
        case EContainer::ProgramStream: return bMpeg4 ? kClassProgramMpeg4 : kClassProgramMpeg12;
        case EContainer::SystemStream: return kClassMpeg1System;
        case EContainer::TransportStream: return bMpeg4 ? kClassTransportMpeg4 : kClassTransportMpeg12;
        case EContainer::ElementaryStream: return kClassMpeg4VideoEs;
        case EContainer::None: break;
    }
    return kClassNotRecognised;
}

}  // namespace kest

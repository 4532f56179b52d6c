#include "host/DescriptionText.h"

#include <array>
#include <cinttypes>
#include <cstdio>

#include "demux/TimestampArithmetic.h"

namespace kest {
namespace {

template <class... Args>
std::string Format(const char* pszFormat, Args... args) {
    std::array<char, 128> szText{};
    std::snprintf(szText.data(), szText.size(), pszFormat, args...);
    return szText.data();
}

// ---------------- names

/// How a codec is called: for users, and in JSON (MPEG audio by its layer, see GetCodecName).
struct CodecNames {
    const char* pszName;
    const char* pszJson;
};
CodecNames GetNames(ECodec codec) {
    switch (codec) {
        case ECodec::Mpeg1Video: return {"MPEG-1", "mpeg1video"};
        case ECodec::Mpeg2Video: return {"MPEG-2", "mpeg2video"};
        case ECodec::Mpeg4Video: return {"MPEG-4", "mpeg4"};
        case ECodec::H264Video: return {"H.264", "h264"};
        case ECodec::HevcVideo: return {"HEVC", "hevc"};
        case ECodec::MpegAudio: return {"MPEG", "mp2"};
        case ECodec::AacAudio: return {"AAC", "aac"};
        case ECodec::Ac3Audio: return {"AC-3", "ac3"};
        case ECodec::Unknown: break;
    }
    return {"unknown", ""};
}

std::string GetCodecName(const StreamDescription& stream) {
    return stream.audio.nLayer ? Format("mp%u", stream.audio.nLayer) : GetNames(stream.codec).pszJson;
}

/// Profile and level of MPEG-2 video (ISO/IEC 13818-2 tables 8-2 and 8-3) as texts; empty: none of the table.
const char* GetMpeg2Profile(std::uint8_t nProfileLevel) {
    static constexpr std::array<const char*, 8> kNames = {
        "", "High", "Spatially Scalable", "SNR Scalable", "Main", "Simple", "", ""};
    return nProfileLevel & 0x80 ? (nProfileLevel & 0x70 ? "" : "4:2:2") : kNames[nProfileLevel >> 4];
}
const char* GetMpeg2Level(std::uint8_t nProfileLevel) {
    switch (nProfileLevel & 0x0F) {
        case 4: return "High";
        case 6: return "High 1440";
        case 8: return "Main";
        case 10: return "Low";
        default: return "";
    }
}

/// Profile of MPEG-4 video, ISO/IEC 14496-2 table G.1; empty: none of these.
const char* GetMpeg4Profile(std::uint8_t nProfileLevel) {
    switch (nProfileLevel >> 4) {
        case 0: return "Simple Profile";
        case 1: return "Simple Scalable Profile";
        case 2: return "Core Profile";
        case 3: return "Main Profile";
        case 4: return "N-bit Profile";
        case 15: return "Advanced Simple Profile";
        default: return "";
    }
}

const char* GetKindName(EStreamKind kind) {
    switch (kind) {
        case EStreamKind::Video: return "video";
        case EStreamKind::Audio: return "audio";
        case EStreamKind::Other: break;
    }
    return "data";
}

std::uint32_t CountChannels(const AudioFormat& audio) {
    return audio.nChannels + (audio.bLowFrequency ? 1 : 0);
}

/// Empty: the layout has no name here.
const char* GetLayout(const AudioFormat& audio) {
    if (audio.nChannels == 1 && !audio.bLowFrequency) return "mono";
    if (audio.nChannels == 2 && !audio.bLowFrequency) return "stereo";
    if (audio.nChannels == 5) return audio.bLowFrequency ? "5.1(side)" : "5.0(side)";
    return "";
}

/// The number that the stream is called by: its id, or that of its substream.
unsigned GetNumber(const StreamDescription& stream) {
    return stream.nSubstreamId ? stream.nSubstreamId : stream.nId;
}

// ---------------- text

std::string ToText(const VideoFormat& video, ECodec codec) {
    std::string strText;
    if (codec == ECodec::Mpeg2Video && *GetMpeg2Profile(video.nProfileLevel)) {
        strText += std::string(" ") + GetMpeg2Profile(video.nProfileLevel);
        if (*GetMpeg2Level(video.nProfileLevel))
            strText += std::string("@") + GetMpeg2Level(video.nProfileLevel);
    }
    if (!video.IsKnown()) return strText;
    strText += Format(", %" PRIu32 " x %" PRIu32, video.nWidth, video.nHeight);
    const Fraction aspect = video.displayAspect;
    if (aspect.IsKnown())
        strText += Format(" (%" PRIu32 ":%" PRIu32 ")", aspect.nNumerator, aspect.nDenominator);
    const Fraction rate = video.frameRate;
    if (rate.IsKnown()) strText += Format(", %.4g frames/s", 1.0 * rate.nNumerator / rate.nDenominator);
    if (!video.bProgressive) strText += ", interlaced";
    if (video.nBitRate) {
        strText += Format(video.bVariableRate ? ", at most %" PRIu32 " kbit/s" : ", %" PRIu32 " kbit/s",
                          video.nBitRate / 1000);
    }
    return strText;
}

std::string ToText(const AudioFormat& audio) {
    static constexpr std::array<const char*, 4> kLayers = {"", " layer I", " layer II", " layer III"};
    static constexpr std::array<const char*, 4> kVersions = {"", "-1", "-2", "-2.5"};
    std::string strText = std::string(kVersions[audio.nVersion]) + kLayers[audio.nLayer];
    if (!audio.IsKnown()) return strText;
    strText += Format(", %" PRIu32 " Hz, ", audio.nSamplingRate);
    const char* pszLayout = GetLayout(audio);
    strText += *pszLayout ? pszLayout : Format("%" PRIu32 " channels", CountChannels(audio));
    if (audio.nBitRate) strText += Format(", %" PRIu32 " kbit/s", audio.nBitRate / 1000);
    return strText;
}

// ---------------- JSON

std::string ToText(Fraction fraction, char cBetween) {
    return std::to_string(fraction.nNumerator) + cBetween + std::to_string(fraction.nDenominator);
}

void AddVideo(nlohmann::ordered_json& json, const StreamDescription& stream) {
    const VideoFormat& video = stream.video;
    if (!video.IsKnown()) return;
    const bool bMpeg2 = stream.codec == ECodec::Mpeg2Video;
    const char* pszProfile = bMpeg2 ? GetMpeg2Profile(video.nProfileLevel)
                             : stream.codec == ECodec::Mpeg4Video && video.nProfileLevel
                                 ? GetMpeg4Profile(video.nProfileLevel)
                                 : "";
    if (*pszProfile) json["profile"] = pszProfile;
    if (*pszProfile) json["level"] = video.nProfileLevel & 0x0F;
    json["width"] = video.nWidth;
    json["height"] = video.nHeight;
    if (video.sampleAspect.IsKnown()) json["sample_aspect_ratio"] = ToText(video.sampleAspect, ':');
    if (video.displayAspect.IsKnown()) json["display_aspect_ratio"] = ToText(video.displayAspect, ':');
    if (bMpeg2 && video.bProgressive) json["field_order"] = "progressive";
    if (video.frameRate.IsKnown()) json["r_frame_rate"] = ToText(video.frameRate, '/');
    if (video.nBitRate)
        json[video.bVariableRate ? "max_bit_rate" : "bit_rate"] = std::to_string(video.nBitRate);
}

void AddAudio(nlohmann::ordered_json& json, const AudioFormat& audio) {
    if (!audio.IsKnown()) return;
    json["sample_rate"] = std::to_string(audio.nSamplingRate);
    json["channels"] = CountChannels(audio);
    if (*GetLayout(audio)) json["channel_layout"] = GetLayout(audio);
    if (audio.nBitRate) json["bit_rate"] = std::to_string(audio.nBitRate);
}

/// ffprobe's number of a stream: the start code of a program stream's packets, the PID.
std::string GetJsonId(const StreamDescription& stream, EContainer container) {
    const bool bPid = container == EContainer::TransportStream;
    return Format("0x%x", bPid || stream.nSubstreamId ? GetNumber(stream) : 0x100U | stream.nId);
}

nlohmann::ordered_json ToJson(const StreamDescription& stream, EContainer container, std::size_t nIndex) {
    nlohmann::ordered_json json = {{"index", nIndex}};
    if (stream.codec != ECodec::Unknown) json["codec_name"] = GetCodecName(stream);
    json["codec_type"] = GetKindName(stream.kind);
    if (container != EContainer::ElementaryStream) json["id"] = GetJsonId(stream, container);
    AddVideo(json, stream);
    AddAudio(json, stream.audio);
    if (stream.llFirstPts >= 0) json["start_time"] = ToSeconds(stream.llFirstPts, 6);
    if (stream.GetDuration() >= 0) json["duration"] = ToSeconds(stream.GetDuration(), 6);
    return json;
}

/// From the first to the last moment of the source, each rounded; -1: not known.
std::int64_t GetMicroseconds(const SourceDescription& description) {
    const auto Round = [](std::int64_t llTicks) { return (llTicks * 100 + 4) / 9; };
    const std::int64_t llStart = description.GetStart(), llDuration = description.GetDuration();
    return llDuration < 0 ? -1 : Round(llStart + llDuration) - Round(llStart);
}

}  // namespace

std::string GetContainerName(const SourceDescription& description) {
    switch (description.container) {
        case EContainer::ProgramStream:
            return std::string("MPEG-2 program stream") +
                   (description.bHasMap ? "" : " without a program stream map");
        case EContainer::SystemStream: return "MPEG-1 system stream";
        case EContainer::TransportStream: return "MPEG-2 transport stream";
        case EContainer::ElementaryStream: return "MPEG-4 video elementary stream";
        case EContainer::None: break;
    }
    return "not recognised";
}

std::string ListStreams(const SourceDescription& description) {
    std::string strText;
    for (const StreamDescription& stream : description.streams) {
        strText += GetKindName(stream.kind);
        if (description.container != EContainer::ElementaryStream)
            strText += Format(" 0x%02x", GetNumber(stream));
        strText += std::string(": ") + GetNames(stream.codec).pszName;
        strText +=
            stream.kind == EStreamKind::Video ? ToText(stream.video, stream.codec) : ToText(stream.audio);
        strText += stream.bSeen ? "\n" : ", listed but not found\n";
    }
    return strText;
}

std::string ToSeconds(std::int64_t llTicks, int nDecimals) {
    return Format("%.*f", nDecimals, static_cast<double>(llTicks) / kTicksPerSecond);
}

std::int64_t GetBitRate(const SourceDescription& description) {
    const std::int64_t llMicroseconds = GetMicroseconds(description);
    return llMicroseconds <= 0 ? 0
                               : static_cast<std::int64_t>(8e6 * static_cast<double>(description.llLength) /
                                                           static_cast<double>(llMicroseconds));
}

nlohmann::ordered_json ToJson(const SourceDescription& description, const std::string& strFile) {
    static constexpr std::array<const char*, 5> kFormats = {"", "mpeg", "mpeg", "mpegts",
                                                            "m4v"};  // by EContainer
    nlohmann::ordered_json streams = nlohmann::ordered_json::array();
    for (const StreamDescription& stream : description.streams)
        streams.push_back(ToJson(stream, description.container, streams.size()));
    nlohmann::ordered_json format = {{"filename", strFile}, {"nb_streams", streams.size()}};
    format["format_name"] = kFormats.at(static_cast<std::size_t>(description.container));
    format["format_long_name"] = GetContainerName(description);
    if (description.GetStart() >= 0) format["start_time"] = ToSeconds(description.GetStart(), 6);
    if (const std::int64_t ll = GetMicroseconds(description); ll >= 0)
        format["duration"] = Format("%" PRId64 ".%06" PRId64, ll / 1000000, ll % 1000000);
    if (description.llLength) format["size"] = std::to_string(description.llLength);
    if (GetBitRate(description)) format["bit_rate"] = std::to_string(GetBitRate(description));
    return {{"streams", streams}, {"format", format}};
}

}  // namespace kest

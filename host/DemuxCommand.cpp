#include <array>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "demux/SystemLayer.h"
#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/DemuxGraph.h"
#include "host/DescriptionText.h"
#include "host/OutputFile.h"
#include "host/ProgramSwitches.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

/// The usual one of the video that is taken.
const char* VideoExtension(const Input& input, std::int32_t nVideoStream) {
    const StreamDescription* pVideo = input.description.FindStream(EStreamKind::Video, nVideoStream);
    switch (pVideo ? pVideo->codec : ECodec::Unknown) {
        case ECodec::Mpeg1Video: return ".m1v";
        case ECodec::Mpeg2Video: return ".m2v";
        case ECodec::Mpeg4Video: return ".m4v";
        default: break;
    }
    switch (input.nClass) {
        case kClassMpeg4VideoEs:
        case kClassTransportMpeg4:
        case kClassProgramMpeg4: return ".m4v";
        case kClassMpeg1System: return ".m1v";
        default: return input.nVideoStreamType == kStreamTypeMpeg1Video ? ".m1v" : ".m2v";
    }
}

/// That of MPEG audio of the layer of the audio that is taken.
const char* AudioExtension(const Input& input, std::int32_t nAudioStream) {
    constexpr std::uint8_t kLayer3 = 3;
    const StreamDescription* pAudio = input.description.FindStream(EStreamKind::Audio, nAudioStream);
    return pAudio && pAudio->audio.nLayer == kLayer3 ? ".mp3" : ".mp2";
}

/// The name given, or the input's with another extension.
fs::path OutputPath(const std::string& strGiven, const Input& input, const char* pszExtension) {
    return strGiven.empty() ? DefaultOutput(input, pszExtension) : fs::path(strGiven);
}

/// Writes the payloads of one stream into a file.
class CWriting final : public ISinkHandler {
public:
    CWriting(const fs::path& path, bool bForce) : m_path(path), m_file(path, bForce) {}

    void OnSample(IMediaSample& sample) override {
        m_file.Write(GetPayload(sample));
        ++m_nSamples;
    }
    void Flush() { m_file.Flush(); }
    void Commit() { m_file.Commit(); }
    /// Whether there is anything to commit.
    bool IsEmpty() const { return m_nSamples == 0; }
    void PrintSummary(EStream stream) const {
        if (IsEmpty()) {
            std::fprintf(stderr, "%s: none, no file\n", GetStreamName(stream));
            return;
        }
        std::fprintf(stderr, "%s: %" PRIu64 " samples, %" PRIu64 " bytes -> %s\n", GetStreamName(stream),
                     m_nSamples, m_file.GetSize(), m_path.c_str());
    }

private:
    const fs::path m_path;
    COutputFile m_file;
    std::uint64_t m_nSamples = 0;
};

/// Throws CCommandError when a stream that was asked for has not come, or none.
void RequireStreams(const Input& input, const DemuxOptions& options, const CWriting& video,
                    const CWriting& audio) {
    const auto Require = [&](EStream stream, const CWriting& writing, std::int32_t nStream) {
        if (nStream == 0 || !writing.IsEmpty()) return;
        std::array<char, 80> szText{};
        std::snprintf(szText.data(), szText.size(),
                      ": no %s stream 0x%02" PRIx32 "; --list shows what there is", GetStreamName(stream),
                      static_cast<std::uint32_t>(nStream));
        throw CCommandError(kExitBadInput, input.path.string() + szText.data());
    };
    Require(EStream::Video, video, options.nVideoStream);
    Require(EStream::Audio, audio, options.nAudioStream);
    if (video.IsEmpty() && audio.IsEmpty())
        throw CCommandError(
            kExitBadInput,
            input.path.string() + ": neither video nor audio came out of it; --list shows what there is");
}

/// What was lost, of one stream; empty: nothing.
std::string GetLosses(EStream stream, const STREAM_COUNTERS& counters) {
    const std::uint64_t llBytes = counters.llBytesCut + counters.llBytesLost;
    if (counters.nFramesCut + counters.nFramesLost + llBytes == 0) return {};
    std::array<char, 160> szText{};
    std::snprintf(szText.data(), szText.size(),
                  "%s: %" PRIu64 " bytes, %" PRIu64 " frames cut, %" PRIu64 " lost", GetStreamName(stream),
                  llBytes, counters.nFramesCut, counters.nFramesLost);
    return szText.data();
}

void PrintLosses(const COUNTERS& counters) {
    std::vector<std::string> losses = {GetLosses(EStream::Video, counters.video),
                                       GetLosses(EStream::Audio, counters.audio)};
    if (counters.llBytesSkipped != 0) {
        losses.push_back(std::to_string(counters.llBytesSkipped) + " bytes skipped in " +
                         std::to_string(counters.nResyncs) + " places");
    }
    std::string strText;
    for (const std::string& strLoss : losses) {
        if (!strLoss.empty()) strText += (strText.empty() ? "" : "; ") + strLoss;
    }
    std::fprintf(stderr, "lost: %s\n", strText.empty() ? "nothing" : strText.c_str());
}

}  // namespace

void RunDemux(const DemuxOptions& options) {
    if (options.bList) {
        const Input input = DescribeInput(options.strFile, EAccess::FileOrPipe);
        return WriteTextFile("-", false, ListStreams(input.description));
    }
    const Input input = OpenInput(options.strFile, EAccess::FileOrPipe, !options.bPlain);
    const fs::path videoPath =
        OutputPath(options.strVideo, input, VideoExtension(input, options.nVideoStream));
    const fs::path audioPath =
        OutputPath(options.strAudio, input, AudioExtension(input, options.nAudioStream));
    if (AreSamePlace(videoPath, audioPath)) {
        throw CCommandError(kExitBadUsage, videoPath.string() + ": cannot hold both streams");
    }
    for (const fs::path& path : {videoPath, audioPath}) {
        if (AreSamePlace(path, input.path))
            throw CCommandError(kExitBadUsage, path.string() + ": is the input file");
    }

    CWriting video(videoPath, options.bForce);
    CWriting audio(audioPath, options.bForce);
    CDemuxGraph graph(input, CProgramSwitches(options, input), &video, &audio,
                      {.strModule = options.strModule, .bQuiet = options.bQuiet});
    graph.RunToEnd();
    for (CWriting* pWriting : {&video, &audio}) pWriting->Flush();
    if (!options.bPlain) RequireStreams(input, options, video, audio);
    for (CWriting* pWriting : {&video, &audio}) {
        if (!pWriting->IsEmpty()) pWriting->Commit();
    }
    if (options.bQuiet) return;
    video.PrintSummary(EStream::Video);
    audio.PrintSummary(EStream::Audio);
    if (!options.bPlain) PrintLosses(graph.GetCounters());
}

}  // namespace kest

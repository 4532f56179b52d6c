#include <cinttypes>
#include <cstdio>
#include <filesystem>

#include "demux/SystemLayer.h"
#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/DemuxGraph.h"
#include "host/OutputFile.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

const char* VideoExtension(const Input& input) {
    switch (input.nClass) {
        case kClassMpeg4VideoEs:
        case kClassTransportMpeg4:
        case kClassProgramMpeg4: return ".m4v";
        case kClassMpeg1System: return ".m1v";
        default: return input.nVideoStreamType == kStreamTypeMpeg1Video ? ".m1v" : ".m2v";
    }
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

}  // namespace

void RunDemux(const DemuxOptions& options) {
    const Input input = OpenInput(options.strFile, EAccess::FileOrPipe);
    const fs::path videoPath = OutputPath(options.strVideo, input, VideoExtension(input));
    const fs::path audioPath = OutputPath(options.strAudio, input, ".mp2");
    if (AreSamePlace(videoPath, audioPath)) {
        throw CCommandError(kExitBadUsage, videoPath.string() + ": cannot hold both streams");
    }
    for (const fs::path& path : {videoPath, audioPath}) {
        if (AreSamePlace(path, input.path))
            throw CCommandError(kExitBadUsage, path.string() + ": is the input file");
    }

    CWriting video(videoPath, options.bForce);
    CWriting audio(audioPath, options.bForce);
    CDemuxGraph(input, &video, &audio, {.strModule = options.strModule}).RunToEnd();
    for (CWriting* pWriting : {&video, &audio}) pWriting->Flush();
    for (CWriting* pWriting : {&video, &audio}) {
        if (!pWriting->IsEmpty()) pWriting->Commit();
    }
    video.PrintSummary(EStream::Video);
    audio.PrintSummary(EStream::Audio);
}

}  // namespace kest

#include <cinttypes>
#include <cstdio>
#include <filesystem>

#include "demux/SystemLayer.h"
#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/CoreRun.h"
#include "host/OutputFile.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

const char* VideoExtension(std::uint8_t nStreamType) {
    switch (nStreamType) {
        case kStreamTypeMpeg1Video: return ".m1v";
        case kStreamTypeMpeg4Video: return ".m4v";
        default: return ".m2v";
    }
}

/// The name given, or the input's with another extension.
fs::path OutputPath(const std::string& strGiven, const Input& input, const char* pszExtension) {
    return strGiven.empty() ? DefaultOutput(input, pszExtension) : fs::path(strGiven);
}

void PrintSummary(const char* pszStream, const fs::path& path, std::uint64_t nFrames, std::uint64_t nBytes) {
    std::fprintf(stderr, "%s: %" PRIu64 " frames, %" PRIu64 " bytes -> %s\n", pszStream, nFrames, nBytes,
                 path.c_str());
}

}  // namespace

void RunDemux(const DemuxOptions& options) {
    const Input input = OpenInput(options.strFile);
    RequireProgramStream(input);
    const fs::path videoPath = OutputPath(options.strVideo, input, VideoExtension(input.nVideoStreamType));
    const fs::path audioPath = OutputPath(options.strAudio, input, ".mp2");
    if (AreSamePlace(videoPath, audioPath)) {
        throw CCommandError(kExitBadUsage, videoPath.string() + ": both streams cannot go into one file");
    }
    for (const fs::path& path : {videoPath, audioPath}) {
        if (AreSamePlace(path, input.path))
            throw CCommandError(kExitBadUsage, path.string() + ": is the input itself");
    }

    COutputFile video(videoPath, options.bForce);
    COutputFile audio(audioPath, options.bForce);
    std::uint64_t nVideoFrames = 0, nAudioFrames = 0;
    RunCore(input, [&](EStream stream, const FRAME_INFO& info, std::span<const std::uint8_t> payload) {
        if (info.bEndOfStream) return;
        (stream == EStream::Video ? video : audio).Write(payload);
        ++(stream == EStream::Video ? nVideoFrames : nAudioFrames);
    });
    for (COutputFile* pOutput : {&video, &audio}) pOutput->Flush();
    for (COutputFile* pOutput : {&video, &audio}) pOutput->Commit();
    PrintSummary("video", videoPath, nVideoFrames, video.GetSize());
    PrintSummary("audio", audioPath, nAudioFrames, audio.GetSize());
}

}  // namespace kest

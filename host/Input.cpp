#include "host/Input.h"

#include <array>
#include <string>

#include "host/CommandError.h"

namespace kest {
namespace {

[[noreturn]] void Fail(const std::filesystem::path& path, const std::string& strReason) {
    throw CCommandError(kExitBadInput, path.string() + ": " + strReason);
}

}  // namespace

const char* GetClassName(int nClass) {
    static constexpr std::array<const char*, 7> kNames = {
        "MPEG-4 video elementary stream",
        "transport stream with MPEG-4 video",
        "MPEG-2 program stream with MPEG-4 video",
        "transport stream with MPEG-1 or MPEG-2 video",
        "MPEG-2 program stream with MPEG-1 or MPEG-2 video",
        "MPEG-1 system stream",
        "not recognised",
    };
    return kNames.at(static_cast<std::size_t>(nClass));
}

Input OpenInput(const std::filesystem::path& path) {
    if (path == "-") throw CCommandError(kExitBadUsage, "-: standard input is not seekable; give a file");
    Input input;
    input.path = path;
    std::error_code error;
    input.pReader = CFileReader::Open(path, error);
    if (error == std::errc::invalid_seek) Fail(path, "not seekable; give a file");
    if (!input.pReader) Fail(path, error.message());

    CStreamTypeProbe probe;
    probe.SetReader(input.pReader.Get());
    input.nClass = probe.Probe();
    input.llLength = probe.GetTotalLength();
    if (input.llLength == 0) Fail(path, "the file is empty");
    if (input.nClass == kClassNotRecognised) {
        CheckReadErrors(input);
        Fail(path, "class 6, not recognised; missing: " + std::string(probe.GetMissing()));
    }
    input.nVideoStreamType = probe.GetVideoStreamType();
    if (input.nVideoStreamType) input.nBitRate = probe.GetBitRate();
    return input;
}

void RequireProgramStream(const Input& input) {
    if (input.nClass == kClassProgramMpeg4 || input.nClass == kClassProgramMpeg12) return;
    Fail(input.path, "class " + std::to_string(input.nClass) + ", " + GetClassName(input.nClass) +
                         "; missing: an MPEG-2 program stream");
}

void CheckReadErrors(const Input& input) {
    const std::int64_t llPosition = input.pReader->GetErrorPosition();
    if (llPosition >= 0) Fail(input.path, "cannot be read beyond byte " + std::to_string(llPosition));
}

std::filesystem::path DefaultOutput(const Input& input, const char* pszExtension) {
    namespace fs = std::filesystem;
    std::error_code ignored;
    const fs::path folder = fs::canonical(fs::absolute(input.path, ignored).parent_path(), ignored);
    if (folder == "/dev" || folder.string().starts_with("/proc/")) {
        throw CCommandError(kExitBadUsage, input.path.string() + ": give --video and --audio");
    }
    return fs::path(input.path).replace_extension(pszExtension);
}

}  // namespace kest

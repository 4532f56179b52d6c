#include "host/Input.h"

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "demux/SourceAnalyzer.h"
#include "host/CommandError.h"
#include "host/DescriptionText.h"
#include "host/FileReader.h"
#include "host/Interrupts.h"
#include "host/PipeReader.h"

namespace kest {
namespace {

[[noreturn]] void Fail(const std::filesystem::path& path, const std::string& strReason) {
    throw CCommandError(kExitBadInput, path.string() + ": " + strReason);
}

CComPtr<CInputReader> OpenPipe(const std::filesystem::path& path, std::error_code& error) {
    constexpr std::size_t kBeginning = 0x50000;  // more bytes than a probe reads
    const auto pPipe = CPipeReader::Open(path, error);
    if (!pPipe) return nullptr;
    pPipe->FetchBeginning(kBeginning, IsInterrupted);
    if (IsInterrupted()) throw CCommandError(kExitInterrupted, "interrupted");
    return CComPtr<CInputReader>(pPipe.Get());
}

Input OpenReader(const std::filesystem::path& path, EAccess access) {
    const bool bStandardInput = path == "-";
    if (bStandardInput && access == EAccess::File) {
        throw CCommandError(kExitBadUsage, "-: standard input is not seekable; give a file");
    }
    Input input;
    input.path = bStandardInput ? "/dev/stdin" : path;
    // A named pipe is opened once: a writer that loses its first reader ends.
    std::error_code error, ignored;
    if (bStandardInput || std::filesystem::is_fifo(path, ignored)) {
        error = std::make_error_code(std::errc::invalid_seek);
    } else {
        input.pReader = CComPtr<CInputReader>(CFileReader::Open(path, error).Get());
    }
    if (error == std::errc::invalid_seek) {
        if (access == EAccess::File) Fail(path, "not seekable; give a file");
        input.pReader = OpenPipe(path, error);
    }
    if (!input.pReader) Fail(input.path, error.message());
    return input;
}

/// A pipe's end is still to come.
SourceDescription Describe(CInputReader& reader) {
    if (reader.IsSeekable()) return CSourceAnalyzer::Describe(&reader);
    LONGLONG llTotal = 0, llAvailable = 0;
    reader.Length(&llTotal, &llAvailable);
    std::vector<std::uint8_t> beginning(static_cast<std::size_t>(llAvailable));
    reader.SyncRead(0, static_cast<LONG>(llAvailable), beginning.data());
    return CSourceAnalyzer::DescribeBeginning(beginning);
}

/// The class of what the filter takes with its switch AssumeMap on, see CSource.
int GetAssumedClass(const Input& input) {
    const SourceDescription& description = input.description;
    const bool bProgramStream =
        description.container == EContainer::ProgramStream && !description.streams.empty();
    const bool bUnsure = input.nClass == kClassNotRecognised || input.nClass == kClassMpeg4VideoEs;
    return bProgramStream && bUnsure ? description.GetStreamClass() : input.nClass;
}

/// That of the whole source, else the one in its first pack header, which need not be true.
std::uint32_t MeasureBitRate(const SourceDescription& description) {
    const std::int64_t llBitRate = GetBitRate(description);
    const bool bKnown = llBitRate > 0 && llBitRate <= std::numeric_limits<std::uint32_t>::max();
    return bKnown ? static_cast<std::uint32_t>(llBitRate) : description.nMuxRate;
}

/// The error of an input that is not what is wanted.
/// @param pszMissing  what the probe has missed.
[[noreturn]] void FailUnusable(const Input& input, bool bDescribed, const char* pszMissing) {
    CheckReadErrors(input);
    if (!bDescribed) Fail(input.path, std::string("class 6, not recognised; missing: ") + pszMissing);
    if (input.description.container == EContainer::ProgramStream) pszMissing = "packets of video or audio";
    Fail(input.path, std::string("not recognised; missing: ") + pszMissing);
}

/// @param isUsable  whether the input is what is wanted.
template <class IsUsable>
Input OpenAndProbe(const std::filesystem::path& path, EAccess access, bool bDescribe, IsUsable isUsable) {
    Input input = OpenReader(path, access);
    CStreamTypeProbe probe;
    probe.SetReader(input.pReader.Get());
    input.nClass = probe.Probe();
    input.llLength = probe.GetTotalLength();
    if (input.llLength == 0) {
        CheckReadErrors(input);
        Fail(input.path, "the file is empty");
    }
    if (bDescribe) {
        input.description = Describe(*input.pReader.Get());
        input.nClass = GetAssumedClass(input);
    }
    if (!input.pReader->IsSeekable()) input.llLength = 0;
    if (!isUsable(input)) FailUnusable(input, bDescribe, probe.GetMissing());
    input.nVideoStreamType = probe.GetVideoStreamType();
    if (input.nVideoStreamType) input.nBitRate = probe.GetBitRate();
    if (bDescribe) input.nBitRate = MeasureBitRate(input.description);
    return input;
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

Input OpenInput(const std::filesystem::path& path, EAccess access, bool bDescribe) {
    return OpenAndProbe(path, access, bDescribe,
                        [](const Input& input) { return input.nClass != kClassNotRecognised; });
}

Input DescribeInput(const std::filesystem::path& path, EAccess access) {
    return OpenAndProbe(path, access, true,
                        [](const Input& input) { return !input.description.streams.empty(); });
}

bool IsProgramStream(const Input& input) {
    return input.nClass == kClassProgramMpeg4 || input.nClass == kClassProgramMpeg12;
}

void CheckReadErrors(const Input& input) {
    const std::int64_t llPosition = input.pReader->GetErrorPosition();
    if (llPosition >= 0) Fail(input.path, "cannot be read beyond byte " + std::to_string(llPosition));
    LONGLONG llTotal = 0, llAvailable = 0;
    const bool bKnown = input.llLength > 0 && SUCCEEDED(input.pReader->Length(&llTotal, &llAvailable));
    if (bKnown && llTotal < input.llLength) Fail(input.path, "has become shorter while it was read");
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

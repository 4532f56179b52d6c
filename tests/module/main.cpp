// Tests of the module as a host meets it: registered, found, connected and run by the system's own media graph. Nothing
// of the module's sources is used here.
//
//     module_tests CASE FILE [ARGUMENT]
//
// A case that passes prints what it reports and ends with 0; one that fails prints one line on standard error and ends
// with 1. After each case nothing of the module may be alive.
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <map>
#include <sstream>

#include "PageCases.h"
#include "control/Identifiers.h"
#include "support/ControlContract.h"

namespace kest {
namespace {

constexpr REFERENCE_TIME kSecond = 10'000'000;  // 100 ns
constexpr DWORD kQuietMs = 200;
constexpr int kStarts = 100;

bool CanUnloadModule() {
    const HMODULE hModule = GetModuleHandleW(L"KestDemux2Filter.dll");
    const FARPROC pFound = hModule ? GetProcAddress(hModule, "DllCanUnloadNow") : nullptr;
    Require(pFound != nullptr, "the module is not loaded");
    return reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(reinterpret_cast<void*>(pFound))() == S_OK;
}

/// The bytes of the first samples of both streams.
std::string GetBeginning(CModuleGraph& graph) {
    const CRecorder& recorder = graph.GetRecorder();
    return GetBytes(recorder.GetSamples(kAudio).at(0)) + GetBytes(recorder.GetSamples(kVideo).at(0));
}

/// No sample comes for a while.
void RequireQuiet(CModuleGraph& graph, const std::string& strState) {
    const CRecorder& recorder = graph.GetRecorder();
    const auto audio = recorder.GetSamples(kAudio), video = recorder.GetSamples(kVideo);
    Sleep(kQuietMs);
    Require(recorder.GetSamples(kAudio) == audio && recorder.GetSamples(kVideo) == video,
            "samples come while the graph is " + strState);
}

// ---------------- the cases; each returns its report

/// Every sample, pin after pin, as `kestdemux samples --json` lists them.
std::string GetList(const CRecorder& recorder) {
    std::string strList;
    for (const EStream stream : {kAudio, kVideo}) {
        for (const auto& strSample : recorder.GetSamples(stream)) strList += strSample + "\n";
    }
    return strList;
}

/// The samples of a file.
/// @param wszWhere  SECONDS [RATE COUNT], where to begin and how to play; trick play has so many samples of the video
///                  and no end. Empty: from the beginning, without a seek.
std::string ListSamples(const std::wstring& wszFile, const std::wstring& wszWhere) {
    CModuleGraph graph;
    graph.Build(wszFile);
    double dSeconds = 0, dRate = 1.0;
    std::size_t nCount = 0;
    std::wistringstream where(wszWhere);
    if (where >> dSeconds) {
        graph.Pause();  // each renderer holds a sample then: what comes next is of the new place
        if (where >> dRate >> nCount) graph.SetRate(dRate);
        graph.Seek(static_cast<REFERENCE_TIME>(dSeconds * kSecond));
    }
    if (nCount > 0) {
        graph.Run();
        graph.GetRecorder().RequireSamples(kVideo, nCount);
        RequireQuiet(graph, "past the end of trick play");
    } else {
        graph.RunToEnd();
    }
    graph.Stop();
    return GetList(graph.GetRecorder());
}

/// The samples of a file of whatever class that a source delivers.
std::string ListPushed(const std::wstring& wszFile, const std::wstring&) {
    CModuleGraph graph;
    graph.BuildPushed(wszFile);
    graph.RunToEnd();
    graph.Stop();
    return GetList(graph.GetRecorder());
}

/// Starts and stops: of three starts the first is stopped at once, the second when it is paused, the third, after a
/// seek, when samples come, which are those of the file's beginning.
std::string CheckStarts(const std::wstring& wszFile, const std::wstring&) {
    CModuleGraph graph;
    graph.Build(wszFile);
    std::string strBeginning;
    for (int i = 0; i < kStarts; ++i) {
        graph.GetRecorder().Begin();
        if (i % 3 != 0) graph.Pause();
        if (i % 3 == 2) graph.Seek(0);
        if (i % 3 != 1) graph.Run();
        if (i % 3 == 2) {
            graph.GetRecorder().RequireSamples(1);
            if (strBeginning.empty()) strBeginning = GetBeginning(graph);
            Require(GetBeginning(graph) == strBeginning, "a start is not at the beginning");
        }
        graph.Stop();
    }
    graph.Pause();
    graph.Seek(0);
    graph.RunToEnd();
    return std::to_string(kStarts) + " starts\n";
}

/// Pauses, runs and stops; goes on where it was stopped; seeks while it runs.
std::string CheckStates(const std::wstring& wszFile, const std::wstring&) {
    CModuleGraph graph;
    graph.Build(wszFile);
    graph.Pause();
    graph.GetRecorder().RequireSamples(1);
    RequireQuiet(graph, "paused");
    Require(!CanUnloadModule(), "the module may be unloaded while a graph holds it");
    graph.Run();
    graph.GetRecorder().RequireSamples(10);
    const std::string strBeginning = GetBeginning(graph);
    graph.Stop();
    RequireQuiet(graph, "stopped");

    graph.GetRecorder().Begin();
    graph.Run();
    graph.GetRecorder().RequireSamples(1);
    Require(GetBeginning(graph) != strBeginning, "the graph does not go on where it was stopped");

    REFERENCE_TIME rtTarget = 0, rtPosition = 0;
    RequireOk(graph.GetSeeking().GetDuration(&rtTarget), "the duration");
    rtTarget /= 2;
    const ULONGLONG nSeekTick = GetTickCount64();
    graph.Seek(rtTarget);
    graph.GetRecorder().RequireSamples(3);
    RequireOk(graph.GetSeeking().GetCurrentPosition(&rtPosition), "the position");
    const auto rtPassed = static_cast<REFERENCE_TIME>(GetTickCount64() - nSeekTick) * 10'000;
    Require(rtTarget > kSecond && rtPosition >= rtTarget && rtPosition <= rtTarget + rtPassed + kSecond / 10,
            "the position after a seek to " + std::to_string(rtTarget) + " is " + std::to_string(rtPosition));
    graph.RunToEnd();
    return {};
}

/// The host finds the filter by its merit when it is given a file.
std::string CheckMerit(const std::wstring& wszFile, const std::wstring&) {
    CModuleGraph graph;
    graph.BuildByHost(wszFile);
    graph.RunToEnd();
    graph.GetRecorder().RequireSamples(2);
    return "found by its merit\n";
}

/// The host's audio decoder, where it has one, makes PCM of what the audio pin delivers.
/// @param wszTrueTypes  not empty: the audio pin says what the stream is.
std::string CheckDecoder(const std::wstring& wszFile, const std::wstring& wszTrueTypes) {
    CModuleGraph graph;
    graph.SetTrueTypes(!wszTrueTypes.empty());
    CComPtr<IBaseFilter> pDecoder;
    CoCreateInstance(CLSID_CMpegAudioCodec, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(pDecoder.Put()));
    graph.Build(wszFile, pDecoder);
    graph.RunToEnd();
    graph.GetRecorder().RequireSamples(2);
    if (!pDecoder) return "no audio decoder\n";
    return "audio decoder: " + std::to_string(graph.GetRecorder().GetSamples(kAudio).size()) + " samples\n";
}

/// The filter does not accept a file that is no stream for it.
std::string CheckNoStream(const std::wstring& wszFile, const std::wstring&) {
    CModuleGraph graph;
    Require(graph.Open(wszFile) == VFW_E_NO_ACCEPTABLE_TYPES, "another result than that no type is accepted");
    return {};
}

/// The control interfaces of a filter outside every graph. @param wszFolder  where it may write.
std::string CheckControl(const std::wstring& wszFolder, const std::wstring&) {
    CComPtr<IUnknown> pFilter;
    RequireOk(CoCreateInstance(kFilterClass, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(pFilter.Put())),
              "the filter");
    CControlContract(pFilter.Get(), std::string(wszFolder.begin(), wszFolder.end())).Check();
    return {};
}

const std::map<std::wstring, std::string (*)(const std::wstring&, const std::wstring&)> kCases = {
    {L"samples", ListSamples},    {L"pushed", ListPushed},    {L"starts", CheckStarts},
    {L"states", CheckStates},     {L"merit", CheckMerit},     {L"decoder", CheckDecoder},
    {L"nostream", CheckNoStream}, {L"control", CheckControl}, {L"page", CheckPage},
    {L"show", ShowPage},
};

}  // namespace
}  // namespace kest

int wmain(int argc, wchar_t** argv) {
    try {
        kest::Require(argc >= 3 && kest::kCases.contains(argv[1]), "module_tests CASE FILE [ARGUMENT]");
        _setmode(_fileno(stdout), _O_BINARY);  // lines end as everywhere
        kest::RequireOk(CoInitializeEx(nullptr, COINIT_MULTITHREADED), "the system's objects");
        const std::string strReport = kest::kCases.at(argv[1])(argv[2], argc > 3 ? argv[3] : L"");
        kest::Require(kest::CanUnloadModule(), "something of the module is alive after its graph");
        std::fputs(strReport.c_str(), stdout);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "module_tests: %s\n", error.what());
        return 1;
    }
}

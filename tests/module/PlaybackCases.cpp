// The filter in a graph that plays: its samples and its states.
#include <algorithm>
#include <cstdlib>

#include "Cases.h"
#include "ModuleGraph.h"

namespace kest {
namespace {

constexpr REFERENCE_TIME kSecond = 10'000'000;  // 100 ns
constexpr DWORD kSampleTimeoutMs = 10'000;
constexpr DWORD kQuietMs = 200;
constexpr int kStarts = 100;

void RequireSamples(CModuleGraph& graph, std::size_t nCount) {
    Require(graph.GetRecorder().WaitForBoth(nCount, kSampleTimeoutMs), "too few samples come");
}

/// The samples since the last beginning of the record, from the first one of a new place on. During a seek's
/// flush a grabber may show more of the old place, which the renderer behind it refuses.
std::vector<SampleRecord> GetNewSamples(CModuleGraph& graph, EStream stream) {
    std::vector<SampleRecord> samples = graph.GetRecorder().GetSamples(stream);
    samples.erase(samples.begin(), std::ranges::find_if(samples, &SampleRecord::bDiscontinuity));
    return samples;
}

/// Waits until both streams have begun at a new place.
void RequireBeginnings(CModuleGraph& graph) {
    const ULONGLONG nBegin = GetTickCount64();
    for (const EStream stream : kStreams) {
        while (GetNewSamples(graph, stream).empty()) {
            Require(GetTickCount64() - nBegin < kSampleTimeoutMs, "a stream does not begin");
            Sleep(5);
        }
    }
}

/// Seeks in a paused graph. The renderers hold a sample each then, so that all that comes after the record
/// has begun anew is of the new place.
void SeekPaused(CModuleGraph& graph, REFERENCE_TIME rt) {
    graph.Pause();
    graph.GetRecorder().Begin();
    graph.Seek(rt);
}

/// The first samples of both streams, which have begun, by their bytes.
std::array<std::uint32_t, 2> GetFirstCrcs(CModuleGraph& graph) {
    std::array<std::uint32_t, 2> aCrcs{};
    for (const EStream stream : kStreams) {
        aCrcs[static_cast<std::size_t>(stream)] = GetNewSamples(graph, stream).at(0).nCrc;
    }
    return aCrcs;
}

/// Nothing comes for a while.
void RequireQuiet(CModuleGraph& graph, const std::string& strWhen) {
    const std::size_t nAudio = graph.GetRecorder().GetSamples(EStream::Audio).size();
    const std::size_t nVideo = graph.GetRecorder().GetSamples(EStream::Video).size();
    Sleep(kQuietMs);
    Require(nAudio == graph.GetRecorder().GetSamples(EStream::Audio).size() &&
                nVideo == graph.GetRecorder().GetSamples(EStream::Video).size(),
            "samples come while the graph is " + strWhen);
}

}  // namespace

std::string ListSamples(Arguments arguments) {
    CModuleGraph graph;
    graph.Build(arguments[0]);
    if (arguments.size() > 1) {
        SeekPaused(graph, static_cast<REFERENCE_TIME>(std::wcstod(arguments[1].c_str(), nullptr) * kSecond));
    }
    graph.Run();
    graph.WaitForEnd();
    graph.Stop();
    std::string strList;
    for (const EStream stream : kStreams) {
        for (const SampleRecord& sample : GetNewSamples(graph, stream)) {
            strList += (strList.empty() ? "" : "\n") + sample.ToJson(stream);
        }
    }
    return strList;
}

/// Of three starts the first is stopped at once, the second when it is paused, the third when samples come,
/// which are those of the file's beginning. The filter goes on where it was stopped, so that only a seek
/// brings that back.
std::string CheckStarts(Arguments arguments) {
    CModuleGraph graph;
    graph.Build(arguments[0]);
    graph.Run();
    RequireBeginnings(graph);
    graph.Stop();
    const std::array aBeginning = GetFirstCrcs(graph);
    for (int i = 1; i < kStarts; ++i) {
        graph.GetRecorder().Begin();
        if (i % 3 == 1) graph.Pause();
        if (i % 3 == 2) SeekPaused(graph, 0);
        if (i % 3 != 1) graph.Run();
        if (i % 3 == 2) RequireBeginnings(graph);
        graph.Stop();
        Require(i % 3 != 2 || GetFirstCrcs(graph) == aBeginning,
                "start " + std::to_string(i) + " is not at the beginning");
    }
    SeekPaused(graph, 0);
    graph.Run();
    graph.WaitForEnd();
    return std::to_string(kStarts) + " starts";
}

std::string CheckStates(Arguments arguments) {
    CModuleGraph graph;
    graph.Build(arguments[0]);
    graph.Pause();
    RequireSamples(graph, 1);
    RequireQuiet(graph, "paused");
    graph.Run();
    RequireSamples(graph, 10);
    const std::array aBeginning = GetFirstCrcs(graph);
    graph.Stop();
    RequireQuiet(graph, "stopped");

    graph.GetRecorder().Begin();
    graph.Run();
    RequireBeginnings(graph);
    Require(GetFirstCrcs(graph) != aBeginning, "the graph does not go on where it was stopped");

    const REFERENCE_TIME rtTarget = graph.GetDuration() / 2;
    Require(rtTarget > kSecond, "the graph is too short");
    const ULONGLONG nSeekTick = GetTickCount64();
    graph.Seek(rtTarget);
    graph.GetRecorder().Begin();
    RequireSamples(graph, 3);
    const REFERENCE_TIME rtPlayed = graph.GetPosition() - rtTarget;
    const auto rtPassed = static_cast<REFERENCE_TIME>(GetTickCount64() - nSeekTick) * 10'000;
    Require(rtPlayed >= 0 && rtPlayed <= rtPassed + kSecond / 10,
            "the position is " + std::to_string(rtPlayed) + " behind the seek's");
    graph.WaitForEnd();
    return {};
}

}  // namespace kest

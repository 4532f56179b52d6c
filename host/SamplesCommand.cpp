#include <array>
#include <cinttypes>
#include <cstdio>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "host/CommandError.h"
#include "host/Commands.h"
#include "host/DemuxGraph.h"
#include "host/Listing.h"
#include "host/ProgramSwitches.h"

namespace kest {
namespace {

using Times = std::optional<std::array<REFERENCE_TIME, 2>>;  // start and stop, 100 ns

Times GetTimes(IMediaSample& sample) {
    std::array<REFERENCE_TIME, 2> times{};
    return SUCCEEDED(sample.GetTime(&times[0], &times[1])) ? Times(times) : std::nullopt;
}

/// The listing of both pins, up to a number of samples.
class CSampleListing {
public:
    CSampleListing(bool bJson, std::uint64_t nCount)
        : m_listing(bJson,
                    "pin   event                     start                stop     size  crc32    flags"),
          m_nLeft(nCount) {}

    bool IsJson() const { return m_listing.IsJson(); }
    /// A line behind the last sample is left out.
    void Print(bool bSample, const std::string& strLine) {
        std::lock_guard lock(m_mutex);
        if (m_nLeft == 0) return;
        m_listing.Print(strLine);
        if (bSample && --m_nLeft == 0 && m_onEnough) m_onEnough();
    }
    void Commit() { m_listing.Commit(); }

    std::function<void()> m_onEnough;  // called with the last sample

private:
    CListing m_listing;
    std::mutex m_mutex;
    std::uint64_t m_nLeft;  // samples to come
};

/// Lists everything that leaves one output pin.
class CRecording final : public ISinkHandler {
public:
    CRecording(EStream stream, CSampleListing& listing)
        : m_pszPin(GetStreamName(stream)), m_listing(listing) {}

    void OnSample(IMediaSample& sample) override {
        const Times times = GetTimes(sample);
        const std::span<const std::uint8_t> payload = GetPayload(sample);
        const std::string strCrc = GetCrcText(payload);
        const bool bSyncPoint = sample.IsSyncPoint() == S_OK;
        const bool bDiscontinuity = sample.IsDiscontinuity() == S_OK;
        const bool bPreroll = sample.IsPreroll() == S_OK;
        if (m_listing.IsJson()) {
            PrintJson(kSample, {{"start", times ? nlohmann::ordered_json((*times)[0]) : nullptr},
                                {"stop", times ? nlohmann::ordered_json((*times)[1]) : nullptr},
                                {"size", payload.size()},
                                {"crc32", strCrc},
                                {"syncPoint", bSyncPoint},
                                {"discontinuity", bDiscontinuity},
                                {"preroll", bPreroll}});
        } else {
            std::array<char, 24> szSize{};
            std::snprintf(szSize.data(), szSize.size(), "%zu", payload.size());
            PrintText(kSample, times, szSize.data(),
                      strCrc + (bSyncPoint ? " sync-point" : "") + (bDiscontinuity ? " discontinuity" : "") +
                          (bPreroll ? " preroll" : ""));
        }
    }
    void OnNewSegment(REFERENCE_TIME rtStart, REFERENCE_TIME rtStop, double dRate) override {
        if (m_listing.IsJson()) {
            PrintJson("newSegment", {{"start", rtStart}, {"stop", rtStop}, {"rate", dRate}});
        } else {
            std::array<char, 40> szRate{};
            std::snprintf(szRate.data(), szRate.size(), "rate %.3g", dRate);
            PrintText("newSegment", {{rtStart, rtStop}}, "-", szRate.data());
        }
    }
    void OnBeginFlush() override { PrintEvent("beginFlush"); }
    void OnEndFlush() override { PrintEvent("endFlush"); }
    void OnEndOfStream() override { PrintEvent("endOfStream"); }

private:
    void PrintEvent(const char* pszEvent) {
        m_listing.IsJson() ? PrintJson(pszEvent, {}) : PrintText(pszEvent, std::nullopt, "-", "-");
    }
    void PrintJson(const char* pszEvent, const nlohmann::ordered_json::object_t& fields) {
        nlohmann::ordered_json line = {{"pin", m_pszPin}, {"event", pszEvent}};
        for (const auto& [strName, value] : fields) line[strName] = value;
        m_listing.Print(line["event"] == kSample, line.dump());
    }
    void PrintText(const char* pszEvent, const Times& times, const char* pszSize,
                   const std::string& strRest) {
        const auto ToText = [&times](std::size_t n) { return times ? std::to_string((*times)[n]) : "-"; };
        std::array<char, 96> szText{};
        std::snprintf(szText.data(), szText.size(), "%s %-11s %19s %19s %8s  ", m_pszPin, pszEvent,
                      ToText(0).c_str(), ToText(1).c_str(), pszSize);
        m_listing.Print(pszEvent == kSample, szText.data() + strRest);
    }

    static constexpr const char* kSample = "sample";

    const char* const m_pszPin;
    CSampleListing& m_listing;
};

}  // namespace

void RunSamples(const SamplesOptions& options) {
    const Input input = OpenInput(options.strFile, EAccess::FileOrPipe, !options.bPlain);
    if (options.dSeek || options.dRate != 1.0) {
        const auto Fail = [&input](const char* pszWhy) {
            throw CCommandError(kExitBadInput, input.path.string() + pszWhy);
        };
        if (!IsProgramStream(input))
            Fail(": only a program stream is played at another rate or from another time");
        if (!input.pReader->IsSeekable()) Fail(": not seekable");
    }
    CSampleListing listing(options.bJson, options.nCount);
    CRecording video(EStream::Video, listing);
    CRecording audio(EStream::Audio, listing);
    CDemuxGraph graph(input, CProgramSwitches(options, input), &video, &audio,
                      {.pace = CDemuxGraph::EPace::Timed,
                       .strModule = options.strModule,
                       .bElementaryTiming = options.timing == ETsTiming::Elementary,
                       .bQuiet = options.bQuiet});
    listing.m_onEnough = [&graph] { graph.End(); };
    if (options.dSeek || options.dRate != 1.0) graph.Seek(options.dSeek.value_or(0), options.dRate);
    graph.RunToEnd();
    listing.Commit();
}

}  // namespace kest

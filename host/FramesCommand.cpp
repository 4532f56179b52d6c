#include <array>
#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "host/Commands.h"
#include "host/CoreRun.h"
#include "host/Listing.h"
#include "host/ProgramSwitches.h"

namespace kest {
namespace {

/// One record as a line of the listing.
struct FrameLine {
    const char* pszStream;
    std::uint64_t nIndex;  // within the stream
    std::size_t nSize;
    std::string strCrc;
    const FRAME_INFO& info;
    bool bNoTimes;

    std::string ToJson() const {
        const nlohmann::ordered_json line = {{"stream", pszStream},
                                             {"index", nIndex},
                                             {"size", nSize},
                                             {"pts", OrNull(info.llPts)},
                                             {"dts", OrNull(info.llDts)},
                                             {"position", info.llFilePos},
                                             {"discontinuity", info.bDiscontinuity != 0},
                                             {"segmentMarker", info.bSegmentMarker != 0},
                                             {"noVideo", info.bNoVideo != 0},
                                             {"endOfStream", info.bEndOfStream != 0},
                                             {"crc32", strCrc}};
        return line.dump();
    }

    std::string ToText() const {
        std::array<char, 160> szText{};
        std::snprintf(szText.data(), szText.size(),
                      "%s %8" PRIu64 " %8zu %12s %12s %12" PRId64 "  %s%s%s%s%s", pszStream, nIndex, nSize,
                      OrDash(info.llPts).c_str(), OrDash(info.llDts).c_str(), info.llFilePos, strCrc.c_str(),
                      info.bDiscontinuity ? " discontinuity" : "",
                      info.bSegmentMarker ? " segment-marker" : "", info.bNoVideo ? " no-video" : "",
                      info.bEndOfStream ? " end-of-stream" : "");
        return szText.data();
    }

private:
    nlohmann::ordered_json OrNull(std::int64_t llTime) const {
        return bNoTimes ? nullptr : nlohmann::ordered_json(llTime);
    }
    std::string OrDash(std::int64_t llTime) const { return bNoTimes ? "-" : std::to_string(llTime); }
};

}  // namespace

void RunFrames(const FramesOptions& options) {
    const Input input = OpenInput(options.strFile, EAccess::File, !options.bPlain);
    const CProgramSwitches switches(options, input);
    const CoreOptions coreOptions = {
        .settings =
            MakeParseSettings(switches, static_cast<std::uint32_t>(switches.Get(ESwitch::VideoBlockSize))),
        .timing = options.timing,
        .dRate = options.dRate,
        .llFrom = options.llFrom,
        .nCount = options.nCount,
        .bQuiet = options.bQuiet,
    };
    CListing listing(options.bJson,
                     "stream    index     size          pts          dts     position  crc32    flags");
    std::array<std::uint64_t, 2> anIndex{};  // each used by its stream's thread alone
    const auto PrintFrame = [&](EStream stream, const FRAME_INFO& info,
                                std::span<const std::uint8_t> payload) {
        const std::uint64_t nIndex = anIndex[static_cast<std::size_t>(stream)]++;
        const FrameLine line{
            GetStreamName(stream), nIndex, payload.size(),
            GetCrcText(payload),   info,   coreOptions.settings.bDrain && info.llPts == kNoFrameTime};
        listing.Print(listing.IsJson() ? line.ToJson() : line.ToText());
    };
    RunCore(input, coreOptions, PrintFrame);
    listing.Commit();
}

}  // namespace kest

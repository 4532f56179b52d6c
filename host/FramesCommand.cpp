#include <zlib.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

#include "host/Commands.h"
#include "host/CoreRun.h"
#include "host/OutputFile.h"

namespace kest {
namespace {

std::string ToHex(std::uint32_t nValue) {
    std::array<char, 9> szText{};
    std::snprintf(szText.data(), szText.size(), "%08" PRIx32, nValue);
    return szText.data();
}

/// One record as a line of the listing.
struct FrameLine {
    const char* pszStream;
    std::uint64_t nIndex;  // within the stream
    std::size_t nSize;
    std::uint32_t nCrc;
    const FRAME_INFO& info;

    std::string ToJson() const {
        const nlohmann::ordered_json line = {{"stream", pszStream},
                                             {"index", nIndex},
                                             {"size", nSize},
                                             {"pts", info.llPts},
                                             {"dts", info.llDts},
                                             {"position", info.llFilePos},
                                             {"discontinuity", info.bDiscontinuity != 0},
                                             {"segmentMarker", info.bSegmentMarker != 0},
                                             {"noVideo", info.bNoVideo != 0},
                                             {"endOfStream", info.bEndOfStream != 0},
                                             {"crc32", ToHex(nCrc)}};
        return line.dump() + "\n";
    }

    std::string ToText() const {
        std::array<char, 160> szText{};
        std::snprintf(szText.data(), szText.size(),
                      "%s %8" PRIu64 " %8zu %12" PRId64 " %12" PRId64 " %12" PRId64 "  %s%s%s%s%s\n",
                      pszStream, nIndex, nSize, info.llPts, info.llDts, info.llFilePos, ToHex(nCrc).c_str(),
                      info.bDiscontinuity ? " discontinuity" : "",
                      info.bSegmentMarker ? " segment-marker" : "", info.bNoVideo ? " no-video" : "",
                      info.bEndOfStream ? " end-of-stream" : "");
        return szText.data();
    }
};

}  // namespace

void RunFrames(const FramesOptions& options) {
    const Input input = OpenInput(options.strFile);
    RequireProgramStream(input);
    COutputFile output("-", false);
    auto Print = [&output](const std::string& strLine) {
        output.Write({reinterpret_cast<const std::uint8_t*>(strLine.data()), strLine.size()});
    };
    if (!options.bJson)
        Print("stream    index     size          pts          dts     position  crc32    flags\n");

    std::mutex mutex;  // one line at a time
    std::array<std::uint64_t, 2> anIndex{};
    RunCore(input, [&](EStream stream, const FRAME_INFO& info, std::span<const std::uint8_t> payload) {
        const auto nCrc =
            static_cast<std::uint32_t>(crc32_z(crc32_z(0, nullptr, 0), payload.data(), payload.size()));
        std::lock_guard lock(mutex);
        const std::uint64_t nIndex = anIndex[static_cast<std::size_t>(stream)]++;
        const FrameLine line{stream == EStream::Video ? "video" : "audio", nIndex, payload.size(), nCrc,
                             info};
        Print(options.bJson ? line.ToJson() : line.ToText());
    });
    output.Commit();
}

}  // namespace kest

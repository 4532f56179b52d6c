// What `kestdemux demux` writes is what the packets of the two streams hold, from the first byte to the last. The
// other side of the comparison is an extraction that knows nothing of the demuxers: it goes from header to header and
// trusts all lengths, as it may with these streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "support/TestData.h"

namespace kest {
namespace {

namespace fs = std::filesystem;
using File = std::vector<std::uint8_t>;
using Streams = std::map<unsigned, File>;  // payloads by stream_id or PID

File ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Bytes of the header of a PES packet, or of a packet of an MPEG-1 system stream, that begins at n.
std::size_t HeaderSize(const File& file, std::size_t n) {
    if ((file[n + 6] & 0xC0) == 0x80) return 9U + file[n + 8];
    std::size_t nAt = 6;
    while (file[n + nAt] == 0xFF) ++nAt;                       // stuffing
    if ((file[n + nAt] & 0xC0) == 0x40) nAt += 2;              // buffer size
    return nAt + std::array{1, 1, 5, 10}[file[n + nAt] >> 4];  // none, PTS, PTS and DTS
}

Streams ExtractProgram(const File& file) {
    Streams streams;
    for (std::size_t n = 0; n + 6 <= file.size();) {
        const unsigned nId = file[n + 3];
        if (file[n + 2] != 1) {
            ++n;  // zeros between packets
        } else if (nId == 0xBA && file[n + 4] >> 6 == 0) {
            n += 12;
        } else if (nId == 0xBA) {
            n += 14U + file[n + 13] % 8;
        } else {
            const std::size_t nEnd = std::min(n + 6 + file[n + 4] * 256 + file[n + 5], file.size());
            const auto itEnd = file.begin() + static_cast<long>(nEnd);
            if (nId >= 0xC0 && nId <= 0xEF)
                streams[nId].insert(streams[nId].end(),
                                    file.begin() + static_cast<long>(n + HeaderSize(file, n)), itEnd);
            n = nEnd;
        }
    }
    return streams;
}

Streams ExtractTransport(const File& file) {
    Streams streams;
    for (std::size_t n = 0; n + 188 <= file.size(); n += 188) {
        const unsigned nPid = file[n + 1] % 32 * 256U + file[n + 2];
        std::size_t nAt = n + 4;
        if (file[n + 3] & 0x20) nAt += 1U + file[nAt];
        if (!(file[n + 3] & 0x10)) continue;
        const bool bPes = nAt + 9 < n + 188 && file[nAt] == 0 && file[nAt + 1] == 0 && file[nAt + 2] == 1;
        if (file[n + 1] & 0x40 && bPes) nAt += HeaderSize(file, nAt);
        if (file[n + 1] & 0x40 && !bPes) continue;  // a table
        File& payload = streams[nPid];
        payload.insert(payload.end(), file.begin() + static_cast<long>(nAt),
                       file.begin() + static_cast<long>(n + 188));
    }
    return streams;
}

class Payload : public testing::TestWithParam<std::string> {};

TEST_P(Payload, IsWrittenWholeByDemux) {
    const fs::path input = TestDataPath(GetParam()), video = testing::TempDir() + GetParam() + ".v",
                   audio = testing::TempDir() + GetParam() + ".a";
    const File file = ReadFile(input);
    Streams streams = file[0] == 0x47   ? ExtractTransport(file)
                      : file[3] == 0xBA ? ExtractProgram(file)
                                        : Streams{{0xE0, file}};
    fs::remove(video), fs::remove(audio);
    const std::string strCommand = "timeout 60 " KEST_PROGRAM " demux -q --video " + video.string() +
                                   " --audio " + audio.string() + " " + input.string() + " >/dev/null";
    ASSERT_EQ(std::system(strCommand.c_str()), 0);
    const bool bTransport = file[0] == 0x47;  // whose PIDs are those of the tool that made these streams
    EXPECT_TRUE(ReadFile(video) == streams[bTransport ? 0x100 : 0xE0]) << fs::file_size(video);
    EXPECT_TRUE(ReadFile(audio) == streams[bTransport ? 0x101 : 0xC0]);
}

std::vector<std::string> ListStreams() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(KEST_TEST_DATA)) {
        if (entry.is_regular_file() && entry.path().extension() != ".md")
            names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
}

INSTANTIATE_TEST_SUITE_P(RealStreams, Payload, testing::ValuesIn(ListStreams()), [](const auto& test) {
    std::string strName = test.param;
    std::ranges::replace(strName, '.', '_');
    return strName;
});

}  // namespace
}  // namespace kest

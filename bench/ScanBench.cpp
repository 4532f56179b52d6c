// How fast a program stream is parsed, and how fast bytes without start codes are searched.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "demux/Mpeg2PsParser.h"
#include "demux/StartCodeSearch.h"

namespace kest {
namespace {

/// Random bytes, as compressed pictures nearly are, without the patterns that are searched for.
std::vector<std::uint8_t> PatternFreeBytes(std::size_t n) {
    std::mt19937 random(1);
    std::vector<std::uint8_t> bytes(n);
    for (auto& nByte : bytes) nByte = static_cast<std::uint8_t>(random());
    for (std::size_t i = 2; i < n; ++i) {
        if (bytes[i] == 1 && bytes[i - 1] == 0) bytes[i] = 2;
        if (bytes[i] == 0 && bytes[i - 2] == 0x47) bytes[i] = 3;
    }
    return bytes;
}

template <auto Find>
void Search(benchmark::State& state) {
    const auto bytes = PatternFreeBytes(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(Find(bytes));
    state.SetBytesProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(Search<FindStartCodePrefix>)->Arg(1024)->Arg(32768);
BENCHMARK(Search<FindPatPacket>)->Arg(1024)->Arg(32768);

/// Gives a block again and again.
class CRepeatedSource final : public CByteSource {
public:
    explicit CRepeatedSource(Bytes block) : m_block(block) {}
    std::uint32_t Fetch(const FetchRequest& request) override {
        std::copy(m_block.begin(), m_block.end(), request.room.begin());
        return static_cast<std::uint32_t>(m_block.size());
    }

private:
    const Bytes m_block;
};

/// Parses video packets of state.range(0) bytes, eight to a frame, into a queue that nobody reads.
void Parse(benchmark::State& state) {
    const auto nPacket = static_cast<std::size_t>(state.range(0));
    std::vector<std::uint8_t> block = PatternFreeBytes(8 * nPacket);
    for (std::size_t i = 0; i < 8; ++i) {
        const std::size_t nLength = nPacket - 6;
        const std::uint8_t abHeader[] = {0,
                                         0,
                                         1,
                                         0xE0,
                                         static_cast<std::uint8_t>(nLength >> 8),
                                         static_cast<std::uint8_t>(nLength),
                                         0x80,
                                         static_cast<std::uint8_t>(i == 0 ? 0x80 : 0x00),
                                         5,
                                         0x21,
                                         0,
                                         1,
                                         0,
                                         1};
        std::copy(std::begin(abHeader), std::end(abHeader),
                  block.begin() + static_cast<std::ptrdiff_t>(i * nPacket));
    }
    CRepeatedSource source(block);
    CStreamInput input;
    input.SetSource(&source, true);
    CBlockMemFileEx queue(524288, 6, sizeof(FRAME_INFO));
    queue.WOpen();
    CFrameOutput video({524288, 524288, 6}), audio({65536, 32768, 32});
    video.Attach(&queue);
    audio.Attach(&queue);
    CMpeg2PsParser parser(input, video, audio);
    parser.Begin();
    for (auto _ : state) parser.ParseUnit();
    state.SetBytesProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(Parse)->Arg(188)->Arg(2048)->Arg(8000);

}  // namespace
}  // namespace kest

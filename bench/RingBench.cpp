// How fast bytes pass through the ring buffer from a writer to a reader thread.
#include <benchmark/benchmark.h>

#include <thread>
#include <vector>

#include "plumbing/RingBuffer.h"

namespace kest {
namespace {

constexpr std::uint32_t kCapacity = 2 * 1024 * 1024;  // of the demux cores' buffers
constexpr std::uint32_t kMaxChunk = 32768;

/// Writes and reads chunks of state.range(0) bytes.
void RingTransfer(benchmark::State& state) {
    const auto nChunk = static_cast<std::size_t>(state.range(0));
    CRingBuffer ring(kCapacity);
    ring.OpenWriter(kMaxChunk);
    const int nReader = ring.OpenReader(kMaxChunk);
    std::thread reader([&] {
        std::vector<std::uint8_t> chunk(nChunk);
        while (ring.Read(nReader, chunk) > 0) benchmark::DoNotOptimize(chunk.data());
    });
    const std::vector<std::uint8_t> chunk(nChunk, 0x47);
    for (auto _ : state) ring.WriteWait(chunk);
    state.SetBytesProcessed(static_cast<std::int64_t>(nChunk) *
                            static_cast<std::int64_t>(state.iterations()));
    ring.CloseAll();
    reader.join();
}
BENCHMARK(RingTransfer)->Arg(2048)->Arg(16384)->UseRealTime();

}  // namespace
}  // namespace kest

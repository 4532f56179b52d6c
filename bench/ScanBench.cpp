// How fast the resynchronisation passes over bytes that hold no start code.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

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

}  // namespace
}  // namespace kest

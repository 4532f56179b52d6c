// How fast frames pass through a block queue from a writer to a reader thread.
#include <benchmark/benchmark.h>

#include <thread>
#include <vector>

#include "plumbing/BlockMemFile.h"

namespace kest {
namespace {

constexpr std::uint32_t kBlockSize = 163840;  // of the video queue
constexpr std::uint32_t kBlockCount = 80;

struct Info {  // of the size of a frame's record
    std::uint64_t aFields[8];
};

/// Writes and reads frames of state.range(0) bytes.
void QueueTransfer(benchmark::State& state) {
    CBlockMemFileEx queue(kBlockSize, kBlockCount, sizeof(Info));
    queue.WOpen();
    const int nReader = queue.ROpen();
    std::thread reader([&] {
        std::vector<std::uint8_t> frame(kBlockSize);
        Info info{};
        while (queue.ReadEx(nReader, frame, &info, kInfinite).IsTaken()) benchmark::DoNotOptimize(frame.data());
    });
    const std::vector<std::uint8_t> frame(static_cast<std::size_t>(state.range(0)), 0x47);
    const Info info{};
    for (auto _ : state) queue.WriteEx(frame, &info, kInfinite);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
    state.SetBytesProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
    queue.WClose();
    queue.RClose(nReader);
    reader.join();
}
BENCHMARK(QueueTransfer)->Arg(384)->Arg(16384)->Arg(kBlockSize)->UseRealTime();

}  // namespace
}  // namespace kest

// How fast frames pass through a block queue from a writer to a reader thread, and how often the threads sleep.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
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

/// Works for some time.
void Work(std::chrono::nanoseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (time.count() > 0 && std::chrono::steady_clock::now() < end) {
    }
}

/// Times that a thread of the process has given its processor away so far.
double Sleeps() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_nvcsw);
}

/// Writes and reads frames of state.range(0) bytes; the writer works state.range(1) ns for each, the reader
/// state.range(2).
void QueueTransfer(benchmark::State& state) {
    const std::chrono::nanoseconds writing(state.range(1)), reading(state.range(2));
    CBlockMemFileEx queue(kBlockSize, kBlockCount, sizeof(Info));
    queue.WOpen();
    const int nReader = queue.ROpen();
    std::thread reader([&] {
        std::vector<std::uint8_t> frame(kBlockSize);
        Info info{};
        while (queue.ReadEx(nReader, frame, &info, kInfinite).IsTaken()) {
            benchmark::DoNotOptimize(frame.data());
            Work(reading);
        }
    });
    const std::vector<std::uint8_t> frame(static_cast<std::size_t>(state.range(0)), 0x47);
    const Info info{};
    const double nSleeps = Sleeps();
    for (auto _ : state) {
        Work(writing);
        queue.WriteEx(frame, &info, kInfinite);
    }
    state.counters["sleeps"] = benchmark::Counter(Sleeps() - nSleeps, benchmark::Counter::kAvgIterations);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
    state.SetBytesProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
    queue.WClose();
    queue.RClose(nReader);
    reader.join();
}
BENCHMARK(QueueTransfer)
    ->ArgNames({"bytes", "writing", "reading"})
    ->Args({384, 0, 0})
    ->Args({16384, 0, 0})
    ->Args({kBlockSize, 0, 0})
    ->Args({4096, 8000, 0})  // the reader runs dry at every frame
    ->Args({4096, 0, 8000})  // the queue is always full
    ->UseRealTime();

}  // namespace
}  // namespace kest

// What the demuxers share, with threads: the program-stream demuxer stands for all.
#include "demux/DemuxWorker.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <new>

#include "support/CaptureTexts.h"
#include "support/CoreRunner.h"
#include "support/TestThreads.h"

// Arrays, as the storage of ring and queues, are had only while there is memory; other allocations do not count.
static std::atomic<int> g_nArraysToGo{-1};  // then none is left; below 0: no limit
void* operator new[](std::size_t n) {
    void* p = g_nArraysToGo == 0 ? nullptr : std::malloc(n);
    if (!p) throw std::bad_alloc();
    if (g_nArraysToGo > 0) --g_nArraysToGo;
    return p;
}
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace kest {
namespace {

using Builder = CProgramStreamBuilder;

/// Video packets of 1014 bytes, numbered from nFirst by their PTS and their payload.
Builder Pictures(int nCount, int nFirst = 0) {
    Builder b;
    for (int i = nFirst; i < nFirst + nCount; ++i)
        b.Pes(0xE0, ByteVector(1000, static_cast<std::uint8_t>(i)), i);
    return b;
}

/// A source without end that counts what is read of it, and can be made to hold its readers.
struct CEndlessReader : CMemoryReader {
    CEndlessReader() : CMemoryReader({}) {}
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG, LONG lLength, BYTE* pBuffer) override {
        if (bHold) evFlush.Wait();
        std::memset(pBuffer, 0xAA, static_cast<std::size_t>(lLength));
        ++nReads;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return evFlush.Set(), S_OK; }

    CEvent evFlush;
    std::atomic<bool> bHold{false};
    std::atomic<int> nReads{0};
};

template <class Round>
void RunForASecond(Round round) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    for (int i = 0; std::chrono::steady_clock::now() < end && !testing::Test::HasFailure(); ++i) round(i);
}

/// Takes the video frames up to the end-of-stream records of both streams.
std::vector<Frame> TakeVideo(KestMpeg2PsDemux& core) {
    std::vector<Frame> frames;
    while (auto frame = TakeFrame(core.GetVideoQueue(), kTooLongMs)) {
        if (frame->info.bEndOfStream) break;
        frames.push_back(*frame);
    }
    const auto end = TakeFrame(core.GetAudioQueue(), kTooLongMs);
    EXPECT_TRUE(end && end->info.bEndOfStream);
    EXPECT_FALSE(TakeFrame(core.GetVideoQueue(), 30)) << "once is enough";
    return frames;
}

TEST(DemuxWorker, EndsItsStreamsOnceEachTimeTheSourceRunsDry) {
    const Builder b = Pictures(100).Section(0xBE, 60000);
    CMemoryReader reader(b.Get());
    KestMpeg2PsPullDemux core;
    core.SetReader(&reader);
    ASSERT_EQ(core.Open(nullptr, nullptr, nullptr), 0);
    core.Resume();
    for (std::int64_t llBlocks = 0, llNext = 0; llBlocks <= 3; ++llBlocks) {  // it goes on where it ran dry
        reader.SetEnd(static_cast<std::size_t>(llBlocks) * 16384);
        for (const Frame& frame : TakeVideo(core)) {
            EXPECT_GE(frame.info.llPts, llNext);
            llNext = frame.info.llPts + 1;
        }
        EXPECT_GE(llNext, 15 * llBlocks);
    }
    reader.SetEnd(SIZE_MAX);
    for (const int nStart : {40, 98, 10}) {
        if (nStart == 98) {  // of a stopped demuxer, a reset has nothing to reset
            core.Stop();
            core.Reset();
            core.Restart();
        }
        core.NewSegment(nStart * 1014, static_cast<std::int64_t>(b.Size()));
        core.Resume();
        const std::vector<Frame> frames = TakeVideo(core);
        ASSERT_EQ(frames.size(), static_cast<std::size_t>(99 - nStart));
        EXPECT_EQ(frames[0].info.llFilePos, nStart * 1014);
        EXPECT_TRUE(frames[0].info.bDiscontinuity);
    }
}

TEST(DemuxWorker, StopEndsReadingStress) {
    CEndlessReader reader;
    KestMpeg2PsPullDemux core;
    core.SetReader(&reader);
    core.Open(nullptr, nullptr, nullptr);
    RunForASecond([&](int i) {
        core.Resume();
        if (i % 3 == 1) core.NewSegment(i);
        if (i % 3 == 2) core.Reset();
        Spin(i % 977 * 10);
        const int nReads = reader.nReads;
        core.Stop();
        EXPECT_LE(reader.nReads - nReads, 10000) << "the source is read on";
        EXPECT_NE(core.GetExitCode(), CWorkerThread::kExitKilled);
        core.Restart();
    });
}

TEST(DemuxWorker, NothingPushedAfterASeekOrAResetIsLostStress) {
    KestMpeg2PsPullDemux core;
    core.Open(nullptr, nullptr, nullptr);
    core.Resume();
    RunForASecond([&](int i) {
        core.PushData(
            Pictures(2, 100).Fill(i % 2000, 0xAA).Get());  // and the demuxer waits inside, or not yet
        Spin(i % 977 * 10);
        i % 2 ? core.NewSegment(0) : core.Reset();
        ASSERT_GT(core.PushData(Pictures(5).Section(0xBE, 1100).Get()), 0);
        std::optional<Frame> frame = TakeFrame(core.GetVideoQueue(), kTooLongMs);
        while (i % 2 == 0 && frame && frame->info.llPts >= 4)
            frame = TakeFrame(core.GetVideoQueue(), kTooLongMs);
        for (int k = 0; k < 4; ++k, frame = k < 4 ? TakeFrame(core.GetVideoQueue(), kTooLongMs) : frame) {
            ASSERT_TRUE(frame);
            ASSERT_EQ(frame->info.llPts, k) << "in round " << i;
            ASSERT_EQ(frame->payload, ByteVector(1000, static_cast<std::uint8_t>(k)));
        }
    });
}

TEST(DemuxWorker, TakesAnyAmountThatIsPushedUntilItEnds) {
    const Builder b = Pictures(3000).Section(0xBE, 1100);  // more than its ring holds
    KestMpeg2PsPullDemux core;
    EXPECT_EQ(core.PushData(b.Get()), 0) << "it is not open";
    core.Open(nullptr, nullptr, nullptr);
    core.Resume();
    CTestThread pusher([&] { EXPECT_EQ(core.PushData(b.Get()), static_cast<int>(b.Size())); });
    for (int i = 0; i < 2999; ++i) {
        const auto frame = TakeFrame(core.GetVideoQueue(), kTooLongMs);
        ASSERT_TRUE(frame && frame->info.llPts == i && frame->info.llFilePos == 0) << i;
    }
    pusher.Join();
    core.Stop();
    EXPECT_EQ(core.PushData(b.Get()), 0);
}

TEST(DemuxWorker, StopsByForceWhatDoesNotEnd) {
    const Builder b = Pictures(20).Section(0xBE, 2000);
    CMemoryReader reader(b.Get());
    CBlockMemFileEx video(4096, 2, sizeof(FRAME_INFO)), audio(4096, 2, sizeof(FRAME_INFO));
    video.WOpen(), video.ROpen(), audio.WOpen(), audio.ROpen();
    KestMpeg2PsPullDemux core(/*nStopBoundMs=*/20);
    core.SetReader(&reader);
    core.Open(nullptr, &video, &audio);
    core.Resume();
    ASSERT_TRUE(Eventually([&] { return video.GetFreeBlocks() == 0; }));
    core.Stop();  // nobody closes the queue
    EXPECT_EQ(core.GetExitCode(), CWorkerThread::kExitKilled);

    CEndlessReader holding;
    holding.bHold = true;
    CCaptureTexts texts;
    core.SetReader(&holding);
    core.Restart();
    core.Resume();
    SleepMs(kSettleMs);
    core.Stop();  // the reader lets go only when it is flushed
    EXPECT_EQ(texts.DebugTexts(), "") << "it came back without being waited for";
    EXPECT_FALSE(core.IsRunning());
}

TEST(DemuxWorker, IsAsBeforeWhenThereIsNoMemoryToOpen) {
    KestMpeg2PsPullDemux core;
    for (int nArrays = 0; nArrays < 7; ++nArrays) {  // of ring, and of two queues three each
        g_nArraysToGo = nArrays;
        EXPECT_THROW(core.Open(nullptr, nullptr, nullptr), std::bad_alloc) << nArrays;
        g_nArraysToGo = -1;
        core.Reset();
        core.NewSegment(0);
        core.Restart();
        core.Resume();
        core.Stop();
    }
    CBlockMemFileEx audio(4096, 2, sizeof(FRAME_INFO));
    CRingBuffer full(16);
    EXPECT_LT(core.Open(&full, nullptr, &audio), 0) << "the ring is too small";
    EXPECT_EQ(core.Open(nullptr, nullptr, &audio), 0);
}

}  // namespace
}  // namespace kest

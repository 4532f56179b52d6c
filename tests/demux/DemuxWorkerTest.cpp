// What the demuxers share, with threads: the program-stream demuxer stands for all.
#include "demux/DemuxWorker.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <new>

#include "support/CaptureTexts.h"
#include "support/CoreRunner.h"
#include "support/TestData.h"
#include "support/TestThreads.h"

// Arrays, such as the storage of ring and queues, can be had only while this is not 0.
static std::atomic<int> g_nArraysLeft{-1};
void* operator new[](std::size_t n) {
    void* p = g_nArraysLeft == 0 ? nullptr : std::malloc(n);
    if (!p) throw std::bad_alloc();
    if (g_nArraysLeft > 0) --g_nArraysLeft;
    return p;
}
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace kest {
namespace {

/// Video packets of 1014 bytes, numbered from nFirst by their PTS and their payload; and padding.
ByteVector Pictures(int nCount, int nFirst = 0) {
    CProgramStreamBuilder b;
    for (int i = nFirst; i < nFirst + nCount; ++i)
        b.Pes(0xE0, ByteVector(1000, static_cast<std::uint8_t>(i)), i);
    return b.Section(0xBE, 2000).Get();
}

/// A source without end that counts what is read of it, and can be made to hold its readers until it is
/// flushed.
struct CEndlessReader : CMemoryReader {
    explicit CEndlessReader(bool b = false) : CMemoryReader({}), bHold(b) {}
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG, LONG lLength, BYTE* pBuffer) override {
        while (bHold) std::this_thread::yield();
        std::memset(pBuffer, 0xAA, static_cast<std::size_t>(lLength));
        ++nReads;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return bHold = false, S_OK; }
    std::atomic<bool> bHold;  // no wait of ours, that would end by force
    std::atomic<int> nReads{0};
};

/// Opens a demuxer and lets it run; with a reader it pulls.
void Start(KestMpeg2PsPullDemux& core, IAsyncReader* pReader = nullptr,
           CBlockMemFileEx* pVideoQueue = nullptr) {
    core.SetReader(pReader);
    ASSERT_EQ(core.Open(nullptr, pVideoQueue, nullptr), 0);
    core.Resume();
}

/// The next frame of the video. None: the end of the stream.
std::optional<Frame> Take(KestMpeg2PsPullDemux& core) {
    auto frame = TakeFrame(core.GetVideoQueue(), kTooLongMs);
    EXPECT_TRUE(frame);
    return frame && !frame->info.bEndOfStream ? frame : std::nullopt;
}

template <class Round>
void RunForASecond(Round round) {
    const auto nBegin = TickCount();
    for (int i = 0; TickCount() - nBegin < 1000 && !testing::Test::HasFailure(); ++i) round(i);
}

TEST(DemuxWorker, EndsItsStreamsOnceEachTimeTheSourceRunsDry) {
    const ByteVector bytes = Pictures(100);
    CMemoryReader reader(bytes);
    reader.SetEnd(0);
    KestMpeg2PsPullDemux core;
    Start(core, &reader);
    std::int64_t llNext = 0;
    auto TakeToTheEnd = [&] {
        for (std::optional<Frame> frame; (frame = Take(core)); llNext = frame->info.llPts + 1) {
            EXPECT_GE(frame->info.llPts, llNext);
            EXPECT_EQ(frame->info.llFilePos, 1014 * frame->info.llPts);
        }
        EXPECT_TRUE(TakeFrame(core.GetAudioQueue(), kTooLongMs)->info.bEndOfStream);
        EXPECT_FALSE(TakeFrame(core.GetVideoQueue(), 30)) << "once is enough";
    };
    for (std::size_t nBlocks = 0; nBlocks <= 3; ++nBlocks) {
        reader.SetEnd(nBlocks * 16384);
        TakeToTheEnd();  // it goes on where it ran dry
        EXPECT_GE(llNext, static_cast<std::int64_t>(15 * nBlocks));
    }
    reader.SetEnd(SIZE_MAX);
    for (const int nStart : {40, 98, 10}) {
        if (nStart == 98) {  // of a stopped demuxer, a reset has nothing to reset
            core.Stop();
            core.Reset();
            core.Restart();
        }
        core.NewSegment(nStart * 1014, static_cast<std::int64_t>(bytes.size()));
        core.Resume();
        const auto frame = Take(core);
        EXPECT_TRUE(frame && frame->info.llPts == nStart && frame->info.bDiscontinuity) << nStart;
        llNext = nStart + 1;
        TakeToTheEnd();
        EXPECT_EQ(llNext, 99);
    }
}

TEST(DemuxWorker, StopEndsReadingStress) {
    CEndlessReader reader;
    KestMpeg2PsPullDemux core;
    Start(core, &reader);
    RunForASecond([&](int i) {
        core.Resume();
        if (i % 3 == 1) core.NewSegment(i, INT64_MAX);
        core.SetRate(i % 7 - 3);  // there is no frame to be found: a step does not end by itself
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
    Start(core);
    RunForASecond([&](int i) {
        core.PushData(Bytes(Pictures(2, 100)).first(1014 + i % 3000));  // so that it waits inside, or not yet
        Spin(i % 977 * 10);
        i % 2 ? core.NewSegment(0) : core.Reset();
        core.PushData(Pictures(5));
        std::optional<Frame> frame = Take(core);
        while (i % 2 == 0 && frame && frame->info.llPts >= 4) frame = Take(core);  // ended before the reset
        for (int k = 0; k < 4; ++k) {
            if (k > 0) frame = Take(core);
            ASSERT_TRUE(frame && frame->info.llPts == k) << "in round " << i;
            ASSERT_EQ(frame->payload, ByteVector(1000, static_cast<std::uint8_t>(k)));
        }
    });
}

// Faults: the end does not wake a thread that waits for more, or comes before what was pushed; a drain that leaves the
// parser in the middle of something.
TEST(DemuxWorker, EndsWhatIsPushedWithItsLastByteStress) {
    KestMpeg2PsPullDemux core;
    core.SetSettings({.bDrain = true});
    CTestQueue video(600), audio(600);
    ASSERT_EQ(core.Open(nullptr, &video, &audio), 0);
    core.Resume();
    std::uint64_t llPushed = 0;
    RunForASecond([&](int i) {
        const ByteVector bytes = Pictures(5, i % 200);
        const std::size_t nPictures = 14 + static_cast<std::size_t>(i) * 7 % 5057;  // the rest is padding
        core.PushData(Bytes(bytes).first(nPictures));
        llPushed += nPictures;
        Spin(i % 977 * 10);
        core.EndInput();
        const std::uint32_t nBegin = TickCount();
        while (!core.HasTakenAll() && TickCount() - nBegin < kTooLongMs) std::this_thread::yield();
        ByteVector expected, payload;
        for (std::size_t k = 0; k < nPictures; ++k) {
            if (k % 1014 >= 14) expected.push_back(bytes[k]);
        }
        while (const auto frame = TakeFrame(video, 0))
            payload.insert(payload.end(), frame->payload.begin(), frame->payload.end());
        ASSERT_EQ(payload, expected) << "in round " << i;
        ASSERT_EQ(core.GetCounters().llBytesRead, llPushed);
    });
}

TEST(DemuxWorker, TakesMoreThanItsRingHoldsUntilItIsStopped) {
    const ByteVector bytes = Pictures(3000);
    KestMpeg2PsPullDemux core;
    Start(core);
    CTestThread pusher([&] { EXPECT_EQ(core.PushData(bytes), static_cast<int>(bytes.size())); });
    for (int i = 0; i < 2999; ++i) ASSERT_EQ(Take(core).value().info.llPts, i);
    pusher.Join();
    core.Stop();
    EXPECT_EQ(core.PushData(bytes), 0);
}

TEST(DemuxWorker, StopEndsAThreadThatWaitsForOthers) {
    const ByteVector bytes = Pictures(20);
    CMemoryReader reader(bytes);
    CEndlessReader holding(true);
    CBlockMemFileEx video(4096, 2, sizeof(FRAME_INFO));
    video.WOpen(), video.ROpen();
    CCaptureTexts texts;
    KestMpeg2PsPullDemux core(/*nStopBoundMs=*/20);
    Start(core, &reader, &video);
    ASSERT_TRUE(Eventually([&] { return video.GetFreeBlocks() == 0; }));
    core.Stop();  // nobody closes the queue
    EXPECT_EQ(core.GetExitCode(), CWorkerThread::kExitKilled);
    core.SetReader(&holding);
    core.Restart();
    core.Resume();
    SleepMs(kSettleMs);
    core.Stop();
    EXPECT_EQ(texts.DebugTexts(), "") << "the reader was flushed, so nobody waited for foreign code";
}

TEST(DemuxWorker, ChangesItsRateInEveryState) {
    CProgramStreamBuilder b;
    for (int i = 0; i < 100; ++i) b.Pes(0xE0, Stream("00 00 01 B6 00 *995"), i);
    CMemoryReader reader(b.Section(0xBE, 20000).Get());
    KestMpeg2PsPullDemux core;
    for (const double dRate : {double{NAN}, double{INFINITY}, 214748364.8, -214748364.9})
        EXPECT_FALSE(core.SetRate(dRate)) << dRate;
    for (const double dRate : {214748364.7, -214748364.8, 0.5}) EXPECT_TRUE(core.SetRate(dRate)) << dRate;
    core.SetReader(&reader);
    ASSERT_EQ(core.Open(nullptr, nullptr, nullptr), 0);
    core.NewSegment(0, static_cast<std::int64_t>(b.Size()));
    core.Resume();
    auto ExpectTrickFrame = [&](std::int64_t llNumber) {
        const auto frame = Take(core);
        ASSERT_TRUE(frame && frame->info.bSegmentMarker && !frame->info.bNoVideo &&
                    !frame->info.bDiscontinuity);
        EXPECT_TRUE(frame->info.llPts == 0 && frame->info.llDts == 0 &&
                    frame->info.llFilePos == 1014 * llNumber);
    };
    for (int i = 0; i < 20; ++i) ExpectTrickFrame(i);
    for (const int nState : {0, 1, 2}) {  // running, held, stopped
        if (nState == 1) core.Pause();
        if (nState == 2) core.Stop();
        core.SetRate(1.0);
        if (nState == 2) core.Restart();
        core.Resume();
        std::optional<Frame> frame = Take(core);
        ASSERT_TRUE(frame && frame->info.bDiscontinuity && !frame->info.bSegmentMarker) << nState;
        std::int64_t llLast = 0;
        for (; frame; frame = Take(core)) llLast = frame->info.llPts;
        EXPECT_EQ(llLast, 98) << "to the end of the stream";
        core.SetRate(1.09);  // no other rate: nothing begins anew
        EXPECT_FALSE(TakeFrame(core.GetVideoQueue(), 30));
        core.SetRate(-1.0);
        for (int i = 0; i < 20; ++i) ExpectTrickFrame(98 - i);
    }
    core.SetRate(0.0);
    EXPECT_FALSE(TakeFrame(core.GetVideoQueue(), 30));
}

TEST(DemuxWorker, NoFrameOfAPastSegmentComesAfterARateChangeStress) {
    const ByteVector bytes = ReadTestData("ps_mpeg4.mpg");
    CMemoryReader reader(bytes);
    KestMpeg2PsPullDemux core;
    Start(core, &reader);
    RunForASecond([&](int i) {
        core.NewSegment(i * 7919 % 597627, 597627);
        core.SetRate(std::array{0.5, 2.0, -0.5, -1.0}[static_cast<std::size_t>(i % 4)]);
        Spin(i % 977 * 20);
        core.SetRate(1.5);
        core.NewSegment(0, 597627);
        for (const int nPosition : {56, 98470}) {
            const auto frame = Take(core);
            ASSERT_TRUE(frame && frame->info.llFilePos == nPosition && !frame->info.bNoVideo)
                << "in round " << i;
        }
    });
}

TEST(DemuxWorker, IsAsBeforeWhenItCannotBeOpened) {
    KestMpeg2PsPullDemux core;
    for (const int nArrays : {0, 1, 3, 4, 6}) {  // of one for the ring, three for each queue
        g_nArraysLeft = nArrays;
        EXPECT_THROW(core.Open(nullptr, nullptr, nullptr), std::bad_alloc) << nArrays;
        g_nArraysLeft = -1;
        core.Reset();
        core.NewSegment(0);
        core.Restart();
        core.Resume();
        core.Stop();
    }
    CRingBuffer tooSmall(16);
    EXPECT_LT(core.Open(&tooSmall, nullptr, nullptr), 0);
    EXPECT_EQ(core.Open(nullptr, nullptr, nullptr), 0);
}

}  // namespace
}  // namespace kest

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/DebugText.h"
#include "support/CaptureTexts.h"
#include "support/CoreRunner.h"
#include "support/MemoryReader.h"

namespace kest {
namespace {

using Builder = CProgramStreamBuilder;

constexpr std::int64_t kWrap = std::int64_t{1} << 33;

ByteVector Payload(std::size_t n, std::uint8_t nValue) { return ByteVector(n, nValue); }

Frames Demux(const ByteVector& bytes) {
    CMemoryReader reader(bytes);
    return RunPullCore(reader, static_cast<std::int64_t>(bytes.size()));
}

/// Bytes that let the resynchronisation look beyond the last packet of interest.
Builder& Tail(Builder& builder) { return builder.Section(0xBE, 2000); }

std::vector<ByteVector> Payloads(const std::vector<Frame>& frames) {
    std::vector<ByteVector> payloads;
    for (const Frame& frame : frames) {
        if (!frame.info.bEndOfStream) payloads.push_back(frame.payload);
    }
    return payloads;
}

TEST(PsDemux, GathersFramesFromStampToStamp) {
    Builder b;
    b.Pack(25200, 7).Section(0xBB, 12).Map({{0x02, 0xE0}, {0x03, 0xC0}});
    b.Pes(0xC0, Payload(5, 9));  // before any stamp: dropped
    const auto nFirst = static_cast<std::int64_t>(b.Size());
    b.Pes(0xE0, Payload(100, 1), kWrap - 1, kWrap - 3003).Pes(0xE0, Payload(50, 2));
    b.Pes(0xC0, Payload(10, 3), 777);
    const auto nSecond = static_cast<std::int64_t>(b.Size());
    b.Pes(0xE0, Payload(7, 4), 3002).Pes(0xC0, Payload(20, 5), 2937).Pes(0xE0, Payload(1, 6), 6005);
    b.Pes(0xC0, Payload(1, 7), 5000);
    const Frames frames = Demux(Tail(b).Get());

    ASSERT_EQ(frames.video.size(), 3u);
    ByteVector joined = Payload(100, 1);
    joined.resize(150, 2);
    EXPECT_EQ(frames.video[0].payload, joined);
    EXPECT_EQ(frames.video[0].info.llPts, kWrap - 1);
    EXPECT_EQ(frames.video[0].info.llDts, kWrap - 3003);
    EXPECT_EQ(frames.video[0].info.llFilePos, nFirst);
    EXPECT_TRUE(frames.video[0].info.bDiscontinuity);
    EXPECT_EQ(frames.video[1].payload, Payload(7, 4));
    EXPECT_EQ(frames.video[1].info.llPts, 3002);
    EXPECT_EQ(frames.video[1].info.llDts, 3002) << "the PTS stands in for a DTS";
    EXPECT_EQ(frames.video[1].info.llFilePos, nSecond);
    EXPECT_FALSE(frames.video[1].info.bDiscontinuity);
    EXPECT_EQ(Payloads(frames.audio), (std::vector<ByteVector>{Payload(10, 3), Payload(20, 5)}));
    for (const auto* pStream : {&frames.video, &frames.audio}) {
        EXPECT_TRUE(pStream->back().info.bEndOfStream);
        EXPECT_TRUE(pStream->back().payload.empty());
    }
}

TEST(PsDemux, FollowsMapsOnlyWhenTheyAreCurrentAndAddUp) {
    const auto Audio = [](std::uint8_t nValue, std::int64_t llPts) {
        return std::pair{Payload(8, nValue), llPts};
    };
    const auto AddBoth = [&](Builder& b, std::uint8_t nValue, std::int64_t llPts) {
        const auto [payload, pts] = Audio(nValue, llPts);
        b.Pes(0xC1, payload, pts);
    };
    Builder b;
    b.Pack();
    AddBoth(b, 1, 100);  // 0xC1 is not audio by default
    b.Map({{0x03, 0xC1}}, /*bCurrent=*/false);
    AddBoth(b, 2, 200);  // the staged map is not used yet
    b.Code(0xBC).Word(14).Bytes({0xE1, 0xFF}).Word(1019).Word(4).Bytes({3, 0xC1, 0, 0, 1, 2, 3, 4});
    b.Code(0xBC).Word(14).Bytes({0xE1, 0xFF}).Word(0).Word(4).Bytes({3, 0xC1, 0, 9, 1, 2, 3, 4});
    AddBoth(b, 3, 300);  // neither map adds up
    b.Map({{0x03, 0xC1}});
    AddBoth(b, 4, 400);
    AddBoth(b, 5, 500);
    b.Map({});  // exchanges the tables again
    AddBoth(b, 6, 600);
    AddBoth(b, 7, 700);
    CCaptureTexts texts;
    const Frames frames = Demux(Tail(b).Get());
    EXPECT_EQ(Payloads(frames.audio), (std::vector<ByteVector>{Payload(8, 4)}));
    EXPECT_TRUE(texts.TraceTexts().find("0C") != std::string::npos);
}

TEST(PsDemux, StampsCountBeforeTheLength) {
    Builder b;
    b.Pack().Pes(0xE0, Payload(10, 1), 1000);
    const std::size_t nUnbounded = b.Size();
    b.Pes(0xE0, {}, 2000);  // made unbounded below: begins a frame all the same
    b.Pes(0xE0, Payload(10, 2)).Pes(0xE0, Payload(10, 3), 3000);
    const std::size_t nNegative = b.Size();
    b.Pes(0xE0, {}, 4000);  // made shorter than its own header below
    b.Pes(0xE0, Payload(10, 4)).Pes(0xE0, Payload(10, 5), 5000);
    Tail(b);
    ByteVector bytes = b.Get();
    bytes[nUnbounded + 4] = bytes[nUnbounded + 5] = 0;
    bytes[nNegative + 4] = 0, bytes[nNegative + 5] = 4;
    const Frames frames = Demux(bytes);
    EXPECT_EQ(Payloads(frames.video),
              (std::vector<ByteVector>{Payload(10, 1), Payload(10, 2), Payload(10, 3), Payload(10, 4)}));
    EXPECT_EQ(frames.video[1].info.llPts, 2000);
    EXPECT_EQ(frames.video[3].info.llPts, 4000);
}

TEST(PsDemux, FramesWithoutPayloadMarkADiscontinuity) {
    Builder b;
    b.Pack().Pes(0xE0, Payload(4, 1), 1000).Pes(0xE0, {}, 2000).Pes(0xE0, Payload(4, 3), 3000);
    b.Pes(0xE0, Payload(4, 4), 4000).Pes(0xE0, Payload(4, 5), 5000);
    const Frames frames = Demux(Tail(b).Get());
    ASSERT_EQ(frames.video.size(), 4u);
    EXPECT_EQ(frames.video[1].payload, Payload(4, 3));
    EXPECT_TRUE(frames.video[1].info.bDiscontinuity) << "the empty frame at 2000 is missing";
    EXPECT_FALSE(frames.video[2].info.bDiscontinuity);
}

TEST(PsDemux, HeaderTooShortForItsStampsCarriesNone) {
    Builder b;
    b.Pack().Pes(0xE0, Payload(4, 1), 1000);
    b.Code(0xE0).Word(3 + 4 + 2).Bytes({0x80, 0x80, 4, 0x21, 0, 1, 0}).Bytes({2, 2});  // PTS needs five bytes
    b.Code(0xE0)
        .Word(3 + 5 + 2)
        .Bytes({0x80, 0xC0, 5, 0x31, 0, 1, 0, 1})
        .Bytes({3, 3});  // PTS and DTS need ten
    b.Pes(0xE0, Payload(1, 4), 2000);
    const Frames frames = Demux(Tail(b).Get());
    ASSERT_EQ(frames.video.size(), 2u);
    EXPECT_EQ(frames.video[0].payload, (ByteVector{1, 1, 1, 1, 2, 2, 3, 3}));
}

TEST(PsDemux, ResynchronisesOverGarbageWhereverItEnds) {
    for (std::size_t nGarbage : {1u, 2u, 1019u, 1020u, 1021u, 1022u, 1023u, 1024u, 1025u, 3000u}) {
        Builder b;
        b.Pack().Pes(0xE0, Payload(10, 1), 1000).Fill(nGarbage, 0xAA);
        b.Pes(0xE0, Payload(10, 2), 2000).Pes(0xE0, Payload(10, 3), 3000);
        CCaptureTexts texts;
        const Frames frames = Demux(Tail(b).Get());
        EXPECT_EQ(Payloads(frames.video), (std::vector<ByteVector>{Payload(10, 1), Payload(10, 2)}))
            << nGarbage;
        const std::size_t nIndex = (nGarbage + 2) % 1024;  // of the prefix's last byte in its piece
        const bool bTraced = texts.TraceTexts().find("offset is wrong skipped " + std::to_string(nIndex) +
                                                     " bytes\n") != std::string::npos;
        EXPECT_EQ(bTraced, nIndex != 2) << nGarbage;
    }
}

TEST(PsDemux, TransportPatPatternIsSkippedAtAnyPlace) {
    for (std::size_t nBefore : {0u, 5u, 1021u, 1022u, 1023u}) {
        for (const std::uint8_t nSecond : {std::uint8_t{0x40}, std::uint8_t{0x60}, std::uint8_t{0xC0}}) {
            Builder b;
            b.Pack().Pes(0xE0, Payload(10, 1), 1000).Fill(nBefore, 0xAA).Bytes({0x47, nSecond, 0x00, 0x10});
            b.Pes(0xE0, Payload(10, 2), 2000).Pes(0xE0, Payload(10, 3), 3000);
            const Frames frames = Demux(Tail(b).Get());
            EXPECT_EQ(Payloads(frames.video), (std::vector<ByteVector>{Payload(10, 1), Payload(10, 2)}))
                << nBefore;
        }
    }
}

TEST(PsDemux, OversizedFramesAreCutNeverOverrun) {
    Builder b;
    b.Pack();
    for (int i = 0; i < 10; ++i)
        b.Pes(0xE0, Payload(60000, 1), i == 0 ? std::optional<std::int64_t>(1000) : std::nullopt);
    b.Pes(0xE0, Payload(9, 2), 2000);
    b.Pes(0xC0, Payload(40000, 3), 1000).Pes(0xC0, Payload(10, 4), 2000).Section(0xBE, 60000);
    CCaptureTexts texts;
    const Frames frames = Demux(Tail(b).Get());
    ASSERT_EQ(frames.video.size(), 2u);
    EXPECT_EQ(frames.video[0].payload.size(), 480000u) << "eight packets fit the 524288 bytes";
    ASSERT_EQ(frames.audio.size(), 2u);
    EXPECT_TRUE(frames.audio[0].payload == Payload(32768, 3)) << "cut to the block";
    EXPECT_TRUE(texts.TraceTexts().find("cut to its block") != std::string::npos);
}

TEST(PsDemux, EndOfInputIsReadAsFarAsTheEndPositionAllows) {
    // The tail behind the last whole 16384-byte piece comes only with an end position, and only in one read.
    Builder b;
    b.Pack();
    std::int64_t llPts = 0;
    while (b.Size() < 16384 + 6000)
        b.Pes(0xE0, Payload(1000, static_cast<std::uint8_t>(llPts)), llPts), ++llPts;
    const auto llSize = static_cast<std::int64_t>(b.Size());
    const struct {
        std::int64_t llEnd;
        std::size_t nFrames;  // with the end-of-stream record
    } cases[] = {
        {0, 16},  // one piece: packets of 1014 bytes, the last complete one only peeked at
        {llSize, 22},
        {16384 + 3000, 19},
        {llSize + 100, 16},  // a tail that the source does not have fails as a whole
    };
    for (const auto& c : cases) {
        CMemoryReader reader(b.Get());
        EXPECT_EQ(RunPullCore(reader, c.llEnd).video.size(), c.nFrames) << c.llEnd;
    }
    CMemoryReader failing(b.Get());
    failing.FailFrom(100);
    EXPECT_EQ(RunPullCore(failing, llSize).video.size(), 1u) << "an unreadable source just ends";
}

TEST(PsDemux, NewSegmentStartsAnewAtItsPosition) {
    Builder b;
    std::vector<std::int64_t> allPositions;
    for (int i = 0; i < 60; ++i) {
        allPositions.push_back(static_cast<std::int64_t>(b.Size()));
        b.Pes(0xE0, Payload(1000, static_cast<std::uint8_t>(i)), i * 3003).Pes(0xC0, Payload(9, 1), i * 3003);
    }
    Tail(b);
    CMemoryReader reader(b.Get());
    KestMpeg2PsPullDemux core;
    core.SetReader(&reader);
    core.Open(nullptr, nullptr, nullptr);
    core.NewSegment(0, static_cast<std::int64_t>(b.Size()));
    core.Resume();
    for (const std::size_t nStart : {0u, 40u, 58u, 10u}) {
        if (nStart > 0) core.NewSegment(allPositions[nStart]);
        const Frames frames = TakeAll(core);
        ASSERT_EQ(frames.video.size(), 60 - nStart) << "to the end, each time with its end-of-stream record";
        EXPECT_EQ(frames.video[0].info.llFilePos, allPositions[nStart]);
        EXPECT_TRUE(frames.video[0].info.bDiscontinuity);
        EXPECT_TRUE(frames.video.back().info.bEndOfStream);
    }
}

TEST(PsDemux, StreamEndsOnceEachTimeItRunsDry) {
    constexpr std::size_t kPiece = 16384;
    Builder b;
    for (int i = 0; i < 100; ++i)
        b.Pes(0xE0, Payload(1000, static_cast<std::uint8_t>(i)), i).Pes(0xC0, Payload(9, 1), i);
    CMemoryReader reader(b.Get());
    reader.SetEnd(kPiece);
    KestMpeg2PsPullDemux core;
    core.SetReader(&reader);
    core.Open(nullptr, nullptr, nullptr);
    core.Resume();
    std::int64_t llLast = -1;
    for (std::size_t nPieces = 1; nPieces <= 4; ++nPieces) {
        reader.SetEnd(nPieces * kPiece);
        const Frames frames = TakeAll(core);
        ASSERT_GT(frames.video.size(), 10u) << nPieces;
        EXPECT_GT(frames.video[0].info.llPts, llLast) << "it goes on where it ran dry";
        llLast = frames.video[frames.video.size() - 2].info.llPts;
        EXPECT_TRUE(frames.video.back().info.bEndOfStream);
        EXPECT_TRUE(frames.audio.back().info.bEndOfStream);
        EXPECT_FALSE(TakeFrame(core.GetVideoQueue(), 50)) << "once is enough";
    }
}

TEST(PsDemux, ItsThreadIsEndedOnce) {
    CCaptureTexts texts;
    {
        KestMpeg2PsPullDemux core;
        core.Open(nullptr, nullptr, nullptr);
    }
    EXPECT_EQ(texts.TraceTexts(), "Passed KestMpeg2PsDemux::Stop!!\n");
}

TEST(PsDemux, PushOperationWaitsForItsBytes) {
    Builder b;
    b.Pack().Map({{0x02, 0xE0}, {0x03, 0xC0}});
    std::vector<ByteVector> expected;
    for (int i = 0; i < 50; ++i) {
        b.Pes(0xE0, Payload(3000, static_cast<std::uint8_t>(i)), i * 3003).Pes(0xC0, Payload(9, 1), i * 3003);
        if (i < 49) expected.push_back(Payload(3000, static_cast<std::uint8_t>(i)));
    }
    Tail(b);
    KestMpeg2PsPullDemux core;
    core.Open(nullptr, nullptr, nullptr);
    EXPECT_EQ(core.PushData({}), 0);
    core.Resume();
    std::thread pusher([&] {
        std::span<const std::uint8_t> rest = b.Get();
        while (!rest.empty()) {
            const auto piece = rest.first(std::min<std::size_t>(rest.size(), 700));
            ASSERT_EQ(core.PushData(piece), static_cast<int>(piece.size()));
            rest = rest.subspan(piece.size());
        }
    });
    const Frames frames = TakeAll(core, 300);
    pusher.join();
    EXPECT_EQ(Payloads(frames.video), expected)
        << "nothing is lost when the parser is faster than its pusher";

    core.Reset();
    Builder again;
    again.Pes(0xE0, Payload(5, 1), 1).Pes(0xE0, Payload(5, 2), 2);
    core.PushData(Tail(again).Get());
    const auto frame = TakeFrame(core.GetVideoQueue(), 1000);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->payload, Payload(5, 1)) << "a reset forgets what was gathered before";
    core.Stop();
    EXPECT_EQ(core.PushData(b.Get()), 0) << "nobody is there to take it";
}

TEST(PsDemux, StopsWhateverItWaitsForAndStartsAgain) {
    Builder b;
    for (int i = 0; i < 200; ++i) b.Pes(0xE0, Payload(1000, static_cast<std::uint8_t>(i)), i);
    Tail(b);
    CMemoryReader reader(b.Get());
    KestMpeg2PsPullDemux core;
    core.SetReader(&reader);
    core.Open(nullptr, nullptr, nullptr);
    core.Stop();  // held
    for (int i = 0; i < 3; ++i) {
        core.Restart();
        core.NewSegment(0, static_cast<std::int64_t>(b.Size()));
        core.Resume();
        ASSERT_TRUE(TakeFrame(core.GetVideoQueue(), 1000));
        SleepMs(5);  // the queue of six is full now: the core waits in it
        core.Stop();
        EXPECT_FALSE(core.IsRunning());
    }
    core.Restart();
    core.NewSegment(0, static_cast<std::int64_t>(b.Size()));
    core.Resume();
    const Frames frames = TakeAll(core);
    EXPECT_EQ(frames.video.size(), 200u);
}

TEST(PsDemux, TerminatesInsideAQueueItDoesNotOwn) {
    Builder b;
    for (int i = 0; i < 20; ++i) b.Pes(0xE0, Payload(1000, 1), i);
    CMemoryReader reader(Tail(b).Get());
    CBlockMemFileEx video(4096, 2, sizeof(FRAME_INFO)), audio(4096, 2, sizeof(FRAME_INFO));
    video.WOpen(), video.ROpen(), audio.WOpen(), audio.ROpen();
    {
        KestMpeg2PsPullDemux core;
        core.SetReader(&reader);
        core.Open(nullptr, &video, &audio);
        core.Resume();
        const auto nBegin = TickCount();
        while (video.GetFreeBlocks() > 0 && TickCount() - nBegin < 2000) SleepMs(1);
        EXPECT_EQ(video.GetPending(0), 2u);
        core.Stop();  // nobody closes the queue: the bound of one second runs out
        EXPECT_EQ(core.GetExitCode(), CWorkerThread::kExitKilled);
    }
}

}  // namespace
}  // namespace kest

// Working modes 2 and 4. Times: stamp 900000 is 10 s, or 100000000; 3600 ticks are 400000.
#include "support/CaptureTexts.h"
#include "support/PinRig.h"

namespace kest {
namespace {

using testing::ElementsAre;

constexpr REFERENCE_TIME kTenSeconds = 100000000;

std::array<CDemuxOutputPin*, 2> BothPins(CPinRig& rig) { return {&rig.video, &rig.audio}; }

// ---------------- time base and marks

TEST(ProgramStreamPins, AudioSetsTheTimeBaseOfBoth) {
    struct Case {
        std::uint32_t nMode;
        bool bPush;
        REFERENCE_TIME rtNow, rtBase;
        const char* pszAudio;
        const char* pszVideo;
    };
    for (const Case& c : {Case{4, false, 50000000, 100000000, "0 DS", "400000 DS"},
                          Case{2, false, -1, 100000000, "0 DS", "400000 DS"},
                          Case{4, true, 50000000, 70000000, "30000000 DS", "30400000 DS"},
                          Case{4, true, -1, 100000000, "0 DS", "400000 DS"}}) {
        CPinRig rig(c.nMode);
        rig.filter.m_bPush = c.bPush;
        rig.filter.m_rtNow = c.rtNow;
        rig.filter.m_rtStreamStart = 20000000;
        rig.Start(rig.audio);
        rig.Put(rig.audio, {900000});
        EXPECT_THAT(rig.audioSink.All(4), ElementsAre("begin flush", "end flush", "segment 1", c.pszAudio));
        EXPECT_EQ(rig.audio.GetTiming().rtTimeBase, c.rtBase);
        EXPECT_EQ(rig.video.GetTiming().rtTimeBase, c.rtBase);
        rig.Start(rig.video);
        rig.Put(rig.video, {903600});
        rig.videoSink.Samples(1);
        Texts expected{"begin flush", "end flush", c.pszVideo};  // the audio flushes both
        if (c.nMode == 2) expected.insert(expected.begin(), {"begin flush", "end flush"});
        EXPECT_EQ(rig.videoSink.All(3), expected) << "and no segment";
    }
}

TEST(ProgramStreamPins, FramesGoOnFromTheFirst) {
    CPinRig rig(4);
    rig.Start(rig.audio);
    EXPECT_THAT(rig.Play(rig.audio, {900000, 902160}, 2), ElementsAre("0 DS", "240000 S"));
    rig.Start(rig.video);
    rig.Put(rig.video, {900000, 903600});
    rig.Put(rig.video, TestFrame{.llStamp = 907200, .bytes = std::vector<std::uint8_t>(163840)});
    EXPECT_THAT(rig.videoSink.Samples(3), ElementsAre("0 DS", "400000 S", "800000 S"));
    EXPECT_THAT(rig.videoSink.Sizes(), ElementsAre(3, 3, 163840));
    EXPECT_EQ(rig.filter.m_nSteps, 3);
    EXPECT_EQ(rig.filter.m_nResets, 0);
}

TEST(ProgramStreamPins, VideoWithoutAudioTakesItsOwnTime) {
    CPinRig rig(4);
    rig.Put(rig.video, {900000});
    const std::uint32_t dwBegin = TickCount();
    rig.Start(rig.video);
    EXPECT_THAT(rig.videoSink.Samples(1), ElementsAre("0 DS"));
    EXPECT_GE(TickCount() - dwBegin, 300u);
    EXPECT_EQ(rig.video.GetTiming().rtTimeBase, kTenSeconds);
    rig.video.GetDeliveryThread().Pause();
    rig.video.CloseMemFiles();
    EXPECT_EQ(rig.video.GetTiming().rtTimeBase, kNoTimeBase);
}

// ---------------- wrapped and broken stamps

TEST(ProgramStreamPins, WrapMovesTheBase) {
    constexpr std::int64_t kLast = 8589930992;  // 3600 ticks before the counter begins anew
    for (const int nPin : {0, 1}) {
        CPinRig rig(4);
        CDemuxOutputPin& pin = *BothPins(rig)[static_cast<std::size_t>(nPin)];
        rig.PretendAudio(954436776888, 0);
        rig.Start(pin);
        EXPECT_THAT(rig.Play(pin, {kLast, 0, 3600}, 3), ElementsAre("0 DS", "399889 S", "799889 S"));
        EXPECT_EQ(rig.filter.m_nResets, 0);
    }
    for (const auto& [llStamp, nResets] : {std::pair(16400, 0), std::pair(16401, 1)}) {  // 19999, 20000 ticks
        CPinRig rig(4);
        rig.PretendAudio(954436776888, 0);
        rig.Start(rig.video);
        rig.Play(rig.video, {kLast, llStamp}, 2);
        EXPECT_EQ(rig.filter.m_nResets, nResets) << llStamp;
    }
}

TEST(ProgramStreamPins, JumpOfMoreThanASecondIsBroken) {
    for (const std::int64_t llJump : {90090, 90091, -90090, -90091}) {
        const bool bBroken = llJump % 90090 != 0;
        const char* pszFine = llJump > 0 ? "10010000 S" : "-10010000 S";
        for (const int nPin : {0, 1}) {
            CPinRig rig(4);
            CDemuxOutputPin& pin = *BothPins(rig)[static_cast<std::size_t>(nPin)];
            rig.PretendAudio(kTenSeconds, 0);
            rig.Start(pin);
            rig.Play(pin, {900000}, 1);
            pin.GetPeer().GetTiming().bFirstTime = false;
            const char* pszBroken = pin.IsVideo() ? "333666 DS" : "240000 DS";
            EXPECT_THAT(rig.Play(pin, {900000 + llJump}, 2),
                        ElementsAre("0 DS", bBroken ? pszBroken : pszFine));
            EXPECT_EQ(rig.filter.m_nResets, bBroken);
            EXPECT_EQ(pin.GetPeer().GetTiming().bFirstTime, bBroken);
            EXPECT_EQ(pin.GetTiming().bFirstTime, bBroken && !pin.IsVideo());
        }
    }
}

TEST(ProgramStreamPins, BrokenVideoIsPlacedFrameByFrameUntilARestart) {
    CPinRig rig(4);
    rig.PretendAudio(kTenSeconds, 0);
    rig.Start(rig.video);
    rig.Play(rig.video, {900000, 1080000, 1083600, 900100}, 4);
    EXPECT_THAT(rig.videoSink.Samples(4), ElementsAre("0 DS", "333666 DS", "667333 DS", "11111 S"));
    EXPECT_EQ(rig.filter.m_nResets, 2);
    rig.PretendAudio(kTenSeconds, 20000000);
    rig.video.GetTiming().bFirstTime = true;
    rig.Play(rig.video, {1084000, 1164000, 1244000}, 7);  // each within reach of its predecessor alone
    EXPECT_EQ(rig.videoSink.Samples(7)[4], "20444444 DS");
    EXPECT_EQ(rig.videoSink.Samples(7)[6], "38222222 S");
    EXPECT_EQ(rig.filter.m_nResets, 2);
}

// ---------------- distance from the audio

TEST(ProgramStreamPins, VideoFarFromTheAudioTakesItsTime) {
    struct Case {
        bool bFirst;             // else the frame after it
        REFERENCE_TIME rtAhead;  // of the audio's last start
        bool bTaken;             // the audio's present start, 7 behind its last
        const char* pszMarks;
    };
    // A first frame that keeps its time is measured again as any frame: by 2 s, and no sync point.
    for (const Case& c : {Case{true, 20000000, false, " DS"}, Case{true, 20000001, true, " D"},
                          Case{true, 50000000, true, " D"}, Case{true, 50000001, true, " DS"},
                          Case{true, -10000000, false, " DS"}, Case{true, -10000001, true, " DS"},
                          Case{false, 20000000, false, " S"}, Case{false, 20000001, true, ""},
                          Case{false, -20000000, false, " S"}, Case{false, -20000001, true, ""}}) {
        CPinRig rig(4);
        rig.PretendAudio(0, kTenSeconds);
        rig.Start(rig.video);
        if (!c.bFirst) rig.Play(rig.video, {896400}, 1);
        const REFERENCE_TIME rtAudio = kTenSeconds - c.rtAhead;
        rig.audio.GetTiming().rtLastStart = rtAudio;
        rig.audio.GetTiming().rtStart = rtAudio + 7;
        EXPECT_EQ(rig.Play(rig.video, {900000}, c.bFirst ? 1 : 2).back(),
                  std::to_string(c.bTaken ? rtAudio + 7 : kTenSeconds) + c.pszMarks)
            << c.rtAhead;
    }
}

TEST(ProgramStreamPins, ManyCorrectionsInARowSkipAhead) {
    constexpr std::int64_t kStamp = 1800000;  // 20 s
    struct Case {
        int nDrifting;  // corrected frames
        bool bRestart;  // then one that restarts the timing, corrected too
        bool bGood;     // or one in time, and another corrected
        std::size_t nSeeks;
    };
    for (const Case& c : {Case{6, false, false, 0}, Case{7, false, false, 1}, Case{8, false, false, 2},
                          Case{6, false, true, 0}, Case{2, true, false, 0}, Case{3, true, false, 1}}) {
        CPinRig rig(4);
        rig.filter.m_nBitRate = 1500000;
        rig.PretendAudio(0, 200000000);
        rig.Start(rig.video);
        std::size_t nSamples = 0;
        auto Play = [&] {
            rig.Put(rig.video, TestFrame{.llStamp = kStamp, .llFilePos = 1048576});
            rig.videoSink.Samples(++nSamples);
        };
        Play();
        rig.PretendAudio(0, 0);
        for (int i = 0; i < c.nDrifting; ++i) Play();
        if (c.bGood) {
            rig.PretendAudio(0, 200000000);
            Play();
            rig.PretendAudio(0, 0);
            Play();
        }
        if (c.bRestart) {
            rig.video.GetTiming().bFirstTime = true;
            Play();
        }
        EXPECT_EQ(rig.filter.Hooks(), Texts(c.nSeeks, "seek 56924053")) << c.nDrifting;
    }
}

// ---------------- frame records

TEST(ProgramStreamPins, DiscontinuityRestartsTheTiming) {
    CPinRig rig(4);
    rig.Start(rig.audio);
    rig.Play(rig.audio, {900000}, 1);
    rig.Start(rig.video);
    rig.Play(rig.video, {900000}, 1);
    rig.Put(rig.audio, TestFrame{.llStamp = 1800000, .bDiscontinuity = true});
    EXPECT_THAT(rig.audioSink.All(8), ElementsAre("begin flush", "end flush", "segment 1", "0 DS",
                                                  "begin flush", "end flush", "segment 1", "0 DS"));
    EXPECT_EQ(rig.video.GetTiming().rtTimeBase, 200000000);
    rig.video.GetTiming().bFirstTime = false;  // only the record asks for it
    rig.Put(rig.video, TestFrame{.llStamp = 1803600, .bDiscontinuity = true});
    EXPECT_EQ(rig.videoSink.Samples(2).back(), "400000 DS");
    EXPECT_EQ(rig.filter.m_nResets, 0);
}

TEST(ProgramStreamPins, SegmentMarkersGoOutUntimed) {
    CPinRig rig(4);
    rig.Put(rig.video, TestFrame{.bSegmentMarker = true, .bNoVideo = true});
    rig.Put(rig.video, TestFrame{.bSegmentMarker = true});
    rig.Start(rig.video);
    EXPECT_THAT(rig.videoSink.All(2), ElementsAre("- DP", "- D"));
    EXPECT_EQ(rig.filter.m_nSteps, 1) << "a preroll sample is only delivered";
    EXPECT_FALSE(rig.video.GetTiming().bFirstTime);

    rig.Put(rig.audio, TestFrame{.bSegmentMarker = true});
    rig.Put(rig.audio, TestFrame{.bSegmentMarker = true, .bNoVideo = true});
    rig.Start(rig.audio);
    EXPECT_THAT(rig.audioSink.All(3), ElementsAre("- D", "segment 2", "- D"));
}

TEST(ProgramStreamPins, EndOfStreamWithAndWithoutBytes) {
    for (const bool bFreeRun : {false, true}) {
        CPinRig rig(4);
        rig.filter.m_bFreeRun = bFreeRun;
        rig.PretendAudio(kTenSeconds, 0);
        for (CDemuxOutputPin* pPin : BothPins(rig)) {
            rig.Put(*pPin, TestFrame{.bEndOfStream = true, .bytes = {}});
            if (!bFreeRun) rig.Put(*pPin, TestFrame{.bEndOfStream = true});
            rig.Put(*pPin, TestFrame{.llStamp = 900000, .bSegmentMarker = true});
            rig.Start(*pPin);
            CRecordingPin& sink = rig.Sink(*pPin);
            sink.Samples(1);
            Texts expected(bFreeRun ? 1 : 2, "end of stream");
            expected.push_back(bFreeRun && pPin->IsVideo() ? "-" : "- D");
            Texts all = sink.All(expected.size());
            all.resize(expected.size());
            EXPECT_EQ(all, expected);
            EXPECT_TRUE(pPin->GetDeliveryThread().IsRunning());
        }
    }
}

TEST(ProgramStreamPins, PendingRestartDropsWhatIsQueued) {
    for (const int nPin : {0, 1}) {
        const CCaptureTexts texts;
        CPinRig rig(4);
        CDemuxOutputPin& pin = *BothPins(rig)[static_cast<std::size_t>(nPin)];
        rig.PretendAudio(kTenSeconds, 0);
        rig.Put(pin, {100, 200, 300});
        pin.GetTiming().bRestartPending = true;
        rig.Start(pin);
        ASSERT_TRUE(Eventually([&] {  // the audio rests after each dropped frame, then says it goes on
            SleepMs(1);
            const bool bSays = texts.TraceTexts().find("=======>Audio 2\n") != std::string::npos;
            return pin.GetFramesPending() == 0 && (bSays || pin.IsVideo());
        }));
        SleepMs(kSettleMs);
        EXPECT_THAT(rig.Play(pin, {900000}, 1), ElementsAre("0 DS"));
        EXPECT_FALSE(pin.GetTiming().bRestartPending);
    }
}

TEST(ProgramStreamPins, FreeRunDeliversAsItComes) {
    for (const std::uint32_t nMode : {4u, 5u}) {
        CPinRig rig(nMode);
        rig.filter.m_bFreeRun = true;
        for (CDemuxOutputPin* pPin : BothPins(rig)) rig.Start(*pPin);
        EXPECT_THAT(rig.Play(rig.video, {900000, 5}, 2), ElementsAre("-", "-"));
        EXPECT_THAT(rig.Play(rig.audio, {900000, 5}, 2), ElementsAre("- D", "-"));
        EXPECT_TRUE(rig.video.GetTiming().bFirstTime);
        EXPECT_FALSE(rig.audio.GetTiming().bFirstTime);
        EXPECT_EQ(rig.filter.m_nResets, 0);
    }
}

}  // namespace
}  // namespace kest

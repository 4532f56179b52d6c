// The working modes that are no MPEG-2 program streams. Times: stamp 900000 is 10 s, or 100000000.
#include <string_view>

#include "support/PinRig.h"

namespace kest {
namespace {

using testing::ElementsAre;

constexpr std::uint32_t kElementary = 0, kClockFollowing = 1, kJumpClamping = 3, kBasic = 5;

// ---------------- basic

TEST(BasicPins, AudioBeginsAtThePresentStreamTime) {
    for (const auto& [rtNow, pszFirst] : {std::pair(50000000, "30000000 DS"), std::pair(-1, "0 DS")}) {
        CPinRig rig(kBasic);
        rig.filter.m_rtNow = rtNow;
        rig.filter.m_rtStreamStart = 20000000;
        rig.Start(rig.audio);
        rig.Play(rig.audio, {777777}, 1);
        EXPECT_THAT(rig.audioSink.All(1), ElementsAre(pszFirst)) << "no flush, no segment";
        EXPECT_EQ(rig.video.GetTiming().rtTimeBase, kNoTimeBase);
    }
}

TEST(BasicPins, BrokenVideoIsWithheldAndAsksOnce) {
    CPinRig rig(kBasic);
    rig.PretendAudio(100000000, 0);
    rig.Start(rig.video);
    rig.Play(rig.video, {450000, 903600}, 1);  // the first starts below 0; the second is broken
    rig.Play(rig.video, {903600, 1803600, 1803600}, 3);
    EXPECT_THAT(rig.videoSink.Samples(3), ElementsAre("0 DS", "400000 DS", "100400000 DS"));
    EXPECT_TRUE(rig.audio.GetTiming().bFirstTime);
    EXPECT_EQ(rig.filter.m_nResets, 1);
}

TEST(BasicPins, BrokenAudioAsksEveryTime) {
    CPinRig rig(kBasic);
    rig.Start(rig.audio);
    EXPECT_THAT(rig.Play(rig.audio, {900000, 1800000, 1803600, 1807200}, 4),
                ElementsAre("0 DS", "240000 DS", "480000 DS", "720000 DS"));
    EXPECT_EQ(rig.filter.m_nResets, 3);
    EXPECT_FALSE(rig.audio.GetTiming().bFirstTime);
}

TEST(BasicPins, PendingRestartKeepsWhatIsQueued) {
    CPinRig rig(kBasic);
    rig.PretendAudio(100000000, 0);
    rig.Start(rig.video);
    rig.Play(rig.video, {900000}, 1);
    rig.video.GetTiming().bRestartPending = true;
    EXPECT_THAT(rig.Play(rig.video, {1800000, 1803600}, 3),
                ElementsAre("0 DS", "100000000 DS", "100400000 S"));
    EXPECT_FALSE(rig.video.GetTiming().bRestartPending);
}

// ---------------- jump-clamping

TEST(JumpClampingPins, VideoFollowsWithinHalfASecond) {
    CPinRig rig(kJumpClamping);
    rig.PretendAudio(0, 0);
    rig.Start(rig.video);
    // By 0.5 s up, by more, by 0.5 s down, and two that are broken.
    EXPECT_THAT(rig.Play(rig.video, {9000, 54000, 99001, 11970, 500000, 500000}, 6),
                ElementsAre("1000000 DS", "6000000 S", "6330000 DS", "1330000 S", "1663666 D", "1997333 D"));
    EXPECT_EQ(rig.filter.m_nResets, 1);
}

TEST(JumpClampingPins, AudioFollowsWithinAFifthAndGoesOnBehindTheLaterPin) {
    CPinRig rig(kJumpClamping);
    rig.video.GetTiming().rtLastStart = 70000000;
    rig.Start(rig.audio);
    // By 0.2 s up, by more, by 0.2 s down and by more; then broken.
    rig.Play(rig.audio, {900000, 918000, 936009, 902160, 882000, 1800000, 1800000}, 7);
    EXPECT_THAT(rig.audioSink.All(7), ElementsAre("70000000 DS", "72000000 S", "72240000 DS", "70240000 S",
                                                  "70480000 DS", "68240000 D", "68480000 D"));
    EXPECT_EQ(rig.filter.m_nResets, 2);
    rig.audio.GetTiming().rtLastStart = 80000000;
    rig.audio.GetTiming().bFirstTime = true;
    EXPECT_EQ(rig.Play(rig.audio, {900000}, 8).back(), "80000000 DS");
}

// ---------------- clock-following

TEST(ClockFollowingPins, AudioAdoptsTheVideoBaseOnce) {
    CPinRig rig(kClockFollowing);
    rig.Start(rig.audio);
    rig.Play(rig.audio, {900000}, 1);
    rig.video.GetTiming().rtTimeBase = 99000000;
    EXPECT_THAT(rig.Play(rig.audio, {903600, 907200}, 3), ElementsAre("0 DS", "1400000 DS", "1800000 S"));
    rig.audio.GetTiming().bFirstTime = true;
    EXPECT_EQ(rig.Play(rig.audio, {910800, 914400}, 5).back(), "2600000 S") << "adopted at the restart";
}

TEST(ClockFollowingPins, FirstVideoWaitsForTheAudio) {
    CPinRig rig(kClockFollowing);
    rig.PretendAudio(0, 999999);
    rig.Start(rig.video);
    rig.Put(rig.video, {9000});
    SleepMs(3 * kSettleMs);
    EXPECT_THAT(rig.videoSink.Samples(0), ElementsAre());
    EXPECT_EQ(rig.video.GetTiming().rtStart, 1000000);
    rig.PretendAudio(0, 1000000);
    // After the broken one every frame is for the decoder alone.
    EXPECT_THAT(rig.Play(rig.video, {12600, 200000, 15700}, 4),
                ElementsAre("1000000 DS", "1400000 S", "1733666 D", "1744444 DP"));
    EXPECT_EQ(rig.filter.m_nResets, 1);
}

TEST(ClockFollowingPins, AudioIsRenderedAfterAResetRequest) {
    CPinRig rig(kClockFollowing);
    rig.Start(rig.audio);
    EXPECT_THAT(rig.Play(rig.audio, {900000, 1800000, 904000}, 3),
                ElementsAre("0 DS", "240000 DS", "444444 D"));
}

// ---------------- elementary stream

/// Start code 00 00 01 xx and the bits behind it, filled up with ones.
std::vector<std::uint8_t> Unit(std::uint8_t nCode, std::string_view bits) {
    std::vector<std::uint8_t> bytes{0, 0, 1, nCode};
    int nBit = 0;
    for (const char c : bits) {
        if (c == ' ') continue;
        if (nBit % 8 == 0) bytes.push_back(0xFF);
        if (c == '0') bytes.back() = static_cast<std::uint8_t>(bytes.back() & ~(0x80 >> nBit % 8));
        ++nBit;
    }
    return bytes;
}

std::vector<std::uint8_t> Join(std::initializer_list<std::vector<std::uint8_t>> parts) {
    std::vector<std::uint8_t> bytes;
    for (const auto& part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
    return bytes;
}

TEST(ElementaryStreamPins, StampsByTheHeadersInTheVideo) {
    const auto object = Unit(0x00, "");
    // 30 ticks a second, no fixed rate, 352 x 240
    const auto layer = Unit(0x20,
                            "0 00000001 0 0001 0 00 1 0000000000011110 1 0 1 "
                            "0000101100000 1 0000011110000 1 0");
    const auto vop15 = Unit(0xB6, "00 0 1 01111 1"), vop18 = Unit(0xB6, "01 0 1 10010 1");
    const auto end = Unit(0xB1, ""), noise = Unit(0xB5, "1010");
    CPinRig rig(kElementary);
    rig.Start(rig.video);
    // 9 ticks are 1000; encoders count 1000 ticks for 1001, so that tick 15 of 30 is at 5005000.
    for (const auto& bytes : {vop15, layer, Join({object, layer, vop15}), vop18, noise, Join({end, vop15}),
                              Join({layer, vop15, vop18})}) {
        rig.Put(rig.video, TestFrame{.llStamp = 9, .bytes = bytes});
    }
    EXPECT_THAT(rig.videoSink.Samples(5),
                ElementsAre("5004000 DS", "6005000 S", "6005000 S", "6005000 S", "5004000 S"));
    EXPECT_EQ(rig.videoSink.Sizes()[0], static_cast<LONG>(object.size() + layer.size() + vop15.size()));
    EXPECT_FALSE(rig.video.GetTiming().bReadyToReset);
}

TEST(ElementaryStreamPins, AudioIsPlain) {
    CPinRig rig(kElementary);
    rig.Start(rig.audio);
    EXPECT_THAT(rig.Play(rig.audio, {900000, 5400000, 450000}, 3),
                ElementsAre("0 DS", "500000000 S", "-50000000 S"));
    EXPECT_EQ(rig.filter.m_nResets, 0);
    EXPECT_FALSE(rig.audio.GetTiming().bReadyToReset);
}

// ---------------- what ends a loop

TEST(PinLoops, EndOnFailuresByMode) {
    struct Case {
        std::uint32_t nMode;
        bool bVideo, bEndsOnRead, bEndsOnDelivery;
    };
    for (const Case& c :
         {Case{0, true, true, false}, Case{1, true, true, true}, Case{2, true, false, false},
          Case{3, true, true, true}, Case{4, true, false, false}, Case{5, true, false, true},
          Case{0, false, false, true}, Case{1, false, false, true}, Case{2, false, false, false},
          Case{3, false, false, true}, Case{4, false, false, false}, Case{5, false, false, true}}) {
        for (const bool bRead : {true, false}) {
            CPinRig rig(c.nMode);
            CDemuxOutputPin& pin = c.bVideo ? static_cast<CDemuxOutputPin&>(rig.video) : rig.audio;
            rig.PretendAudio(100000000, 0);
            rig.Start(pin);
            rig.Sink(pin).m_hrReceive = E_FAIL;
            if (bRead) {
                SleepMs(kSettleMs);
                pin.CloseMemFiles();
            } else {
                rig.Put(pin, {900000});  // mode 0: has no VOP and is dropped
                if (c.nMode != 0 || !c.bVideo) rig.Sink(pin).Samples(1);
            }
            const bool bEnds = bRead ? c.bEndsOnRead : c.bEndsOnDelivery;
            const std::uint32_t nWaitMs = bEnds ? kTooLongMs : 2 * kSettleMs;
            EXPECT_EQ(pin.GetDeliveryThread().WaitForThread(nWaitMs), bEnds ? WAIT_OBJECT_0 : WAIT_TIMEOUT)
                << c.nMode << c.bVideo << bRead;
        }
    }
    CPinRig rig(4);
    rig.filter.m_nMode = 6;
    rig.Start(rig.video);
    EXPECT_EQ(rig.video.GetDeliveryThread().WaitForThread(kTooLongMs), WAIT_OBJECT_0);
    EXPECT_EQ(rig.video.GetDeliveryThread().GetExitCode(), 1);
    rig.filter.m_nMode = kBasic;  // stopped while it waits for a time base
    rig.Put(rig.video, {900000});
    rig.Start(rig.video);
    ASSERT_TRUE(Eventually([&] { return rig.video.GetFramesPending() == 0; }));
    rig.video.StopDelivery();
    EXPECT_EQ(rig.video.GetDeliveryThread().WaitForThread(kTooLongMs), WAIT_OBJECT_0);
    EXPECT_EQ(rig.video.GetDeliveryThread().GetExitCode(), 0);
}

}  // namespace
}  // namespace kest

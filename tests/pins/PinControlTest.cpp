// Blocking, stopping, parking for a reset, and quality messages.
#include "support/CaptureTexts.h"
#include "support/PinRig.h"

namespace kest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr DWORD kBlock = AM_PIN_FLOW_CONTROL_BLOCK;

/// A running video pin whose first sample is held in the sink.
class PinInDelivery : public testing::Test {
protected:
    void SetUp() override {
        rig.PretendAudio(100000000, 0);
        rig.videoSink.m_bHold = true;
        rig.Put(rig.video, {900000});
        rig.Start(rig.video);
        ASSERT_TRUE(Eventually([&] { return rig.videoSink.m_nEntered == 1; }));
    }
    void LetGo() {
        rig.videoSink.m_bHold = false;
        rig.videoSink.m_evGoOn.Set();
    }

    CPinRig rig{4};
};

// ---------------- flow control

TEST_F(PinInDelivery, BlockComesBetweenTwoSamples) {
    CSystemEvent evBlocked;
    SetEventHandle(evBlocked.GetHandle());  // the block resets it
    EXPECT_EQ(rig.video.Block(kBlock, evBlocked.GetHandle()), S_OK);
    EXPECT_FALSE(evBlocked.Wait(kSettleMs)) << "the sample is still on its way";
    EXPECT_EQ(rig.video.Block(kBlock, nullptr), VFW_E_PIN_ALREADY_BLOCKED_ON_THIS_THREAD);
    rig.Put(rig.video, {903600});
    LetGo();
    EXPECT_TRUE(evBlocked.Wait(kTooLongMs));
    CTestThread([&] { EXPECT_EQ(rig.video.Block(kBlock, nullptr), VFW_E_PIN_ALREADY_BLOCKED); }).Join();
    SleepMs(kSettleMs);
    EXPECT_THAT(rig.videoSink.Samples(1), ElementsAre("0 DS"));
    EXPECT_EQ(rig.video.Block(0, nullptr), S_OK);
    EXPECT_THAT(rig.videoSink.Samples(2), ElementsAre("0 DS", "400000 S"));
    EXPECT_EQ(rig.video.Block(0, nullptr), S_FALSE);
}

TEST_F(PinInDelivery, BlockWaitsForTheSampleOrTheUnblocking) {
    for (const bool bUnblock : {true, false}) {
        std::atomic<HRESULT> hr{E_FAIL};
        CTestThread blocker([&] { hr = rig.video.Block(kBlock, nullptr); });
        SleepMs(kSettleMs);
        EXPECT_FALSE(blocker.HasEnded());
        if (bUnblock) {
            EXPECT_TRUE(Eventually([&] {
                rig.video.Block(0, nullptr);
                SleepMs(1);
                return blocker.HasEnded();
            }));
        } else {
            LetGo();
        }
        blocker.Join();
        EXPECT_EQ(hr, S_OK);
    }
    CEvent evAbort{true, true};
    rig.video.Block(0, nullptr);
    rig.video.SetGraphConfig(nullptr, &evAbort);
    rig.videoSink.m_evGoOn.Reset();
    rig.videoSink.m_bHold = true;
    rig.Put(rig.video, {903600});
    ASSERT_TRUE(Eventually([&] { return rig.videoSink.m_nEntered == 2; }));
    EXPECT_EQ(rig.video.Block(kBlock, nullptr), VFW_E_STATE_CHANGED);
    EXPECT_EQ(rig.video.Block(0, nullptr), S_FALSE) << "the block was called off";
    rig.video.SetGraphConfig(nullptr, nullptr);
}

TEST(PinFlowControl, RefusesFlagsItDoesNotKnow) {
    CPinRig rig(4);
    CSystemEvent event;
    CComPtr<IPinFlowControl> pFlow;
    ASSERT_EQ(rig.audio.QueryInterface(IID_IPinFlowControl, reinterpret_cast<void**>(pFlow.Put())), S_OK);
    EXPECT_EQ(pFlow->Block(2, nullptr), E_INVALIDARG);
    EXPECT_EQ(pFlow->Block(3, event.GetHandle()), E_INVALIDARG);
    EXPECT_EQ(pFlow->Block(0, event.GetHandle()), E_INVALIDARG);
    EXPECT_EQ(pFlow->Block(kBlock, nullptr), S_OK) << "at once, with nobody inside";
    EXPECT_EQ(pFlow->Block(0, nullptr), S_OK);
}

TEST(PinFlowControl, BlockedPinLosesItsFrameToTheStopEvent) {
    for (const bool bVideo : {true, false}) {
        CPinRig rig(3);
        CDemuxOutputPin& pin = bVideo ? static_cast<CDemuxOutputPin&>(rig.video) : rig.audio;
        CEvent evAbort;
        rig.PretendAudio(100000000, 0);
        pin.SetGraphConfig(nullptr, &evAbort);
        pin.Block(kBlock, nullptr);
        rig.Start(pin);
        rig.Put(pin, {900000});
        ASSERT_TRUE(Eventually([&] { return pin.GetFramesPending() == 0; }));
        SleepMs(kSettleMs);
        EXPECT_FALSE(pin.GetTiming().bReadyToReset) << "it waits at the block";
        pin.DeliverBeginFlush();  // signals the event
        ASSERT_TRUE(Eventually([&] { return pin.GetTiming().bReadyToReset.load(); }));
        pin.DeliverEndFlush();
        EXPECT_FALSE(evAbort.IsSignalled());
        pin.Block(0, nullptr);
        EXPECT_EQ(rig.Play(pin, {903600}, 1), Texts{"400000 S"});
        pin.SetGraphConfig(nullptr, nullptr);
    }
}

TEST(PinFlowControl, StopDuringABlockHoldsTheFrameBack) {
    for (const bool bByForce : {false, true}) {
        CPinRig rig(4);
        rig.PretendAudio(100000000, 0);
        rig.video.Block(kBlock, nullptr);
        rig.Put(rig.video, {900000});
        rig.Start(rig.video);
        ASSERT_TRUE(Eventually([&] { return rig.video.GetTiming().rtTimeBase == 100000000; }));
        SleepMs(kSettleMs);
        if (bByForce) {
            rig.video.GetDeliveryThread().KillThread();
            rig.video.Block(0, nullptr);
        } else {
            rig.video.StopDelivery();
            rig.video.Block(0, nullptr);
            EXPECT_EQ(rig.video.GetDeliveryThread().WaitForThread(kTooLongMs), WAIT_OBJECT_0);
        }
        EXPECT_THAT(rig.videoSink.Samples(0), ElementsAre());
        rig.Start(rig.video);
        EXPECT_THAT(rig.Play(rig.video, {903600}, 1), ElementsAre("400000 DS"));
    }
}

// ---------------- stop rule

TEST_F(PinInDelivery, ThreadThatDoesNotEndIsEndedByForce) {
    const CCaptureTexts texts;
    rig.filter.m_bActive = false;
    const std::uint32_t dwBegin = TickCount();
    rig.video.GetDeliveryThread().Stop();
    EXPECT_GE(TickCount() - dwBegin, 1000u);
    EXPECT_LT(TickCount() - dwBegin, 1900u);
    EXPECT_FALSE(rig.video.GetDeliveryThread().IsRunning());
    EXPECT_EQ(rig.filter.m_nKilled, 1);
    EXPECT_THAT(texts.TraceTexts(), HasSubstr("&&##==>CKestDemux2VideoOutputPin is safely quit\n"));
    LetGo();
    rig.Start(rig.video);
    EXPECT_THAT(rig.Play(rig.video, {903600}, 1), ElementsAre("400000 DS")) << "the pin is free again";
    rig.video.StopDelivery();
    rig.video.CloseMemFiles();
    rig.video.GetDeliveryThread().Stop();
    EXPECT_EQ(rig.filter.m_nKilled, 1) << "one that ends is not";
}

TEST_F(PinInDelivery, ActiveFilterIsGivenMoreTime) {
    const CCaptureTexts texts;
    CTestThread late([&] {
        SleepMs(1050);
        LetGo();
        rig.video.CloseMemFiles();
    });
    rig.video.GetDeliveryThread().Stop();
    EXPECT_EQ(rig.filter.m_nKilled, 0);
    EXPECT_THAT(texts.TraceTexts(), testing::Not(HasSubstr("safely quit")));
}

// ---------------- parking

TEST(PinReset, ParksWhenTheOtherPinIsReady) {
    for (const bool bVideo : {true, false}) {
        const std::string name = bVideo ? "Video" : "Audio";
        for (const bool bStop : {false, true}) {
            const CCaptureTexts texts;
            CPinRig rig(4);
            CDemuxOutputPin& pin = bVideo ? static_cast<CDemuxOutputPin&>(rig.video) : rig.audio;
            rig.PretendAudio(100000000, 0);
            rig.filter.m_bResetting = true;
            pin.GetPeer().GetTiming().bReadyToReset = true;
            rig.Put(pin, {900000});
            rig.Start(pin);
            ASSERT_TRUE(Eventually([&] { return pin.GetTiming().bReadyToReset.load(); }));
            SleepMs(kSettleMs);
            EXPECT_THAT(rig.Sink(pin).Samples(0), ElementsAre());
            if (bStop) {
                pin.StopDelivery();
                EXPECT_EQ(pin.GetDeliveryThread().WaitForThread(kTooLongMs), WAIT_OBJECT_0);
                EXPECT_THAT(rig.Sink(pin).Samples(0), ElementsAre());
            } else {
                rig.filter.m_bResetting = false;
                EXPECT_THAT(rig.Sink(pin).Samples(1), ElementsAre("0 DS"));
                EXPECT_THAT(
                    texts.TraceTexts(),
                    HasSubstr(bVideo ? "Video is ready to reset\nVideo is ready  and waiting for 100ms\n"
                                     : "Audio is ready to reset\nAudio is ready and waited 100ms\n"));
            }
        }
        const CCaptureTexts texts;
        CPinRig rig(4);
        CDemuxOutputPin& pin = bVideo ? static_cast<CDemuxOutputPin&>(rig.video) : rig.audio;
        rig.PretendAudio(100000000, 0);
        rig.filter.m_bResetting = true;
        rig.Start(pin);
        EXPECT_THAT(rig.Play(pin, {900000}, 1), ElementsAre("0 DS")) << "the other pin is in a delivery";
        EXPECT_THAT(texts.TraceTexts(), HasSubstr("=======>" + name + " is not ready to reset!!!\n"));
    }
}

// ---------------- quality messages

HRESULT Notify(CDemuxOutputPin& pin, REFERENCE_TIME rtLate, REFERENCE_TIME rtStamp = 0) {
    return pin.Notify(nullptr, Quality{Famine, 1000, rtLate, rtStamp});
}

TEST(PinQuality, VideoAnswersByModeAndLateness) {
    struct Case {
        std::uint32_t nMode;
        REFERENCE_TIME rtLate;
        HRESULT hrPending, hrEmpty;  // with and without a frame that waits
    };
    for (const Case& c : {Case{1, -199999, S_OK, E_NOTIMPL}, Case{1, -200000, E_NOTIMPL, E_NOTIMPL},
                          Case{2, -309999, S_OK, E_NOTIMPL}, Case{2, -310000, E_NOTIMPL, E_NOTIMPL},
                          Case{3, 9000000, E_NOTIMPL, E_NOTIMPL}, Case{4, 9000000, E_NOTIMPL, E_NOTIMPL},
                          Case{5, 9000000, E_NOTIMPL, E_NOTIMPL}}) {
        const CCaptureTexts texts;
        CPinRig rig(c.nMode);
        EXPECT_EQ(Notify(rig.video, c.rtLate), c.hrEmpty);
        rig.Put(rig.video, {0});
        EXPECT_EQ(Notify(rig.video, c.rtLate), c.hrPending) << c.nMode << " " << c.rtLate;
        EXPECT_EQ(texts.DebugTexts(), c.nMode == 1 && c.hrPending == S_OK ? "===>Skipping frame\n" : "");
        EXPECT_EQ(Notify(rig.audio, c.rtLate), E_NOTIMPL);
        EXPECT_THAT(texts.DebugTexts(), HasSubstr("Notify in audio output pin!!\n"));
    }
}

TEST(PinQuality, LateElementaryStreamMovesItsBaseOnce) {
    static bool s_bMoved = false;  // the pins remember it for the life of the process
    if (std::exchange(s_bMoved, true)) GTEST_SKIP() << "only the first time in a process";
    CPinRig rig(0);
    auto& rtBase = rig.video.GetTiming().rtTimeBase;
    rtBase = 1000000;
    rig.filter.m_rtStreamStart = 20000000;
    EXPECT_EQ(Notify(rig.video, 750000), E_NOTIMPL);
    EXPECT_EQ(Notify(rig.video, 750001), S_FALSE) << "no clock";
    rig.filter.m_rtNow = 50000000;
    rig.Put(rig.video, {0, 0});
    Notify(rig.video, 2000000, 30500000);  // the clock has 50 ms, no more
    EXPECT_EQ(rtBase, 1000000);
    EXPECT_EQ(Notify(rig.video, 2000000, 30499999), E_NOTIMPL);
    EXPECT_EQ(rtBase, 10000) << "four frames late but the two that wait, less one: three";
    Notify(rig.video, 2000000, 0);
    EXPECT_EQ(rtBase, 10000) << "not again so soon";
    rig.Put(rig.video, {0});
    EXPECT_EQ(Notify(rig.video, 2000000, 0), S_OK) << "enough to catch up with";
}

}  // namespace
}  // namespace kest

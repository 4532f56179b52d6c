// Blocking, parking for a reset, and quality messages.
#include "support/CaptureTexts.h"
#include "support/PinRig.h"

namespace kest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr DWORD kBlock = AM_PIN_FLOW_CONTROL_BLOCK;

// ---------------- flow control

TEST(PinFlowControl, BlockComesBetweenTwoSamples) {
    CPinRig rig(4);
    rig.PretendAudio(100000000, 0);
    rig.videoSink.m_bHold = true;
    rig.Put(rig.video, TestFrame{900000});
    rig.Start(rig.video);
    ASSERT_TRUE(Eventually([&] { return rig.videoSink.m_nEntered == 1; }));
    CEvent evBlocked{true, true};
    EXPECT_EQ(rig.video.Block(kBlock, GetEventHandle(evBlocked)), S_OK);
    EXPECT_FALSE(evBlocked.Wait(kSettleMs)) << "the sample is still on its way";
    EXPECT_EQ(rig.video.Block(kBlock, nullptr), VFW_E_PIN_ALREADY_BLOCKED_ON_THIS_THREAD);
    rig.Put(rig.video, TestFrame{903600});
    rig.Release(rig.videoSink);
    EXPECT_TRUE(evBlocked.Wait(kTooLongMs));
    CTestThread([&] { EXPECT_EQ(rig.video.Block(kBlock, nullptr), VFW_E_PIN_ALREADY_BLOCKED); }).Join();
    SleepMs(kSettleMs);
    EXPECT_THAT(rig.videoSink.Samples(1), ElementsAre("0 DS"));
    EXPECT_EQ(rig.video.Block(0, nullptr), S_OK);
    EXPECT_THAT(rig.videoSink.Samples(2), ElementsAre("0 DS", "400000 S"));
    EXPECT_EQ(rig.video.Block(0, nullptr), S_FALSE);
    EXPECT_EQ(rig.video.Block(2, nullptr), E_INVALIDARG);
    EXPECT_EQ(rig.video.Block(kBlock | 2, GetEventHandle(evBlocked)), E_INVALIDARG);
    EXPECT_EQ(rig.video.Block(0, GetEventHandle(evBlocked)), E_INVALIDARG);
}

TEST(PinFlowControl, WaitForABlockEndsByUnblockingStopAndFlush) {
    for (const auto& [nEnd, hr] : {std::pair(0, S_OK), {1, VFW_E_STATE_CHANGED}, {2, VFW_E_STATE_CHANGED}}) {
        CPinFlowControl flow(/*bGate=*/false);
        CEvent evStop;
        flow.SetStopEvent(&evStop);
        flow.StartUsing();
        CTestThread blocker([&flow, hr = hr] { EXPECT_EQ(flow.Block(kBlock, nullptr), hr); });
        SleepMs(kSettleMs);
        EXPECT_FALSE(blocker.HasEnded());
        if (nEnd == 0) flow.Block(0, nullptr);
        if (nEnd == 1) evStop.Set();
        if (nEnd == 2) flow.BeginFlush(), flow.EndFlush();
        blocker.Join();
        EXPECT_EQ(flow.Block(0, nullptr), S_FALSE) << "the block was called off";
        EXPECT_EQ(evStop.IsSignalled(), nEnd == 1);
        flow.BeginFlush();
        flow.EndFlush();
        EXPECT_EQ(evStop.IsSignalled(), nEnd == 1) << "a flush leaves the stop alone";
        flow.StopUsing();
    }
}

TEST(PinFlowControl, BlockedPinLosesItsFrameToFlushStopAndForce) {
    for (const bool bVideo : {true, false}) {
        for (const int nEnd : {0, 1, 2}) {
            CPinRig rig(3);
            CDemuxOutputPin& pin = *rig.Pins()[bVideo ? 0 : 1];
            rig.PretendAudio(100000000, 0);
            pin.Block(kBlock, nullptr);
            rig.Start(pin);
            rig.Put(pin, TestFrame{900000});
            ASSERT_TRUE(Eventually([&] { return pin.GetFramesPending() == 0; }));
            SleepMs(kSettleMs);
            EXPECT_FALSE(rig.Timing(pin).bReadyToReset) << "it waits at the block";
            if (nEnd == 0) {  // over before the thread can have woken
                pin.DeliverBeginFlush();
                pin.DeliverEndFlush();
                EXPECT_TRUE(Eventually([&] { return rig.Timing(pin).bReadyToReset; }));
            } else {
                nEnd == 1 ? pin.StopDelivery() : pin.GetDeliveryThread().KillThread();
            }
            pin.Block(0, nullptr);
            if (nEnd == 1) pin.GetDeliveryThread().WaitForThread(kTooLongMs);
            if (nEnd != 0) rig.Start(pin);
            EXPECT_EQ(rig.Play(pin, {903600}, 1).size(), 1u);
        }
    }
}

// The waited event is on the stack of whoever blocks.
TEST(PinFlowControl, StressBlocksWhileInUse) {
    CPinFlowControl flow(/*bGate=*/true);
    std::atomic<bool> bEnd{false};
    CTestThread user([&] {
        while (!bEnd) const CPinUse use(flow);
    });
    const std::uint32_t dwBegin = TickCount();
    while (TickCount() - dwBegin < 500) {
        EXPECT_EQ(flow.Block(kBlock, nullptr), S_OK);
        EXPECT_EQ(flow.Block(0, nullptr), S_OK);
    }
    bEnd = true;
}

// ---------------- parking

TEST(PinReset, ParksWhenTheOtherPinIsReady) {
    for (const bool bVideo : {true, false}) {
        for (const bool bStop : {false, true}) {
            const CCaptureTexts texts;
            CPinRig rig(4);
            CDemuxOutputPin& pin = *rig.Pins()[bVideo ? 0 : 1];
            rig.PretendAudio(100000000, 0);
            rig.filter.m_bResetting = true;
            rig.Start(pin);
            EXPECT_THAT(rig.Play(pin, {900000}, 1), ElementsAre("0 DS")) << "the other pin is in a delivery";
            rig.filter.m_timing.Update(
                [&](AvTimes& times) { (bVideo ? times.audio : times.video).bReadyToReset = true; });
            rig.Put(pin, TestFrame{900000});
            SleepMs(110);
            if (bStop) {
                pin.StopDelivery();
                EXPECT_EQ(pin.GetDeliveryThread().WaitForThread(kTooLongMs), WAIT_OBJECT_0);
                EXPECT_EQ(rig.Sink(pin).Samples(0).size(), 1u);
                continue;
            }
            SleepMs(110);
            EXPECT_EQ(rig.Sink(pin).Samples(0).size(), 1u);
            rig.filter.m_bResetting = false;
            rig.Sink(pin).Samples(2);
            const std::string strName = bVideo ? "Video" : "Audio";
            EXPECT_THAT(texts.TraceTexts(), HasSubstr("=======>" + strName + " is not ready to reset!!!\n"));
            EXPECT_THAT(texts.TraceTexts(),
                        HasSubstr(bVideo ? "Video is ready to reset\nVideo is ready  and waiting for 100ms\n"
                                         : "Audio is ready to reset\nAudio is ready and waited 100ms\n"));
        }
    }
}

// ---------------- quality messages

HRESULT Notify(CDemuxOutputPin& pin, REFERENCE_TIME rtLate, REFERENCE_TIME rtTime = 0) {
    return pin.Notify(nullptr, Quality{Famine, 1000, rtLate, rtTime});
}

TEST(PinQuality, VideoAnswersByModeAndLateness) {
    struct {
        std::uint32_t nMode;
        REFERENCE_TIME rtLate;
        HRESULT hrPending;  // with a frame that waits
    } const cases[] = {{1, -199999, S_OK},      {1, -200000, E_NOTIMPL}, {2, -309999, S_OK},
                       {2, -310000, E_NOTIMPL}, {3, 9000000, E_NOTIMPL}, {5, 9000000, E_NOTIMPL}};
    for (const auto& c : cases) {
        const CCaptureTexts texts;
        CPinRig rig(c.nMode);
        EXPECT_EQ(Notify(rig.video, c.rtLate), E_NOTIMPL);
        rig.Put(rig.video, TestFrame{});
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
    auto Base = [&] { return rig.Timing(rig.video).rtTimeBase; };
    rig.filter.m_timing.Update([](AvTimes& times) { times.video.rtTimeBase = 1000000; });
    rig.filter.m_rtStreamStart = 20000000;
    EXPECT_EQ(Notify(rig.video, 750000), E_NOTIMPL);
    EXPECT_EQ(Notify(rig.video, 750001), S_FALSE) << "no clock";
    rig.filter.m_rtNow = 50000000;
    for (int i = 0; i < 2; ++i) rig.Put(rig.video, TestFrame{});
    Notify(rig.video, 2000000, 30500000);  // the clock has 50 ms, no more
    EXPECT_EQ(Base(), 1000000);
    EXPECT_EQ(Notify(rig.video, 2000000, 30499999), E_NOTIMPL);
    EXPECT_EQ(Base(), 10000) << "four frames late but the two that wait, less one: three";
    Notify(rig.video, 2000000, 0);
    EXPECT_EQ(Base(), 10000) << "not again so soon";
    rig.Put(rig.video, TestFrame{});
    EXPECT_EQ(Notify(rig.video, 2000000, 0), S_OK) << "enough to catch up with";
}

}  // namespace
}  // namespace kest

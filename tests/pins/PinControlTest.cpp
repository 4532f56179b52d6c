// Flow control, and parking for a reset.
#include "platform/SystemEvent.h"
#include "support/CaptureTexts.h"
#include "support/PinRig.h"

namespace kest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr DWORD kBlock = AM_PIN_FLOW_CONTROL_BLOCK;

TEST(PinFlowControl, BlockComesBetweenTwoSamples) {
    CPinRig rig(4);
    rig.PretendAudio(100000000, 0);
    std::atomic<bool> bEntered{false};
    rig.videoSink.m_onCall = [&](const std::string&) { bEntered = true, rig.evGoOn.Wait(); };
    rig.Put(rig.video, TestFrame{900000});
    rig.Start(rig.video);
    ASSERT_TRUE(Eventually([&] { return bEntered.load(); }));
    CSystemEvent evBlocked;
    SetEventHandle(evBlocked.GetHandle());  // the block resets it
    EXPECT_EQ(rig.video.Block(kBlock | 2, evBlocked.GetHandle()), E_INVALIDARG);
    EXPECT_EQ(rig.video.Block(0, evBlocked.GetHandle()), E_INVALIDARG);
    EXPECT_EQ(rig.video.Block(kBlock, evBlocked.GetHandle()), S_OK);
    EXPECT_FALSE(evBlocked.Wait(kSettleMs)) << "the sample is still on its way";
    EXPECT_EQ(rig.video.Block(kBlock, nullptr), VFW_E_PIN_ALREADY_BLOCKED_ON_THIS_THREAD);
    rig.Put(rig.video, TestFrame{903600});
    rig.evGoOn.Set();
    EXPECT_TRUE(evBlocked.Wait(kTooLongMs));
    CTestThread([&] { EXPECT_EQ(rig.video.Block(kBlock, nullptr), VFW_E_PIN_ALREADY_BLOCKED); }).Join();
    EXPECT_THAT(rig.videoSink.Samples(1), ElementsAre("0 DS"));
    EXPECT_EQ(rig.video.Block(0, nullptr), S_OK);
    EXPECT_THAT(rig.videoSink.Samples(2), ElementsAre("0 DS", "400000 S"));
}

TEST(PinFlowControl, WaitForABlockEndsByUnblockingStopAndFlush) {
    for (const int nEnd : {0, 1, 2}) {
        CPinFlowControl flow(/*bGate=*/false);
        CEvent evStop;
        flow.SetStopEvent(&evStop);
        flow.StartUsing();
        CTestThread blocker(
            [&] { EXPECT_EQ(flow.Block(kBlock, nullptr), nEnd == 0 ? S_OK : VFW_E_STATE_CHANGED); });
        SleepMs(kSettleMs);
        if (nEnd == 0) flow.Block(0, nullptr);
        if (nEnd == 1) evStop.Set();
        flow.BeginFlush();  // over before the thread can have woken; it leaves the stop event alone
        flow.EndFlush();
        blocker.Join();
        EXPECT_EQ(evStop.IsSignalled(), nEnd == 1);
        EXPECT_EQ(flow.Block(0, nullptr), S_FALSE) << "the block was called off";
        flow.StopUsing();
    }
}

TEST(PinFlowControl, BlockedPinLosesItsFrameToFlushStopAndForce) {
    for (const bool bVideo : {true, false}) {
        for (const int nEnd : {0, 1, 2}) {
            CPinRig rig(3);
            CDemuxOutputPin& pin = rig.Pin(bVideo);
            rig.PretendAudio(100000000, 0);
            pin.Block(kBlock, nullptr);
            rig.Start(pin);
            rig.Put(pin, TestFrame{900000});
            ASSERT_TRUE(Eventually([&] { return pin.GetFramesPending() == 0; }));
            SleepMs(kSettleMs);
            if (nEnd == 0) {
                const CFlushing flushing(pin);
            }
            if (nEnd == 1) pin.StopDelivery();
            if (nEnd == 2) pin.GetDeliveryThread().KillThread();
            EXPECT_TRUE(nEnd != 0 || Eventually([&] { return rig.Timing(pin).bReadyToReset; }));
            pin.Block(0, nullptr);
            pin.GetDeliveryThread().WaitForThread(nEnd == 1 ? kTooLongMs : 0);
            if (nEnd != 0) rig.Start(pin);
            EXPECT_EQ(rig.Play(pin, {903600}, 1).size(), 1u);
        }
    }
}

// The event that is waited for is on the stack of whoever blocks.
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

TEST(PinReset, ParksWhenTheOtherPinIsReady) {
    for (const bool bVideo : {true, false}) {
        const CCaptureTexts texts;
        CPinRig rig(4);
        CDemuxOutputPin& pin = rig.Pin(bVideo);
        rig.PretendAudio(100000000, 0);
        rig.filter.m_bResetting = true;
        rig.Start(pin);
        EXPECT_THAT(rig.Play(pin, {900000}, 1), ElementsAre("0 DS")) << "the other pin is in a delivery";
        rig.filter.m_timing.Update([](AvTimes& t) { t.audio.bReadyToReset = t.video.bReadyToReset = true; });
        rig.Put(pin, TestFrame{900000});
        const char* pszWaits = bVideo ? "Video is ready to reset\nVideo is ready  and waiting for 100ms\n"
                                      : "Audio is ready to reset\nAudio is ready and waited 100ms\n";
        EXPECT_TRUE(
            Eventually([&] { return SleepMs(1), texts.TraceTexts().find(pszWaits) != std::string::npos; }));
        EXPECT_THAT(texts.TraceTexts(), HasSubstr(bVideo ? "=======>Video is not ready to reset!!!\n"
                                                         : "=======>Audio is not ready to reset!!!\n"));
        pin.StopDelivery();
        EXPECT_EQ(pin.GetDeliveryThread().WaitForThread(kTooLongMs), WAIT_OBJECT_0);
        EXPECT_EQ(rig.Sink(pin).Samples(0).size(), 1u);
    }
}

}  // namespace
}  // namespace kest

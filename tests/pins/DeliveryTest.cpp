// The delivery thread: what goes downstream in which order, seeks, ends, stops. Time is in TimelineTest.
#include "support/CaptureTexts.h"
#include "support/PinRig.h"

namespace kest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr REFERENCE_TIME kTenSeconds = 100000000;

TEST(Delivery, AudioBeginsForBothPins) {
    CPinRig rig(2);
    rig.Start(rig.audio);
    EXPECT_THAT(rig.Play(rig.audio, {900000, 902160}, 2), ElementsAre("0 DS", "240000 S"));
    EXPECT_THAT(rig.audioSink.All(5),
                ElementsAre("begin flush", "end flush", "segment 1", "0 DS", "240000 S"));
    rig.Start(rig.video);
    rig.Put(rig.video, TestFrame{.llTimestamp = 903600, .bytes = std::vector<std::uint8_t>(163840)});
    EXPECT_THAT(rig.videoSink.All(5),
                ElementsAre("begin flush", "end flush", "begin flush", "end flush", "400000 DS"))
        << "the audio's flush and its own, and no segment";
    EXPECT_EQ(rig.videoSink.m_nLastSize, 163840);
    rig.Put(rig.video, TestFrame{.llTimestamp = 1803600, .bDiscontinuity = true});
    EXPECT_EQ(rig.videoSink.Samples(2).back(), "240000 DS") << "the audio's, which is far behind";
}

TEST(Delivery, RecordsGoOutByTheirFlags) {
    const Texts expected[2][2] = {
        {{"end of stream", "end of stream", "- D", "segment 2", "- D"},
         {"end of stream", "end of stream", "- DP", "- D"}},
        {{"end of stream", "- D", "-", "-"}, {"end of stream", "-", "-", "-"}},
    };
    for (const bool bFreeRun : {false, true}) {
        CPinRig rig(4);
        rig.filter.m_bFreeRun = bFreeRun;
        for (const bool bVideo : {true, false}) {
            rig.Put(rig.Pin(bVideo), TestFrame{.bEndOfStream = true, .bytes = {}});
            rig.Put(rig.Pin(bVideo), TestFrame{.bEndOfStream = true});
            rig.Put(rig.Pin(bVideo), TestFrame{.bSegmentMarker = true, .bNoVideo = true});
            rig.Put(rig.Pin(bVideo), TestFrame{.bSegmentMarker = true});
            rig.Start(rig.Pin(bVideo));
            const Texts& texts = expected[bFreeRun][bVideo];
            EXPECT_EQ(rig.Sink(rig.Pin(bVideo)).All(texts.size()), texts);
        }
        EXPECT_TRUE(Eventually([&] { return rig.filter.m_nSteps == (bFreeRun ? 3 : 1); }))
            << "none for a preroll";
    }
}

TEST(Delivery, PendingRestartDropsWhatIsQueuedButTheEnd) {
    CPinRig rig(4);
    rig.PretendAudio(kTenSeconds, 0);
    for (CDemuxOutputPin* pPin : rig.Pins()) {
        for (const std::int64_t ll : {100, 200}) rig.Put(*pPin, TestFrame{ll});
        rig.Put(*pPin, TestFrame{.bEndOfStream = true, .bytes = {}});
    }
    rig.filter.m_timing.Restart();
    for (CDemuxOutputPin* pPin : rig.Pins()) {
        rig.Start(*pPin);
        EXPECT_THAT(rig.Sink(*pPin).All(1), ElementsAre("end of stream"));
        EXPECT_THAT(rig.Play(*pPin, {900000}, 1), ElementsAre("0 DS"));
    }
}

TEST(Delivery, FailuresEndLoopsByMode) {
    struct {
        std::uint32_t nMode;
        bool bVideo, bEndsOnRead, bEndsOnDelivery;
    } const cases[] = {{0, true, true, false},  {1, true, true, true},    {3, true, true, true},
                       {4, true, false, false}, {5, true, false, true},   {0, false, false, true},
                       {1, false, false, true}, {4, false, false, false}, {5, false, false, true}};
    for (const auto& c : cases) {
        for (const bool bRead : {true, false}) {
            CPinRig rig(c.nMode);
            CDemuxOutputPin& pin = rig.Pin(c.bVideo);
            rig.PretendAudio(kTenSeconds, 0);
            rig.Start(pin);
            rig.Sink(pin).m_hrReceive = E_FAIL;
            SleepMs(kSettleMs / 2);
            if (bRead) pin.CloseMemFiles();
            rig.Put(pin, TestFrame{900000});  // mode 0: has no VOP and is dropped
            const bool bEnds = bRead ? c.bEndsOnRead : c.bEndsOnDelivery;
            EXPECT_EQ(pin.GetDeliveryThread().WaitForThread(bEnds ? kTooLongMs : 2 * kSettleMs),
                      bEnds ? WAIT_OBJECT_0 : WAIT_TIMEOUT)
                << c.nMode << c.bVideo << bRead;
        }
    }
    for (const std::uint32_t nMode : {5u, 6u}) {  // in a wait for a time base; in a mode without a stream
        CPinRig rig(5);
        rig.filter.m_nMode = nMode;
        rig.Put(rig.video, TestFrame{900000});
        rig.Start(rig.video);
        EXPECT_TRUE(nMode == 6 || Eventually([&] { return rig.video.GetFramesPending() == 0; }));
        if (nMode == 5) rig.video.StopDelivery();
        EXPECT_EQ(rig.video.GetDeliveryThread().WaitForThread(kTooLongMs), WAIT_OBJECT_0);
        EXPECT_EQ(rig.video.GetDeliveryThread().GetExitCode(), nMode == 5 ? 0 : 1);
    }
}

TEST(Delivery, BothPinsCrossJumpsAndSeeksTogether) {
    CPinRig rig(4);
    rig.Switch(ESwitch::RobustTiming) = 1;
    for (CDemuxOutputPin* pPin : rig.Pins()) rig.Start(*pPin);
    rig.Put(rig.video, TestFrame{900000});
    EXPECT_THAT(rig.Play(rig.audio, {903600}, 1), ElementsAre("400000 DS"));
    EXPECT_THAT(rig.videoSink.Samples(1), ElementsAre("0 DS"));
    EXPECT_THAT(rig.Play(rig.audio, {905760}, 2).back(), "640000 S");
    EXPECT_THAT(rig.Play(rig.video, {903003}, 2).back(), "333666 S");
    rig.Put(rig.audio, TestFrame{1805760});  // whichever comes first waits for the other
    EXPECT_THAT(rig.Play(rig.video, {1803600}, 3).back(), "667333 DS");
    EXPECT_THAT(rig.audioSink.Samples(3).back(), "907333 DS");
    for (CDemuxOutputPin* pPin : rig.Pins()) pPin->GetFrameQueue().Reset();
    rig.Put(rig.video, TestFrame{90000});
    EXPECT_THAT(rig.Play(rig.audio, {90000}, 4).back(), "0 DS");
    EXPECT_THAT(rig.videoSink.Samples(4).back(), "0 DS");
    EXPECT_THAT(rig.audioSink.All(6),
                ElementsAre("segment 1", "400000 DS", "640000 S", "907333 DS", "segment 1", "0 DS"));
    rig.Put(rig.audio, TestFrame{.bEndOfStream = true, .bytes = {}});
    rig.audioSink.All(7);
    EXPECT_TRUE(rig.filter.m_timing.Get().line.Of(EPin::Audio).bEnded) << "it is not waited for";
}

// In a basic timeline the first frame would be withheld, in the others it would set the time base.
TEST(Delivery, FramesWithoutTimesStandOutsideTheTiming) {
    for (const std::uint32_t nMode : {3u, 4u, 5u}) {
        for (const bool bRobust : {false, true}) {
            CPinRig rig(nMode);
            rig.Switch(ESwitch::Drain) = 1;
            rig.Switch(ESwitch::RobustTiming) = bRobust;
            rig.Start(rig.audio);
            EXPECT_THAT(rig.Play(rig.audio, {kNoFrameTime, 900000}, 2), ElementsAre("-", "0 DS"));
            rig.Start(rig.video);
            EXPECT_THAT(rig.Play(rig.video, {kNoFrameTime, 900000}, 2), ElementsAre("-", "0 DS")) << nMode;
        }
    }
    CPinRig rig(0);
    rig.Switch(ESwitch::Drain) = 1;
    rig.Start(rig.video);
    EXPECT_THAT(rig.Play(rig.video, {0}, 1), ElementsAre("-")) << "before the first VOP";
}

// The core would wait for a reader that nobody reads for.
TEST(Delivery, PinThatIsNotConnectedHoldsNobodyUp) {
    const CComPtr<CPinFilter> pFilter(new CPinFilter);
    CDemuxOutputPin& pin = pFilter->m_audio;
    pin.ROpenMemFile();
    pin.WOpenMemFile();
    pin.GetDeliveryThread().Restart();
    pin.GetDeliveryThread().Resume();
    const std::vector<std::uint8_t> bytes(3);
    const FRAME_INFO info{};
    for (std::uint32_t i = 0; i <= pin.GetFrameCapacity(); ++i) pin.GetFrameQueue().WriteEx(bytes, &info, 0);
    EXPECT_EQ(pin.GetFrameQueue().WriteEx(bytes, &info, 0), 3);
    SleepMs(kSettleMs);
    EXPECT_TRUE(pin.GetDeliveryThread().IsRunning());
    pin.GetDeliveryThread().Stop();
    EXPECT_EQ(pFilter->m_nKilled, 0);
}

// ---------------- seeks

/// Acts when a trace text comes, on the thread that writes it.
class CAtTrace {
public:
    CAtTrace(std::string text, std::function<void()> act) {
        SetTraceSink([=](const char* pszText) {
            if (std::string_view(pszText).find(text) != std::string_view::npos) act();
        });
    }
    ~CAtTrace() { SetTraceSink(nullptr); }
};

TEST(DeliverySeeks, StaleFrameChangesNothing) {
    CPinRig rig(4);
    {
        CAutoLock seek(rig.audio.GetFlushLock());  // as a seek: the frame comes to its flush meanwhile
        rig.Put(rig.audio, TestFrame{.llTimestamp = 900000, .bDiscontinuity = true});
        rig.Start(rig.audio);
        EXPECT_TRUE(Eventually([&] { return rig.audio.GetFramesPending() == 0; }));
        SleepMs(kSettleMs);
        rig.audio.GetFrameQueue().Reset();
    }
    SleepMs(kSettleMs);
    EXPECT_EQ(rig.Timing(rig.audio), PinTiming()) << "no time base of the old place";
    EXPECT_THAT(rig.audioSink.All(0), ElementsAre()) << "no flush";
    rig.PretendAudio(0, 0);
    rig.Start(rig.video);
    std::atomic<int> nSeeks{0};
    const CAtTrace seek("Wrong timestamp", [&] { rig.video.GetFrameQueue().Reset(), ++nSeeks; });
    for (int i = 1; i <= 9; ++i) {
        rig.Put(rig.video, TestFrame{1800000});
        EXPECT_TRUE(Eventually([&] { return nSeeks == i; }));
    }
    rig.video.CloseMemFiles();
    rig.video.GetDeliveryThread().Stop();
    EXPECT_THAT(rig.filter.m_hooks.Get(), ElementsAre()) << "no seek of a frame that is stale";
}

TEST(DeliverySeeks, FrameOutlivesItsOwnSeekButNoOther) {
    for (const bool bSeek : {false, true}) {
        CPinRig rig(4);
        const TestFrame frame{.llTimestamp = 1800000, .llFilePos = 1048576};
        rig.filter.m_onHook = [&] { rig.video.GetFrameQueue().Reset(); };
        rig.PretendAudio(0, 200000000);
        rig.Start(rig.video);
        for (std::size_t i = 1; i <= 7; ++i) {
            rig.Put(rig.video, frame);
            rig.videoSink.Samples(i);
            rig.PretendAudio(0, 0);
        }
        EXPECT_EQ(rig.video.Block(AM_PIN_FLOW_CONTROL_BLOCK, nullptr), S_OK);
        rig.Put(rig.video, frame);
        EXPECT_THAT(rig.filter.m_hooks.WaitFor(1), ElementsAre("seek 56924053"));
        LONGLONG llFar = 0;
        if (bSeek) rig.video.GetSeeking().SetPositions(&llFar, 1, nullptr, 0);
        rig.video.Block(0, nullptr);
        rig.Put(rig.video, frame);
        rig.videoSink.Samples(bSeek ? 8 : 9);
        SleepMs(kSettleMs);
        EXPECT_EQ(rig.videoSink.Samples(0).size(), bSeek ? 8u : 9u);
    }
}

// ---------------- flushes and ends

TEST(DeliveryFlushes, EndIsNotFlushedByTheOtherPin) {
    CPinRig rig(4);
    rig.videoSink.m_onCall = [&](const std::string& text) {
        return text == "end of stream" && rig.evGoOn.Wait();
    };
    rig.Put(rig.video, TestFrame{.bEndOfStream = true, .bytes = {}});
    rig.Start(rig.video);
    EXPECT_THAT(rig.videoSink.All(1), ElementsAre("end of stream"));
    rig.Start(rig.audio);
    EXPECT_THAT(rig.Play(rig.audio, {900000}, 1), ElementsAre("0 DS")) << "the end is still on its way";
    rig.evGoOn.Set();
    rig.Put(rig.audio, TestFrame{.llTimestamp = 1800000, .bDiscontinuity = true});
    rig.audioSink.Samples(2);
    EXPECT_THAT(rig.videoSink.All(0), ElementsAre("end of stream"));
    { const CFlushing seek(rig.video); }
    rig.Put(rig.audio, TestFrame{.llTimestamp = 900000, .bDiscontinuity = true});
    EXPECT_EQ(rig.videoSink.All(5).size(), 5u);
}

TEST(DeliveryFlushes, ForcedEndLeavesNoneOpen) {
    for (const std::string strHeld : {"begin flush", "end flush"}) {
        CPinRig rig(4);
        std::atomic<int> nHeld{0};
        rig.audioSink.m_onCall = [&](const std::string& text) {
            return text == strHeld && nHeld++ == 0 && rig.evGoOn.Wait();
        };
        rig.Put(rig.audio, TestFrame{900000});
        rig.Start(rig.audio);
        EXPECT_TRUE(Eventually([&] { return nHeld == 1; }));
        SleepMs(kSettleMs);
        rig.audio.GetDeliveryThread().KillThread();
        EXPECT_EQ(rig.audioSink.All(0).back(), "end flush");
        EXPECT_EQ(rig.audio.GetDeliveryThread().GetExitCode(), CWorkerThread::kExitKilled);
        rig.Start(rig.audio);
        EXPECT_THAT(rig.Play(rig.audio, {900000}, 1), ElementsAre("0 DS")) << "deliveries are not held back";
    }
}

// ---------------- the stop rule

/// Waits for samples as a system's allocator does: until a decommit, and no force ends it.
class CForeignAllocator final : public IMemAllocator {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* pRequest,
                                            ALLOCATOR_PROPERTIES* pActual) override {
        *pActual = *pRequest;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Commit() override { return m_bCommitted = true, S_OK; }
    HRESULT STDMETHODCALLTYPE Decommit() override {
        m_bCommitted = false;
        m_bCommitted.notify_all();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample**, REFERENCE_TIME*, REFERENCE_TIME*, DWORD) override {
        m_bCommitted.wait(true);
        return VFW_E_NOT_COMMITTED;
    }
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample*) override { return S_OK; }

    std::atomic<bool> m_bCommitted{false};
};

TEST(DeliveryStop, BringsBackAThreadThatWaitsInForeignCode) {
    for (const bool bAllocator : {true, false}) {
        const CCaptureTexts texts;
        CForeignAllocator allocator;
        std::atomic<bool> bHeld{false};
        CPinRig rig(4, bAllocator ? &allocator : nullptr);
        rig.PretendAudio(kTenSeconds, 0);
        rig.videoSink.m_onCall =
            [&](const std::string& text) {  // a renderer holds a sample until it is flushed
                bHeld = text == "receive" && rig.filter.m_nKilled == 0;
                bHeld.notify_all();
                bHeld.wait(true);
            };
        rig.Put(rig.video, TestFrame{900000});
        rig.Start(rig.video);
        EXPECT_TRUE(bAllocator || Eventually([&] { return bHeld.load(); }));
        SleepMs(kSettleMs);
        CTestThread([&] { rig.video.GetDeliveryThread().Stop(); }).Join();
        EXPECT_EQ(rig.filter.m_nKilled, 1);
        EXPECT_THAT(texts.TraceTexts(), HasSubstr("&&##==>CKestDemux2VideoOutputPin is safely quit\n"));
        EXPECT_EQ(rig.videoSink.All(0).back(), "end flush");
        if (bAllocator) continue;
        rig.video.Active();
        rig.Start(rig.video);
        EXPECT_EQ(rig.Play(rig.video, {903600}, 2).back(), "400000 DS") << "the pin is free again";
    }
}

}  // namespace
}  // namespace kest

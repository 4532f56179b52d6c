// Which threads run in which state and mode, what a stop and a reset leave, and seeks.
#include "FilterRig.h"

namespace kest {
namespace {

using FilterStates = FilterTest;

// Without a connection the threads of a mode wait for bytes that never come: their timing stays as it is put.
TEST_F(FilterStates, ModeAndStateDecideWhichThreadsRun) {
    struct {
        char cCall;  // stop, pause, run
        FILTER_STATE state;
    } const calls[] = {
        {'S', State_Stopped}, {'P', State_Paused},  {'P', State_Paused},  {'R', State_Running},
        {'R', State_Running}, {'P', State_Paused},  {'S', State_Stopped}, {'R', State_Running},
        {'S', State_Stopped}, {'S', State_Stopped},
    };
    for (std::uint32_t nMode = 0; nMode <= 6; ++nMode) {
        m_pInput->SetWorkingMode(static_cast<EWorkingMode>(nMode));
        for (const auto& call : calls) {
            SCOPED_TRACE("mode " + std::to_string(nMode) + ", call " + call.cCall);
            EXPECT_EQ(S_OK, call.cCall == 'S'   ? m_pFilter->Stop()
                            : call.cCall == 'P' ? m_pFilter->Pause()
                                                : m_pFilter->Run(4711));
            FILTER_STATE state;
            m_pFilter->GetState(0, &state);
            EXPECT_EQ(call.state, state);
            const bool bActive = call.state != State_Stopped;
            EXPECT_EQ(bActive, m_pFilter->IsActive());
            EXPECT_EQ(bActive && nMode <= 5, m_pVideo->GetDeliveryThread().IsRunning());
            EXPECT_EQ(bActive && nMode >= 1 && nMode <= 5, m_pAudio->GetDeliveryThread().IsRunning());
        }
    }
    EXPECT_EQ(4711, m_pFilter->GetStreamStart());
}

TEST_F(FilterStates, PausingLeavesTheTimingAndStoppingForgetsIt) {
    m_pInput->SetWorkingMode(static_cast<EWorkingMode>(2));
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    m_pFilter->GetAvTiming().Update([](AvTimes& times) { times.video.rtTimeBase = times.audio.rtTimeBase = 77; });
    m_pFilter->OnThreadKilled();
    EXPECT_FALSE(m_pFilter->IsResetAllowed());
    ASSERT_EQ(S_OK, m_pFilter->Pause());
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    EXPECT_EQ(77, m_pFilter->GetAvTiming().Get(EPin::Video).rtTimeBase);
    EXPECT_EQ(77, m_pFilter->GetAvTiming().Get(EPin::Audio).rtTimeBase);
    EXPECT_TRUE(m_pFilter->IsThreadKilled());
    ASSERT_EQ(S_OK, m_pFilter->Stop());
    const AvTimes times = m_pFilter->GetAvTiming().Get();
    for (const PinTiming* pTiming : {&times.video, &times.audio}) {
        EXPECT_TRUE(pTiming->bFirstTime);
        EXPECT_EQ(kNoTimeBase, pTiming->rtTimeBase);
    }
    EXPECT_TRUE(m_pFilter->IsResetAllowed());
    EXPECT_FALSE(m_pFilter->IsThreadKilled());
    EXPECT_FALSE(m_pFilter->IsResetNeeded());
}

TEST_F(FilterStates, DemuxFunctionDecidesOnPacing) {
    const struct {
        std::uint32_t nDemuxOutput;
        bool bFreeRun;
    } cases[] = {{2, true}, {7, true}, {0, false}, {7, false}, {2, true}, {1, false}};
    m_pInput->SetWorkingMode(static_cast<EWorkingMode>(2));
    for (const auto& c : cases) {
        m_pFilter->GetSendSettings().nDemuxOutput = c.nDemuxOutput;
        ASSERT_EQ(S_OK, m_pFilter->Pause());
        EXPECT_EQ(c.bFreeRun, m_pFilter->IsFreeRun());
        ASSERT_EQ(S_OK, m_pFilter->Stop());
    }
    m_pFilter->GetSendSettings().nDemuxOutput = 2;
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    m_pFilter->Stop();
    m_pInput->SetWorkingMode(static_cast<EWorkingMode>(0));
    EXPECT_FALSE(m_pFilter->IsFreeRun()) << "entering this mode ends it";
}

TEST_F(FilterStates, ResetOfAProgramStreamStopsNoThread) {
    m_pInput->SetWorkingMode(static_cast<EWorkingMode>(2));
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    m_pFilter->GetAvTiming().Update([](AvTimes& times) {
        times.video.bFirstTime = times.audio.bFirstTime = false;
        times.video.rtTimeBase = times.audio.rtTimeBase = 77;
    });
    CCaptureTexts texts;
    m_pFilter->EnableReset(false);
    m_pFilter->ResetDemux();
    EXPECT_EQ(77, m_pFilter->GetAvTiming().Get(EPin::Audio).rtTimeBase) << "resets are off";
    m_pFilter->EnableReset(true);
    m_pFilter->ResetDemux();
    const AvTimes times = m_pFilter->GetAvTiming().Get();
    for (const PinTiming* pTiming : {&times.video, &times.audio}) {
        EXPECT_TRUE(pTiming->bFirstTime && pTiming->bRestartPending);
        EXPECT_EQ(kNoTimeBase, pTiming->rtTimeBase);
    }
    EXPECT_FALSE(m_pFilter->IsResetting());
    EXPECT_TRUE(m_pVideo->GetDeliveryThread().IsRunning() && m_pAudio->GetDeliveryThread().IsRunning());
    EXPECT_EQ(0, CountOf(texts.TraceTexts(), "waited for"));
    EXPECT_EQ(0, CountOf(texts.TraceTexts(), "Stop")) << "of the core";
}

TEST_F(FilterStates, ResetWithoutCoreWaitsForThePinsAndRestartsTheirThreads) {
    m_pInput->SetWorkingMode(static_cast<EWorkingMode>(1));
    m_pFilter->GetSendSettings().nDemuxOutput = kDemuxOutputAvEs;
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    CCaptureTexts texts;
    m_pFilter->ResetDemux();
    EXPECT_EQ(10, CountOf(texts.TraceTexts(), "ResetDemux waited for 100ms"));
    EXPECT_EQ(1, CountOf(texts.TraceTexts(), "Vidoe Elementary timing info"));
    EXPECT_TRUE(m_pVideo->GetDeliveryThread().IsRunning() && m_pAudio->GetDeliveryThread().IsRunning());
    EXPECT_FALSE(m_pFilter->IsResetting());
}

TEST_F(FilterStates, SeeksFlushDownstreamUnlessStopped) {
    IAsyncReader* pReader = Load("ps_mpeg2_packs.mpg");
    ASSERT_EQ(S_OK, Connect(pReader));
    ConnectSinks();
    const auto pSeeking = Query<IMediaSeeking>(IID_IMediaSeeking);
    auto Seek = [&](LONGLONG llTime) {
        return pSeeking->SetPositions(&llTime, AM_SEEKING_AbsolutePositioning, nullptr, 0);
    };
    EXPECT_EQ(S_OK, Seek(10000000));
    EXPECT_EQ(0, VideoSink().m_nFlushes);
    m_pFilter->GetSendSettings().nDemuxOutput = kDemuxOutputFreeRun;
    m_pVideoSink->Pause();
    m_pAudioSink->Pause();
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    ASSERT_TRUE(VideoSink().m_evEnd.Wait(kTooLongMs));
    ASSERT_TRUE(AudioSink().m_evEnd.Wait(kTooLongMs));
    const int nFlushes = VideoSink().m_nFlushes, nWhole = VideoSink().m_nSamples;
    VideoSink().m_evEnd.Reset();
    VideoSink().m_nSamples = 0;

    EXPECT_EQ(S_OK, Seek(10000000));  // 1 s: byte 225000 of 612376
    EXPECT_TRUE(VideoSink().m_evEnd.Wait(kTooLongMs)) << "the end comes again";
    EXPECT_LT(nFlushes, VideoSink().m_nFlushes);
    EXPECT_LT(0, VideoSink().m_nSamples);
    EXPECT_LT(VideoSink().m_nSamples, nWhole - nWhole / 4);
    for (const LONGLONG llFar : {LONGLONG{0x7FFFFFFFFFFFFFFF}, LONGLONG{-1}}) EXPECT_EQ(S_OK, Seek(llFar));
}

TEST_F(FilterStates, TheFlushOfASeekEndsBehindTheDeliveriesOfTheOldPlace) {
    ASSERT_EQ(S_OK, Connect(Load("ps_mpeg2.mpg")));
    ConnectSinks();
    for (CCountPin* pSink : {&VideoSink(), &AudioSink()}) pSink->m_bLingers = true;
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    EXPECT_TRUE(Eventually([&] { return VideoSink().m_bInside && AudioSink().m_bInside; }));
    for (CCountPin* pSink : {&VideoSink(), &AudioSink()}) pSink->m_bLingers = false;
    LONGLONG llCurrent = 0;
    EXPECT_EQ(S_OK, Query<IMediaSeeking>(IID_IMediaSeeking)
                        ->SetPositions(&llCurrent, AM_SEEKING_AbsolutePositioning, nullptr, 0));
    for (CCountPin* pSink : {&VideoSink(), &AudioSink()}) EXPECT_EQ(0, pSink->m_nHasty);
}

/// A graph that cannot be reconfigured while it runs, or can.
struct CGraph final : IFilterGraph {
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        *ppv = riid == IID_IGraphConfig ? m_pConfig : nullptr;
        return *ppv ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter*, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR, IBaseFilter**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ConnectDirect(IPin*, IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reconnect(IPin*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Disconnect(IPin*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() override { return E_NOTIMPL; }
    void* m_pConfig = nullptr;
};

TEST_F(FilterStates, JoinsOnlyAGraphThatCanReconnect) {
    CGraph graph;
    EXPECT_EQ(E_NOINTERFACE, m_pFilter->JoinFilterGraph(&graph, L"Demux"));
    EXPECT_EQ(nullptr, m_pFilter->GetFilterGraph());
    graph.m_pConfig = static_cast<IFilterGraph*>(&graph);  // only counted, which works as well
    EXPECT_EQ(S_OK, m_pFilter->JoinFilterGraph(&graph, L"Demux"));
    EXPECT_EQ(&graph, m_pFilter->GetFilterGraph());
    EXPECT_EQ(S_OK, m_pFilter->JoinFilterGraph(nullptr, nullptr));
    EXPECT_EQ(nullptr, m_pFilter->GetFilterGraph());
}

}  // namespace
}  // namespace kest

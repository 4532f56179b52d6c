// Which threads run in which state and mode, what a stop and a reset leave, and seeks.
#include <tuple>

#include "FilterRig.h"

namespace kest {
namespace {

/// First time, restart pending and time base of an output pin.
using Timing = std::tuple<bool, bool, REFERENCE_TIME>;
const Timing kForgotten{true, false, kNoTimeBase}, kRestarted{true, true, kNoTimeBase},
    kRuns{true, false, 77};

struct FilterStates : FilterTest {
    void EnterMode(int nMode) { ASSERT_EQ(S_OK, Input().SetWorkingMode(static_cast<EWorkingMode>(nMode))); }
    static auto Fields(PinTiming& t) { return std::tie(t.bFirstTime, t.bRestartPending, t.rtTimeBase); }
    bool AreTimings(const Timing& timing) {
        AvTimes times = m_pFilter->GetAvTiming().Get();
        return Fields(times.video) == timing && Fields(times.audio) == timing;
    }
    void SetTimings(const Timing& timing) {
        m_pFilter->GetAvTiming().Update(
            [&](AvTimes& times) { Fields(times.video) = Fields(times.audio) = timing; });
    }
};

// Without a connection the threads of a mode wait for bytes that never come: their timing stays as it is put.
TEST_F(FilterStates, ModeAndStateDecideWhichThreadsRun) {
    for (int nMode = 0; nMode <= 6; ++nMode) {
        EnterMode(nMode);
        for (const char cCall : std::string("SPPRRPSRSS")) {  // stop, pause, run
            const int n = cCall == 'S' ? 0 : cCall == 'P' ? 1 : 2;
            EXPECT_EQ(S_OK, n == 0 ? m_pFilter->Stop() : n == 1 ? m_pFilter->Pause() : m_pFilter->Run(4711));
            FILTER_STATE state;
            m_pFilter->GetState(0, &state);
            EXPECT_EQ(std::tuple(n, n > 0, n > 0 && nMode <= 5, n > 0 && nMode >= 1 && nMode <= 5),
                      std::tuple(int{state}, m_pFilter->IsActive(), HasThread(0), HasThread(1)))
                << "mode " << nMode << ", call " << cCall;
        }
    }
    EXPECT_EQ(4711, m_pFilter->GetStreamStart());
    EnterMode(2);
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    m_pFilter = nullptr;  // while it is active
}

TEST_F(FilterStates, ResetRestartsTheTimingAndStopForgetsIt) {
    EnterMode(2);
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    SetTimings(kRuns);
    m_pFilter->OnThreadKilled();
    m_pFilter->RequestReset();
    ASSERT_EQ(S_OK, m_pFilter->Pause());
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    EXPECT_TRUE(AreTimings(kRuns));
    EXPECT_EQ((ResetState{.bAllowed = false, .bRequested = true, .bThreadKilled = true}),
              m_pFilter->GetResetState());
    for (const bool bEnabled : {false, true}) {
        Control()->put_EnableReset(bEnabled);
        m_pFilter->ResetDemux();
        EXPECT_TRUE(AreTimings(bEnabled ? kRestarted : kRuns));
    }
    EXPECT_TRUE(HasThread(0) && HasThread(1) && CountOf("waited for 100ms") == 0) << "no thread is stopped";
    ASSERT_EQ(S_OK, m_pFilter->Stop());
    EXPECT_TRUE(AreTimings(kForgotten)) << "a pending restart would cost the next run its first frames";
    m_pFilter->ResetDemux();
    EXPECT_TRUE(AreTimings(kForgotten)) << "nothing to reset in a stopped filter";
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    EXPECT_EQ(ResetState{}, m_pFilter->GetResetState()) << "the request was of the run before";
}

TEST_F(FilterStates, DemuxFunctionDecidesOnPacing) {
    EnterMode(2);
    for (const auto& [nDemuxOutput, bFreeRun] :
         {std::pair(2, true), {7, true}, {0, false}, {7, false}, {1, false}, {2, true}}) {
        SetOutput(nDemuxOutput);
        ASSERT_EQ(S_OK, m_pFilter->Pause());
        EXPECT_EQ(bFreeRun, m_pFilter->IsFreeRun());
        ASSERT_EQ(S_OK, m_pFilter->Stop());
    }
    EnterMode(0);
    EXPECT_FALSE(m_pFilter->IsFreeRun()) << "entering this mode ends it";
}

TEST_F(FilterStates, ResetWithoutDemuxerWaitsForThePinsAndRestartsTheirThreads) {
    EnterMode(1);
    SetOutput(kDemuxOutputAvEs);
    m_pFilter->ResetDemux();
    EXPECT_FALSE(HasThread(0) || HasThread(1)) << "the filter is stopped";
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    {
        CTestThread reset([&] { m_pFilter->ResetDemux(); });
        EXPECT_TRUE(Eventually([&] { return CountOf("waited for 100ms") == 1; }));
        m_pFilter->GetAvTiming().Update(
            [](AvTimes& times) { times.video.bReadyToReset = times.audio.bReadyToReset = true; });
    }
    EXPECT_GT(10, CountOf("waited for 100ms")) << "both pins are ready";
    EXPECT_EQ(2, CountOf("Vidoe Elementary timing info")) << "of start and reset";
    EXPECT_TRUE(HasThread(0) && HasThread(1));
    EXPECT_EQ(ResetState{}, m_pFilter->GetResetState());
}

TEST_F(FilterStates, SeeksFlushDownstreamUnlessStopped) {
    ConnectAll(Load("ps_mpeg2_packs.mpg"));
    EXPECT_EQ(S_OK, Seek(10000000));
    EXPECT_EQ(0, m_apSinks[0]->m_nFlushes);
    SetOutput(kDemuxOutputFreeRun);
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    const int nWhole = m_apSinks[0]->WaitForEnd(), nFlushes = m_apSinks[0]->m_nFlushes;
    EXPECT_EQ(S_OK, Seek(10000000));  // 1 s: byte 225000 of 612376
    const int nRest = m_apSinks[0]->WaitForEnd();
    EXPECT_LT(nFlushes, m_apSinks[0]->m_nFlushes);
    EXPECT_TRUE(0 < nRest && nRest < nWhole - nWhole / 4) << nRest;
    EXPECT_EQ(S_OK, Seek(-10000000));
    EXPECT_EQ(nWhole, m_apSinks[0]->WaitForEnd()) << "before the beginning is the beginning";
}

// The stream's first timestamp is 48003, its access points are at 48003, 93048 and so on by 45045, the last at 315270.
TEST_F(FilterStates, SeeksByTimeBeginWithTheAccessPoint) {
    constexpr LONGLONG kDuration = 30419777;  // up to the audio's last timestamp, 321781
    EXPECT_EQ(S_OK, SetSwitch(ESwitch::SeekByTime, 1));
    ConnectAll(Load("ps_mpeg2_packs.mpg"));
    const auto pSeeking = Query<IMediaSeeking>(IID_IMediaSeeking);
    LONGLONG ll = 0;
    EXPECT_TRUE(pSeeking->GetDuration(&ll) == S_OK && ll == kDuration) << ll;
    EXPECT_EQ(S_OK, Seek(20000000));
    const auto Expect = [&](LONGLONG llSegment, LONGLONG llFirst, const char* pszWhat) {
        for (CCountPin* pSink : m_apSinks) {
            pSink->WaitForEnd();
            EXPECT_EQ(pSink->m_segment.first, llSegment) << pszWhat;
        }
        EXPECT_NEAR(static_cast<double>(m_apSinks[0]->m_segment.second.value_or(1)),
                    static_cast<double>(llFirst), 111)
            << pszWhat;
    };
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    Expect(20000000, 15015000 - 20000000, "the position that was set while stopped");
    const struct {
        LONGLONG llTo, llSegment, llFirst;
        const char* pszWhat;
    } rows[] = {
        {10010000, 10010000, 0, "an access point"},
        {10009888, 10009888, 5005000 - 10009888, "a tick before it"},
        {7000000, 7000000, 5005000 - 7000000, "between two"},
        {990000000, kDuration, 29696333 - kDuration, "beyond the end is the end"},
        {-5, 0, 0, "before the beginning is the beginning"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(S_OK, Seek(row.llTo));
        Expect(row.llSegment, row.llFirst, row.pszWhat);
    }
    EXPECT_TRUE(pSeeking->GetCurrentPosition(&ll) == S_OK && ll > kDuration - 4000000 && ll <= kDuration)
        << ll;
}

TEST_F(FilterStates, TheFlushOfASeekEndsBehindTheDeliveriesOfTheOldPlace) {
    ConnectAll(Load("ps_mpeg2.mpg"));
    std::atomic<bool> bSeeks{false};
    for (CCountPin* pSink : m_apSinks) {
        pSink->m_onReceive = [pSink, &bSeeks,
                              nLinger = pSink == m_apSinks[0] ? 6 * kSettleMs : 3 * kSettleMs] {
            if (bSeeks) return;
            pSink->m_bInside = true;
            EXPECT_TRUE(Eventually([&] { return bSeeks.load(); }));
            SleepMs(nLinger);
            pSink->m_bInside = false;
        };
    }
    ASSERT_EQ(S_OK, m_pFilter->Run(0));
    EXPECT_TRUE(Eventually([&] { return m_apSinks[0]->m_bInside && m_apSinks[1]->m_bInside; }));
    bSeeks = true;
    EXPECT_EQ(S_OK, Seek(0));
    for (CCountPin* pSink : m_apSinks) EXPECT_EQ(0, pSink->m_nHasty);
    m_pFilter->Stop();
}

// One seek comes from another thread while Pause starts the path, one from a delivery thread that a Stop waits for.
TEST_F(FilterStates, SeeksDuringStateChangesAreNeitherLostNorWaitedForByAStop) {
    CHookedReader* pReader = Load("ps_mpeg2_packs.mpg");
    ConnectAll(pReader);
    std::deque<CTestThread> threads;
    pReader->m_onLength = [&] {
        threads.emplace_back([&] { EXPECT_EQ(S_OK, Seek(10000000)); });
        SleepMs(kSettleMs);
    };
    CEvent evFirst, evGo;
    m_apSinks[0]->m_onReceive = [&] {
        if (evFirst.IsSignalled()) return;
        evFirst.Set();
        evGo.Wait(kTooLongMs);
        Seek(0);
    };
    ASSERT_EQ(S_OK, m_pFilter->Pause());
    threads.clear();
    EXPECT_LT(0, m_apSinks[0]->m_nFlushes) << "the seek was lost";
    ASSERT_TRUE(evFirst.Wait(kTooLongMs));
    threads.emplace_back([&] { EXPECT_EQ(S_OK, m_pFilter->Stop()); });
    EXPECT_TRUE(Eventually([&] { return !m_pFilter->IsActive(); }));
    evGo.Set();
    threads.clear();
    EXPECT_EQ(0, CountOf("is safely quit")) << "a delivery thread had to be ended by force";
}

}  // namespace
}  // namespace kest

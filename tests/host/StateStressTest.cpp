// The filter in a playing graph, driven by two control threads at once: whatever the order of the calls,
// nothing hangs, and afterwards the stream still plays to its end.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <random>

#include "filter/KestDemux2Filter.h"
#include "support/PlayingGraph.h"

namespace kest {
namespace {

constexpr auto kDuration = std::chrono::seconds(1);

/// Random calls; most keep the graph running, so that the others meet threads at work.
void Drive(CPlayingGraph& graph, CKestDemux2Filter& demux, unsigned nSeed) {
    std::mt19937 random(nSeed);
    const auto end = std::chrono::steady_clock::now() + kDuration;
    while (std::chrono::steady_clock::now() < end) {
        switch (random() % 8) {
            case 0: demux.Stop(); break;
            case 1:
            case 2: demux.Pause(); break;
            case 3:
            case 4: demux.Run(0); break;
            case 5: demux.ResetDemux(); break;
            case 6: graph.Seeking()->SetRate(static_cast<int>(random() % 13) / 2.0 - 3); break;
            default: graph.Seek(static_cast<REFERENCE_TIME>(random() % 30000000)); break;
        }
        if (random() % 4 == 0) SleepMs(static_cast<std::uint32_t>(random() % 3));
    }
}

CComPtr<CKestDemux2Filter> MakeFilter() {
    HRESULT hr = S_OK;
    return static_cast<CKestDemux2Filter*>(CKestDemux2Filter::CreateInstance(nullptr, &hr));
}

TEST(StateStress, TwoControlThreadsAtOnce) {
    const CComPtr<CKestDemux2Filter> pDemux = MakeFilter();
    CPlayingGraph graph(CComPtr<IBaseFilter>(pDemux.Get()));
    ASSERT_EQ(graph.m_pGraph->Run(), S_OK);
    {
        CTestThread first([&] { Drive(graph, *pDemux, 1); });
        CTestThread second([&] { Drive(graph, *pDemux, 2); });
    }
    ASSERT_EQ(graph.m_pGraph->Stop(), S_OK);
    graph.Seek(0);  // while stopped: the position alone
    graph.m_video.m_nEnds = graph.m_audio.m_nEnds = 0;
    ASSERT_EQ(graph.m_pGraph->Run(), S_OK);
    EXPECT_TRUE(graph.HasPlayed());
    EXPECT_EQ(graph.m_pGraph->Stop(), S_OK);
    EXPECT_FALSE(pDemux->GetResetState().bThreadKilled);
}

TEST(StateStress, RateChangesAndSeeksAtOnce) {
    const CComPtr<CKestDemux2Filter> pDemux = MakeFilter();
    CPlayingGraph graph(CComPtr<IBaseFilter>(pDemux.Get()));
    ASSERT_EQ(graph.m_pGraph->Run(), S_OK);
    auto Repeat = [](unsigned nSeed, const std::function<void(unsigned)>& call) {
        std::mt19937 random(nSeed);
        const auto end = std::chrono::steady_clock::now() + kDuration;
        for (int i = 0; i < 1000 && std::chrono::steady_clock::now() < end; ++i) {
            call(static_cast<unsigned>(random()));
            if (i % 4 == 0) SleepMs(1);
        }
    };
    {
        CTestThread rates([&] {
            Repeat(1, [&](unsigned n) { graph.Seeking()->SetRate(static_cast<int>(n % 13) / 2.0 - 3); });
        });
        CTestThread seeks([&] { Repeat(2, [&](unsigned n) { graph.Seek(n % 30000000); }); });
    }
    graph.Seeking()->SetRate(1.0);
    graph.m_video.m_nEnds = graph.m_audio.m_nEnds = 0;
    graph.Seek(0);
    EXPECT_TRUE(graph.HasPlayed());
    EXPECT_EQ(graph.m_pGraph->Stop(), S_OK);
    EXPECT_FALSE(pDemux->GetResetState().bThreadKilled);
}

TEST(StateStress, AStartPlaysAtTheNormalRateAgain) {
    const CComPtr<CKestDemux2Filter> pDemux = MakeFilter();
    CPlayingGraph graph(CComPtr<IBaseFilter>(pDemux.Get()));
    ASSERT_EQ(graph.m_pGraph->Pause(), S_OK);
    EXPECT_EQ(graph.Seeking()->SetRate(0), S_OK);
    EXPECT_EQ(pDemux->RateHook(1e9), E_INVALIDARG);
    EXPECT_EQ(graph.m_pGraph->Stop(), S_OK);
    ASSERT_EQ(graph.m_pGraph->Run(), S_OK);
    EXPECT_TRUE(graph.HasPlayed());
}

}  // namespace
}  // namespace kest

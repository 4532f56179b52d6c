// The filter in a playing graph, driven by two control threads at once: whatever the order of the calls,
// nothing hangs, and afterwards the stream still plays to its end.
#include <gtest/gtest.h>

#include <atomic>
#include <random>

#include "filter/KestDemux2Filter.h"
#include "host/FileSource.h"
#include "host/Graph.h"
#include "host/Sink.h"
#include "platform/FileReader.h"
#include "support/TestData.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

constexpr int kCalls = 1000;  // of each control thread

/// Counts what arrives.
class CCounter final : public ISinkHandler {
public:
    void OnSample(IMediaSample&) override { ++m_nSamples; }
    void OnEndOfStream() override { ++m_nEnds; }

    std::atomic<int> m_nSamples{0};
    std::atomic<int> m_nEnds{0};
};

/// Source, filter and two sinks, connected and stopped.
class CPlayingGraph {
public:
    CPlayingGraph() {
        std::error_code error;
        const auto pReader = CFileReader::Open(TestDataPath("ps_mpeg2_packs.mpg"), error);
        HRESULT hr = S_OK;
        m_pDemux = static_cast<CKestDemux2Filter*>(CKestDemux2Filter::CreateInstance(nullptr, &hr));
        m_pSource = new CFileSource(CComPtr<IAsyncReader>(pReader.Get()));
        m_pGraph->AddFilter(m_pSource.Get(), L"source");
        m_pGraph->AddFilter(m_pDemux.Get(), L"demultiplexer");
        m_pGraph->AddFilter(m_pVideo.Get(), L"video");
        m_pGraph->AddFilter(m_pAudio.Get(), L"audio");
        m_pGraph->SetDefaultSyncSource();
        EXPECT_EQ(m_pGraph->Connect(m_pSource->GetPin(0), m_pDemux->GetPin(0)), S_OK);
        EXPECT_EQ(m_pGraph->Connect(m_pDemux->GetPin(1), m_pVideo->GetPin(0)), S_OK);
        EXPECT_EQ(m_pGraph->Connect(m_pDemux->GetPin(2), m_pAudio->GetPin(0)), S_OK);
    }

    void Seek(REFERENCE_TIME rt) {
        CComPtr<IMediaSeeking> pSeeking;
        m_pDemux->QueryInterface(IID_IMediaSeeking, reinterpret_cast<void**>(pSeeking.Put()));
        pSeeking->SetPositions(&rt, AM_SEEKING_AbsolutePositioning, nullptr, AM_SEEKING_NoPositioning);
    }

    CCounter m_video, m_audio;
    CPacer m_pacer{5};
    CEvent m_evNotice{false};
    CComPtr<CKestDemux2Filter> m_pDemux;
    CComPtr<CFileSource> m_pSource;
    CComPtr<CSink> m_pVideo{new CSink(EStream::Video, m_video, m_pacer, m_evNotice)};
    CComPtr<CSink> m_pAudio{new CSink(EStream::Audio, m_audio, m_pacer, m_evNotice)};
    CComPtr<CGraph> m_pGraph{new CGraph};  // last: it stops before the others go
};

/// Random calls; most keep the graph going, so that the others meet threads at work.
void Drive(CPlayingGraph& graph, unsigned nSeed) {
    std::mt19937 random(nSeed);
    for (int i = 0; i < kCalls; ++i) {
        switch (random() % 8) {
            case 0: graph.m_pDemux->Stop(); break;
            case 1:
            case 2: graph.m_pDemux->Pause(); break;
            case 3:
            case 4: graph.m_pDemux->Run(0); break;
            case 5: graph.m_pDemux->ResetDemux(); break;
            default: graph.Seek(static_cast<REFERENCE_TIME>(random() % 30000000)); break;
        }
        if (random() % 4 == 0) SleepMs(static_cast<std::uint32_t>(random() % 3));
    }
}

TEST(StateStress, TwoControlThreadsAtOnce) {
    CPlayingGraph graph;
    ASSERT_EQ(graph.m_pGraph->Run(), S_OK);
    {
        CTestThread first([&] { Drive(graph, 1); });
        CTestThread second([&] { Drive(graph, 2); });
    }
    ASSERT_EQ(graph.m_pGraph->Stop(), S_OK);
    graph.Seek(0);  // while stopped: the position alone
    graph.m_video.m_nEnds = graph.m_audio.m_nEnds = 0;
    ASSERT_EQ(graph.m_pGraph->Run(), S_OK);
    EXPECT_TRUE(Eventually([&] { return graph.m_video.m_nEnds > 0 && graph.m_audio.m_nEnds > 0; }));
    EXPECT_EQ(graph.m_pGraph->Stop(), S_OK);
    EXPECT_FALSE(graph.m_pDemux->IsThreadKilled());
}

}  // namespace
}  // namespace kest

// The graph of the program by itself: a made-up filter delivers to a sink. What a sample may wait for, and
// who lets it go.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <stdexcept>

#include "host/Graph.h"
#include "host/Sink.h"
#include "support/GraphPins.h"

namespace kest {
namespace {

using namespace std::chrono_literals;

constexpr auto kShort = 30ms;  // long enough for a thread to get where it waits
constexpr auto kLong = 10s;    // a hang
constexpr REFERENCE_TIME kSecond = 10'000'000;

/// Writes down what it is called with; throws at the sample that it is told to.
class CLogHandler final : public ISinkHandler {
public:
    void OnSample(IMediaSample& sample) override {
        if (m_bThrow) throw std::runtime_error("full");
        REFERENCE_TIME rtStart = -1, rtStop;
        sample.GetTime(&rtStart, &rtStop);
        m_log.push_back("sample " + std::to_string(rtStart));
    }
    void OnNewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override { m_log.push_back("segment"); }
    void OnBeginFlush() override { m_log.push_back("begin"); }
    void OnEndFlush() override { m_log.push_back("end"); }
    void OnEndOfStream() override { m_log.push_back("eos"); }

    Log m_log;
    bool m_bThrow = false;
};

class SinkInGraph : public testing::Test {
protected:
    void SetUp() override {
        m_pacer.End(EStream::Audio);  // there is no other stream
        ASSERT_EQ(S_OK, m_pGraph->AddFilter(m_pSource.Get(), L"source"));
        ASSERT_EQ(S_OK, m_pGraph->AddFilter(m_pSink.Get(), L"sink"));
        ASSERT_EQ(S_OK, m_pGraph->Connect(&Output(), m_pSink->GetPin(0)));
    }
    CSourcePin& Output() { return m_pSource->m_source; }
    /// Delivers a sample on a thread of its own.
    std::future<HRESULT> Deliver(REFERENCE_TIME rtStart) {
        return std::async(std::launch::async, [this, rtStart] {
            CComPtr<IMediaSample> pSample;
            REFERENCE_TIME rt = rtStart, rtStop = rtStart + 1;
            const HRESULT hr = Output().GetDeliveryBuffer(pSample.Put(), nullptr, nullptr, 0);
            if (FAILED(hr)) return hr;
            pSample->SetTime(&rt, &rtStop);
            return Output().Deliver(pSample.Get());
        });
    }
    static bool IsWaiting(std::future<HRESULT>& delivery) {
        return delivery.wait_for(kShort) == std::future_status::timeout;
    }
    static HRESULT Result(std::future<HRESULT>& delivery) {
        return delivery.wait_for(kLong) == std::future_status::ready ? delivery.get() : kHangs;
    }
    static constexpr HRESULT kHangs = static_cast<HRESULT>(0x80000001);

    CLogHandler m_handler;
    CPacer m_pacer{60'000};
    CEvent m_evNotice{false};
    CComPtr<CPinFilter> m_pSource{new CPinFilter};
    CComPtr<CSink> m_pSink{new CSink(EStream::Video, m_handler, m_pacer, m_evNotice)};
    CComPtr<CGraph> m_pGraph{new CGraph};  // last: it lets the filters go first
};

TEST_F(SinkInGraph, HoldsASampleWhilePausedAndTakesNoneWhileStopped) {
    ASSERT_EQ(S_OK, m_pGraph->Pause());
    auto delivery = Deliver(1);
    EXPECT_TRUE(IsWaiting(delivery));
    ASSERT_EQ(S_OK, m_pGraph->Run());
    EXPECT_EQ(S_OK, Result(delivery));
    ASSERT_EQ(S_OK, m_pGraph->Pause());
    delivery = Deliver(2);
    EXPECT_TRUE(IsWaiting(delivery)) << "a pause while running holds again";
    ASSERT_EQ(S_OK, m_pGraph->Stop());
    EXPECT_EQ(VFW_E_WRONG_STATE, Result(delivery));
    ASSERT_EQ(S_OK, m_pGraph->Run());
    EXPECT_EQ(S_OK, Output().DeliverEndOfStream());
    EXPECT_TRUE(m_evNotice.IsSignalled());
    EXPECT_TRUE(m_pSink->HasEnded());
    m_pGraph->Stop();
    EXPECT_EQ(VFW_E_WRONG_STATE, Output().DeliverEndOfStream());
    EXPECT_EQ((Log{"sample 1", "eos"}), m_handler.m_log);
}

TEST_F(SinkInGraph, AFlushDropsWhatIsHeld) {
    ASSERT_EQ(S_OK, m_pGraph->Pause());
    auto delivery = Deliver(1);
    EXPECT_TRUE(IsWaiting(delivery));
    Output().DeliverBeginFlush();
    EXPECT_EQ(S_FALSE, Result(delivery));
    delivery = Deliver(2);
    EXPECT_EQ(S_FALSE, Result(delivery)) << "nothing is taken during a flush";
    Output().DeliverEndFlush();
    Output().DeliverNewSegment(0, 100, 1.0);
    delivery = Deliver(3);
    EXPECT_TRUE(IsWaiting(delivery));
    ASSERT_EQ(S_OK, m_pGraph->Run());
    EXPECT_EQ(S_OK, Result(delivery));
    EXPECT_EQ((Log{"begin", "end", "segment", "sample 3"}), m_handler.m_log);
}

TEST_F(SinkInGraph, WaitsForTheOtherStreamUntilStopped) {
    m_pacer.Begin(EStream::Audio);
    ASSERT_EQ(S_OK, m_pGraph->Run());
    auto delivery = Deliver(kSecond);
    EXPECT_TRUE(IsWaiting(delivery));
    ASSERT_EQ(S_OK, m_pGraph->Stop());
    EXPECT_TRUE(FAILED(Result(delivery)));
    EXPECT_EQ(Log{}, m_handler.m_log);
}

TEST_F(SinkInGraph, AHandlerThatThrowsEndsTheStream) {
    ASSERT_EQ(S_OK, m_pGraph->Run());
    m_handler.m_bThrow = true;
    auto delivery = Deliver(1);
    EXPECT_EQ(E_FAIL, Result(delivery));
    EXPECT_TRUE(m_evNotice.IsSignalled());
    EXPECT_TRUE(m_pSink->HasFailed());
    m_handler.m_bThrow = false;
    delivery = Deliver(2);
    EXPECT_EQ(E_FAIL, Result(delivery));
    EXPECT_THROW(m_pSink->RethrowError(), std::runtime_error);
}

TEST_F(SinkInGraph, TheGraphKnowsItsFiltersAndLetsThemGo) {
    CComPtr<IBaseFilter> pFound;
    EXPECT_EQ(S_OK, m_pGraph->FindFilterByName(L"sink", pFound.Put()));
    EXPECT_EQ(m_pSink.Get(), pFound.Get());
    EXPECT_EQ(VFW_E_NOT_FOUND, m_pGraph->FindFilterByName(L"tap", pFound.Put()));
    EXPECT_EQ(S_OK, m_pGraph->Reconnect(m_pSink->GetPin(0)));
    EXPECT_TRUE(Output().IsConnected());
    EXPECT_EQ(VFW_E_NO_CLOCK, m_pGraph->SetDefaultSyncSource());
    EXPECT_EQ(E_NOTIMPL, m_pGraph->Seek(0));
    Output().m_hrActive = E_OUTOFMEMORY;
    EXPECT_EQ(E_OUTOFMEMORY, m_pGraph->Run());
    EXPECT_TRUE(m_pSink->IsStopped()) << "a failure stops those that were started";
    m_pGraph = nullptr;
    EXPECT_FALSE(Output().IsConnected());
    EXPECT_EQ(nullptr, m_pSink->GetFilterGraph());
}

TEST(Pacer, LetsTheStreamThatIsAheadWait) {
    CPacer pacer(60'000);
    CEvent evLeave;
    auto pace = [&](REFERENCE_TIME rtStart) {
        return std::async(std::launch::async, [&, rtStart] { pacer.Pace(EStream::Audio, rtStart, evLeave); });
    };
    auto first = pace(CPacer::kLead);  // waits for the first of the other, and no longer
    pacer.Pace(EStream::Video, 0, evLeave);
    EXPECT_EQ(first.wait_for(kLong), std::future_status::ready);
    const struct {
        const char* name;
        std::function<void()> release;
    } cases[] = {
        {"the other catches up", [&] { pacer.Pace(EStream::Video, kSecond, evLeave); }},
        {"the other ends", [&] { pacer.End(EStream::Video); }},
        {"it is let go", [&] { evLeave.Set(); }},
    };
    for (const auto& c : cases) {
        pacer.Begin(EStream::Video);
        auto audio = pace(kSecond);
        EXPECT_EQ(audio.wait_for(kShort), std::future_status::timeout) << c.name;
        c.release();
        EXPECT_EQ(audio.wait_for(kLong), std::future_status::ready) << c.name;
    }
}

TEST(Pacer, StreamsBeginTogether) {
    CPacer pacer(60'000);
    CEvent evLeave;
    for (int nBeginning = 0; nBeginning < 2; ++nBeginning) {
        pacer.Begin(EStream::Audio);
        pacer.Begin(EStream::Video);
        auto video = std::async(std::launch::async, [&] { pacer.Pace(EStream::Video, -kSecond, evLeave); });
        EXPECT_EQ(video.wait_for(kShort), std::future_status::timeout) << "not ahead, but alone";
        pacer.Pace(EStream::Audio, -kSecond, evLeave);
        EXPECT_EQ(video.wait_for(kLong), std::future_status::ready);
    }
}

TEST(Pacer, AStreamWithoutSamplesIsWaitedForOnce) {
    CPacer pacer(20);
    CEvent evLeave;
    const auto begin = std::chrono::steady_clock::now();
    for (int n = 1; n <= 500; ++n) pacer.Pace(EStream::Audio, n * kSecond, evLeave);
    const auto duration = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(duration, 20ms);
    EXPECT_LT(duration, 5s);
}

}  // namespace
}  // namespace kest

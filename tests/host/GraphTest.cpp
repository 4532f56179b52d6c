// The graph of the program by itself: a made-up filter delivers to a sink. What a sample waits for, and what
// ends that wait.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include "graph/BaseReferenceClock.h"
#include "host/Graph.h"
#include "host/Sink.h"
#include "support/GraphPins.h"

namespace kest {
namespace {

using namespace std::chrono_literals;
using Log = std::vector<std::string>;

constexpr auto kShort = 20ms;  // long enough for a thread to come to its wait
constexpr auto kLong = 10s;    // a hang
constexpr REFERENCE_TIME kSecond = 10'000'000;

template <class T>
bool IsWaiting(std::future<T>& call) {
    return call.wait_for(kShort) == std::future_status::timeout;
}
template <class T>
bool HasReturned(std::future<T>& call) {
    return call.wait_for(kLong) == std::future_status::ready;
}

/// Logs its calls; throws at a sample when it should.
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

/// Delivers on a thread of its own, and waits for that thread when it is stopped.
class CDeliveringFilter final : public CPinFilter {
public:
    void Deliver(REFERENCE_TIME rtStart) {
        m_delivery = std::async(std::launch::async, [this, rtStart] {
            CComPtr<IMediaSample> pSample;
            REFERENCE_TIME rt = rtStart, rtStop = rtStart + 1;
            const HRESULT hr = m_source.GetDeliveryBuffer(pSample.Put(), nullptr, nullptr, 0);
            if (FAILED(hr)) return hr;
            pSample->SetTime(&rt, &rtStop);
            return m_source.Deliver(pSample.Get());
        });
    }
    HRESULT STDMETHODCALLTYPE Stop() override {
        m_bHung = m_delivery.valid() && !HasReturned(m_delivery);
        return CPinFilter::Stop();
    }
    HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* pClock) override {
        return pClock ? E_FAIL : CPinFilter::SetSyncSource(pClock);
    }

    std::future<HRESULT> m_delivery;
    bool m_bHung = false;  // the last stop waited in vain
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
    void DeliverAndWait(REFERENCE_TIME rtStart) {
        m_pSource->Deliver(rtStart);
        EXPECT_TRUE(IsWaiting(m_pSource->m_delivery)) << rtStart;
    }
    static constexpr HRESULT kHangs = static_cast<HRESULT>(0x80000001);
    HRESULT Result() { return HasReturned(m_pSource->m_delivery) ? m_pSource->m_delivery.get() : kHangs; }
    HRESULT Deliver(REFERENCE_TIME rtStart) {
        m_pSource->Deliver(rtStart);
        return Result();
    }

    CLogHandler m_handler;
    CPacer m_pacer{60'000};
    CEvent m_evNotice{false};
    CComPtr<CDeliveringFilter> m_pSource{new CDeliveringFilter};
    CComPtr<CSink> m_pSink{new CSink(EStream::Video, m_handler, m_pacer, m_evNotice)};
    CComPtr<CGraph> m_pGraph{new CGraph};  // last: it removes the filters first
};

TEST_F(SinkInGraph, HoldsASampleWhilePausedAndTakesNoneWhileStopped) {
    ASSERT_EQ(S_OK, m_pGraph->Pause());
    DeliverAndWait(1);
    ASSERT_EQ(S_OK, m_pGraph->Run());
    EXPECT_EQ(S_OK, Result());
    ASSERT_EQ(S_OK, m_pGraph->Pause());
    DeliverAndWait(2);
    ASSERT_EQ(S_OK, m_pGraph->Stop());
    EXPECT_EQ(VFW_E_WRONG_STATE, Result());
    ASSERT_EQ(S_OK, m_pGraph->Run());
    EXPECT_EQ(S_OK, Output().DeliverEndOfStream());
    EXPECT_TRUE(m_evNotice.IsSignalled() && m_pSink->HasEnded());
    m_pGraph->Stop();
    EXPECT_EQ(VFW_E_WRONG_STATE, Output().DeliverEndOfStream());
    EXPECT_EQ((Log{"sample 1", "eos"}), m_handler.m_log);
}

TEST_F(SinkInGraph, AFlushDropsWhatIsHeld) {
    ASSERT_EQ(S_OK, m_pGraph->Pause());
    DeliverAndWait(1);
    Output().DeliverBeginFlush();
    EXPECT_EQ(S_FALSE, Result());
    EXPECT_EQ(S_FALSE, Deliver(2)) << "nothing is taken during a flush";
    Output().DeliverEndFlush();
    Output().DeliverNewSegment(0, 100, 1.0);
    DeliverAndWait(3);
    ASSERT_EQ(S_OK, m_pGraph->Run());
    EXPECT_EQ(S_OK, Result());
    EXPECT_EQ((Log{"begin", "end", "segment", "sample 3"}), m_handler.m_log);
}

TEST_F(SinkInGraph, AStopAndARemovalBeginAtTheSinkThatASampleWaitsIn) {
    m_pacer.Begin(EStream::Audio);
    ASSERT_EQ(S_OK, m_pGraph->Run());
    DeliverAndWait(kSecond);  // for the other stream
    ASSERT_EQ(S_OK, m_pGraph->Stop());
    EXPECT_TRUE(FAILED(Result()));
    ASSERT_EQ(S_OK, m_pGraph->Pause());
    DeliverAndWait(kSecond);  // for the run
    ASSERT_EQ(S_OK, m_pGraph->RemoveFilter(m_pSource.Get()));
    EXPECT_FALSE(m_pSource->m_bHung);
    EXPECT_TRUE(m_pSink->IsStopped() && !Output().IsConnected() && !m_pSource->GetFilterGraph());
    EXPECT_EQ(Log{}, m_handler.m_log);
}

TEST_F(SinkInGraph, AHandlerThatThrowsEndsTheStream) {
    ASSERT_EQ(S_OK, m_pGraph->Run());
    m_handler.m_bThrow = true;
    EXPECT_EQ(E_FAIL, Deliver(1));
    EXPECT_TRUE(m_evNotice.IsSignalled() && m_pSink->HasFailed());
    m_handler.m_bThrow = false;
    EXPECT_EQ(E_FAIL, Deliver(2));
    EXPECT_THROW(m_pSink->RethrowError(), std::runtime_error);
}

TEST_F(SinkInGraph, AFilterThatFailsIsNotStartedOrNotAdded) {
    EXPECT_EQ(S_OK, m_pGraph->Reconnect(m_pSink->GetPin(0)));
    Output().m_hrActive = E_OUTOFMEMORY;
    EXPECT_EQ(E_OUTOFMEMORY, m_pGraph->Run());
    EXPECT_TRUE(m_pSink->IsStopped()) << "a failure stops the filters that were started";
    ASSERT_EQ(S_OK, m_pGraph->RemoveFilter(m_pSource.Get()));
    const CComPtr<IReferenceClock> pClock(new CBaseReferenceClock);
    ASSERT_EQ(S_OK, m_pGraph->SetSyncSource(pClock.Get()));
    EXPECT_EQ(E_FAIL, m_pGraph->AddFilter(m_pSource.Get(), L"source"));
    CComPtr<IBaseFilter> pFound;
    EXPECT_EQ(VFW_E_NOT_FOUND, m_pGraph->FindFilterByName(L"source", pFound.Put()));
    EXPECT_EQ(nullptr, m_pSource->GetFilterGraph());
}

TEST(Pacer, LetsTheStreamThatIsAheadWaitAndBothBeginTogether) {
    CPacer pacer(60'000);
    CEvent evLeave;
    const auto Pace = [&](REFERENCE_TIME rtStart) {
        return std::async(std::launch::async, [&, rtStart] { pacer.Pace(EStream::Audio, rtStart, evLeave); });
    };
    const struct {
        const char* pszWhat;
        REFERENCE_TIME rtStart;
        std::function<void()> release;
    } cases[] = {
        {"the first sample of the other, though that is not ahead", -kSecond,
         [&] { pacer.Pace(EStream::Video, -kSecond, evLeave); }},
        {"the other catches up", kSecond, [&] { pacer.Pace(EStream::Video, kSecond, evLeave); }},
        {"the other ends", kSecond, [&] { pacer.End(EStream::Video); }},
        {"a flush or stop", kSecond, [&] { evLeave.Set(); }},
    };
    for (const auto& c : cases) {
        pacer.Begin(EStream::Audio);
        pacer.Begin(EStream::Video);
        auto audio = Pace(c.rtStart);
        EXPECT_TRUE(IsWaiting(audio)) << c.pszWhat;
        c.release();
        EXPECT_TRUE(HasReturned(audio)) << c.pszWhat;
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

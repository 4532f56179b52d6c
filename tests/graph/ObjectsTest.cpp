// Identity of aggregated objects, the seeking base, the clock, and the layout of the records.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <limits>

#include "graph/BaseReferenceClock.h"
#include "graph/EventHandle.h"
#include "graph/SourceSeeking.h"
#include "platform/Event.h"
#include "support/GraphPins.h"

namespace kest {
namespace {

// Format blocks go to decoders as they are.
static_assert(sizeof(VIDEOINFOHEADER) == 88 && offsetof(VIDEOINFOHEADER, bmiHeader) == 48);
static_assert(offsetof(MPEG1VIDEOINFO, bSequenceHeader) == 96 && sizeof(MPEG1VIDEOINFO) == 104);
static_assert(sizeof(MPEG2VIDEOINFO) == 136 && offsetof(MPEG2VIDEOINFO, dwSequenceHeader) == 132);
static_assert(sizeof(WAVEFORMATEX) == 18 && sizeof(MPEG1WAVEFORMAT) == 40);

template <class Interface>
CComPtr<Interface> Query(IUnknown* pObject, REFIID riid) {
    CComPtr<Interface> pFound;
    pObject->QueryInterface(riid, reinterpret_cast<void**>(pFound.Put()));
    return pFound;
}

class CTestSeeking : public CSourceSeeking {
public:
    explicit CTestSeeking(IUnknown* pOuter = nullptr) : CSourceSeeking(pOuter, &m_csSeeking) {}
    HRESULT ChangeStart(REFERENCE_TIME rt) override {
        return m_changes.push_back("start " + std::to_string(rt)), S_OK;
    }
    HRESULT ChangeStop(REFERENCE_TIME rt) override {
        return m_changes.push_back("stop " + std::to_string(rt)), S_FALSE;
    }
    HRESULT ChangeRate(double) override { return m_changes.push_back("rate"), S_OK; }
    CCritSec m_csSeeking;
    Log m_changes;
};

/// An outer object with a seeking object inside it.
class COuter : public CUnknown {
public:
    explicit COuter(bool& bAlive) : m_bAlive(bAlive) { m_bAlive = true; }
    ~COuter() override { m_bAlive = false; }
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IMediaSeeking) return m_seeking.NonDelegatingQueryInterface(riid, ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }
    bool& m_bAlive;
    CTestSeeking m_seeking{GetOwner()};
};

TEST(GraphUnknown, AggregatedObjectHasTheOutersIdentityAndLife) {
    bool bAlive = false;
    auto* pOuter = new COuter(bAlive);
    CComPtr<IUnknown> pIdentity(pOuter->GetOwner());
    auto pSeeking = Query<IMediaSeeking>(pIdentity.Get(), IID_IMediaSeeking);
    ASSERT_TRUE(pSeeking);
    EXPECT_EQ(pIdentity.Get(), Query<IUnknown>(pSeeking.Get(), IID_IUnknown).Get());
    EXPECT_FALSE(Query<IUnknown>(pSeeking.Get(), IID_IPin));
    EXPECT_EQ(E_POINTER, pIdentity->QueryInterface(IID_IUnknown, nullptr));
    EXPECT_NE(pIdentity.Get(), pOuter->m_seeking.GetInnerUnknown());
    pIdentity = nullptr;
    EXPECT_TRUE(bAlive) << "a reference to the part holds the whole";
    pSeeking = nullptr;
    EXPECT_FALSE(bAlive);
}

TEST(GraphUnknown, FilterAndPinsAreSeveralIdentitiesWithOneLife) {
    CComPtr<CPinFilter> pFilter(new CPinFilter);
    auto pIdentity = Query<IUnknown>(static_cast<IBaseFilter*>(pFilter.Get()), IID_IUnknown);
    for (const IID& iid : {IID_IPersist, IID_IMediaFilter, IID_IBaseFilter, IID_IAMovieSetup}) {
        auto pFace = Query<IUnknown>(pIdentity.Get(), iid);
        ASSERT_TRUE(pFace);
        EXPECT_EQ(pIdentity.Get(), Query<IUnknown>(pFace.Get(), IID_IUnknown).Get());
    }
    CComPtr<IPin> pPin(&pFilter->m_sink);
    EXPECT_TRUE(Query<IMemInputPin>(pPin.Get(), IID_IMemInputPin));
    EXPECT_FALSE(Query<IBaseFilter>(pPin.Get(), IID_IBaseFilter));
    EXPECT_NE(pIdentity.Get(), Query<IUnknown>(pPin.Get(), IID_IUnknown).Get());
    pIdentity = nullptr;
    pFilter = nullptr;
    PIN_INFO info;
    ASSERT_EQ(S_OK, pPin->QueryPinInfo(&info)) << "the pin holds the filter";
    EXPECT_STREQ(L"Input", info.achName);
    EXPECT_EQ(PINDIR_INPUT, info.dir);
    info.pFilter->Release();
}

TEST(GraphSeeking, SetPositionsByFlags) {
    struct {
        const char* name;
        DWORD dwCurrentFlags, dwStopFlags;
        HRESULT hr;
        LONGLONG llStart, llStop;  // from 100 and 1000, given 10 and 20
        Log changes;
    } const cases[] = {
        {"none", 0, 0, S_OK, 100, 1000, {}},
        {"absolute", 1, 1, S_OK, 10, 20, {"stop 20", "start 10"}},
        {"relative", 2, 2, S_OK, 110, 1020, {"stop 1020", "start 110"}},
        {"stop from the new start", 2, 3, S_OK, 110, 130, {"stop 130", "start 110"}},
        {"stop alone", 0, 1, S_FALSE, 100, 20, {"stop 20"}},
        {"key frame for the start", 1 | AM_SEEKING_SeekToKeyFrame, 0, S_OK, 10, 1000, {"start 10"}},
        {"key frame for the stop", 0, 1 | AM_SEEKING_SeekToKeyFrame, E_INVALIDARG, 100, 1000, {}},
        {"incremental start", 3, 1, E_INVALIDARG, 100, 1000, {}},
        {"flags without positioning", AM_SEEKING_NoFlush, 0, E_INVALIDARG, 100, 1000, {}},
    };
    for (const auto& c : cases) {
        CTestSeeking seeking;
        LONGLONG llStart = 100, llStop = 1000;
        seeking.SetPositions(&llStart, 1, &llStop, 1);
        seeking.m_changes.clear();
        llStart = 10, llStop = 20;
        EXPECT_EQ(c.hr, seeking.SetPositions(&llStart, c.dwCurrentFlags, &llStop, c.dwStopFlags)) << c.name;
        seeking.GetPositions(&llStart, &llStop);
        EXPECT_EQ(c.llStart, llStart) << c.name;
        EXPECT_EQ(c.llStop, llStop) << c.name;
        EXPECT_EQ(c.changes, seeking.m_changes) << c.name;
    }
    CTestSeeking seeking;
    LONGLONG llPosition = 0;
    EXPECT_EQ(E_POINTER, seeking.SetPositions(nullptr, 1, nullptr, 0));
    EXPECT_EQ(E_POINTER, seeking.SetPositions(&llPosition, 1, nullptr, 1));
    EXPECT_TRUE(seeking.m_changes.empty());
    LONGLONG llFar = std::numeric_limits<LONGLONG>::max();
    for (int i = 0; i < 2; ++i) seeking.SetPositions(&llFar, 2, &llFar, 3);
    EXPECT_EQ("start " + std::to_string(llFar), seeking.m_changes.back()) << "clamped";
}

TEST(GraphSeeking, DefaultsAndFormats) {
    CTestSeeking seeking;
    DWORD dwCaps = AM_SEEKING_CanSeekAbsolute | AM_SEEKING_CanGetDuration;
    EXPECT_EQ(S_OK, seeking.CheckCapabilities(&dwCaps));
    dwCaps |= AM_SEEKING_CanGetCurrentPos;
    EXPECT_EQ(S_FALSE, seeking.CheckCapabilities(&dwCaps));
    LONGLONG llTime = 0;
    EXPECT_EQ(E_NOTIMPL, seeking.GetCurrentPosition(&llTime));
    EXPECT_EQ(S_OK, seeking.ConvertTimeFormat(&llTime, nullptr, 7, &TIME_FORMAT_MEDIA_TIME));
    EXPECT_EQ(7, llTime);
    EXPECT_EQ(E_INVALIDARG, seeking.ConvertTimeFormat(&llTime, &MEDIATYPE_Video, 7, nullptr));
    EXPECT_EQ(S_FALSE, seeking.IsFormatSupported(&TIME_FORMAT_NONE));
    EXPECT_EQ(E_INVALIDARG, seeking.SetTimeFormat(&TIME_FORMAT_NONE));
    EXPECT_EQ(E_POINTER, seeking.GetDuration(nullptr));
    double dRate = 0;
    seeking.SetRate(2.5);
    seeking.GetRate(&dRate);
    EXPECT_EQ(2.5, dRate);
    EXPECT_EQ(Log{"rate"}, seeking.m_changes);
}

/// A clock whose time the test sets.
class CTestClock : public CBaseReferenceClock {
public:
    ~CTestClock() override { EndAdvises(); }
    REFERENCE_TIME GetPrivateTime() override { return m_rtNow; }
    std::atomic<REFERENCE_TIME> m_rtNow{1000};
};

TEST(GraphClock, NeverGoesBack) {
    CTestClock clock;
    REFERENCE_TIME rt = 0;
    EXPECT_EQ(S_OK, clock.GetTime(&rt));
    clock.m_rtNow = 900;
    EXPECT_EQ(S_FALSE, clock.GetTime(&rt));
    EXPECT_EQ(1000, rt);
    clock.m_rtNow = 1001;
    EXPECT_EQ(S_OK, clock.GetTime(&rt));
    EXPECT_EQ(1001, rt);
}

TEST(GraphClock, StreamTimeIsClockTimeSinceTheStart) {
    CTestClock clock;
    clock.NonDelegatingAddRef();
    CComPtr<CPinFilter> pFilter(new CPinFilter);
    REFERENCE_TIME rtStream = 0;
    EXPECT_EQ(VFW_E_NO_CLOCK, pFilter->StreamTime(rtStream));
    pFilter->SetSyncSource(&clock);
    pFilter->Run(400);
    EXPECT_EQ(S_OK, pFilter->StreamTime(rtStream));
    EXPECT_EQ(600, rtStream);
}

TEST(GraphClock, AdvisesComeWhenTheirTimeHasCome) {
    constexpr std::uint32_t kTooLongMs = 20000;
    constexpr REFERENCE_TIME kMs = 10000;
    CBaseReferenceClock clock;
    CEvent evSoon, evLater, evNever;
    DWORD_PTR dwSoon = 0, dwLater = 0, dwNever = 0;
    REFERENCE_TIME rtNow = 0;
    clock.GetTime(&rtNow);
    auto Handle = [](CEvent& event) { return reinterpret_cast<DWORD_PTR>(GetEventHandle(event)); };
    EXPECT_EQ(S_OK, clock.AdviseTime(rtNow, 50 * kMs, Handle(evNever), &dwNever));
    EXPECT_EQ(S_OK, clock.AdviseTime(rtNow, 40 * kMs, Handle(evLater), &dwLater));
    EXPECT_EQ(S_OK, clock.AdviseTime(rtNow, 10 * kMs, Handle(evSoon), &dwSoon));
    EXPECT_EQ(S_OK, clock.Unadvise(dwNever));

    ASSERT_TRUE(evSoon.Wait(kTooLongMs));
    REFERENCE_TIME rtSoon = 0;
    clock.GetTime(&rtSoon);
    EXPECT_GE(rtSoon, rtNow + 10 * kMs);
    ASSERT_TRUE(evLater.Wait(kTooLongMs));
    EXPECT_EQ(S_FALSE, clock.Unadvise(dwSoon)) << "served, so gone";
    EXPECT_FALSE(evNever.Wait(30));
}

TEST(GraphClock, RefusesAdvisesThatCannotCome) {
    CTestClock clock;
    CEvent event;
    const auto hEvent = reinterpret_cast<DWORD_PTR>(GetEventHandle(event));
    constexpr REFERENCE_TIME kMax = std::numeric_limits<REFERENCE_TIME>::max();
    constexpr REFERENCE_TIME kMin = std::numeric_limits<REFERENCE_TIME>::min();
    DWORD_PTR dwCookie = 0;
    EXPECT_EQ(E_POINTER, clock.AdviseTime(1, 0, hEvent, nullptr));
    EXPECT_EQ(E_INVALIDARG, clock.AdviseTime(1, 0, 0, &dwCookie));
    EXPECT_EQ(E_INVALIDARG, clock.AdviseTime(5, -5, hEvent, &dwCookie));
    EXPECT_EQ(E_INVALIDARG, clock.AdviseTime(kMax, 1, hEvent, &dwCookie));
    EXPECT_EQ(E_INVALIDARG, clock.AdviseTime(kMin, kMin, hEvent, &dwCookie));
    EXPECT_EQ(E_INVALIDARG, clock.AdvisePeriodic(1, 0, hEvent, &dwCookie));
    EXPECT_EQ(E_INVALIDARG, clock.AdvisePeriodic(0, 1, hEvent, &dwCookie));
}

}  // namespace
}  // namespace kest

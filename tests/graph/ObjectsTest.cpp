// Identity of aggregated objects, the seeking base, the clock, and the layout of the records.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <limits>

#include "graph/BaseReferenceClock.h"
#include "graph/SourceSeeking.h"
#include "platform/SystemEvent.h"
#include "support/GraphPins.h"
#include "support/TestThreads.h"

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
    HRESULT ChangeStart() override { return m_changes.push_back("start"), S_OK; }
    HRESULT ChangeStop() override { return m_changes.push_back("stop"), S_FALSE; }
    HRESULT ChangeRate() override { return m_changes.push_back("rate"), S_OK; }
    CCritSec m_csSeeking;
    Log m_changes;
};

TEST(GraphUnknown, AggregatedObjectHasTheOutersIdentityAndLife) {
    struct COuter : CUnknown {
        explicit COuter(bool& b) : bAlive(b) { bAlive = true; }
        ~COuter() override { bAlive = false; }
        HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
            if (riid == IID_IMediaSeeking) return seeking.NonDelegatingQueryInterface(riid, ppv);
            return CUnknown::NonDelegatingQueryInterface(riid, ppv);
        }
        bool& bAlive;
        CTestSeeking seeking{GetOwner()};
    };
    bool bAlive = false;
    CComPtr<IUnknown> pIdentity((new COuter(bAlive))->GetOwner());
    auto pSeeking = Query<IMediaSeeking>(pIdentity.Get(), IID_IMediaSeeking);
    ASSERT_TRUE(pSeeking);
    EXPECT_EQ(pIdentity.Get(), Query<IUnknown>(pSeeking.Get(), IID_IUnknown).Get());
    EXPECT_FALSE(Query<IUnknown>(pSeeking.Get(), IID_IPin));
    EXPECT_EQ(E_POINTER, pIdentity->QueryInterface(IID_IUnknown, nullptr));
    pIdentity = nullptr;
    EXPECT_TRUE(bAlive) << "a reference to the part holds the whole";
    pSeeking = nullptr;
    EXPECT_FALSE(bAlive);
}

TEST(GraphUnknown, FilterAndPinsAreSeveralIdentitiesWithOneLife) {
    CComPtr<CPinFilter> pFilter(new CPinFilter);
    auto pIdentity = Query<IUnknown>(static_cast<IBaseFilter*>(pFilter.Get()), IID_IUnknown);
    for (const IID& iid : {IID_IPersist, IID_IMediaFilter, IID_IBaseFilter, IID_IAMovieSetup}) {
        auto pInterface = Query<IUnknown>(pIdentity.Get(), iid);
        ASSERT_TRUE(pInterface);
        EXPECT_EQ(pIdentity.Get(), Query<IUnknown>(pInterface.Get(), IID_IUnknown).Get());
    }
    CComPtr<IPin> pPin(&pFilter->m_sink);
    EXPECT_TRUE(Query<IMemInputPin>(pPin.Get(), IID_IMemInputPin));
    EXPECT_NE(pIdentity.Get(), Query<IUnknown>(pPin.Get(), IID_IUnknown).Get());
    pIdentity = nullptr;
    pFilter = nullptr;
    PIN_INFO info;
    ASSERT_EQ(S_OK, pPin->QueryPinInfo(&info)) << "the pin holds the filter";
    EXPECT_STREQ(L"Input", info.achName);
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
        {"absolute", 1, 1, S_OK, 10, 20, {"stop", "start"}},
        {"relative", 2, 2, S_OK, 110, 1020, {"stop", "start"}},
        {"stop from the new start", 2, 3, S_OK, 110, 130, {"stop", "start"}},
        {"stop alone", 0, 1, S_FALSE, 100, 20, {"stop"}},
        {"key frame for the start", 1 | AM_SEEKING_SeekToKeyFrame, 0, S_OK, 10, 1000, {"start"}},
        {"key frame for the stop", 0, 1 | AM_SEEKING_SeekToKeyFrame, E_INVALIDARG, 100, 1000, {}},
        {"incremental start", 3, 1, E_INVALIDARG, 100, 1000, {}},
        {"flags without positioning", AM_SEEKING_SeekToKeyFrame, 0, E_INVALIDARG, 100, 1000, {}},
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
    EXPECT_EQ(E_POINTER, CTestSeeking().SetPositions(nullptr, 1, nullptr, 0));
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

TEST(GraphClock, AdvisesComeWhenTheirTimeHasCome) {
    constexpr REFERENCE_TIME kMs = 10000;
    CBaseReferenceClock clock;
    CSystemEvent evSoon, evLater, evNever;
    DWORD_PTR dwSoon = 0, dwLater = 0, dwNever = 0;
    REFERENCE_TIME rtNow = 0, rtSoon = 0;
    clock.GetTime(&rtNow);
    const auto Advise = [&](const CSystemEvent& event, LONGLONG nMs, DWORD_PTR& dwCookie) {
        return clock.AdviseTime(rtNow, nMs * kMs, reinterpret_cast<DWORD_PTR>(event.GetHandle()), &dwCookie);
    };
    EXPECT_EQ(S_OK, Advise(evNever, 50, dwNever));
    EXPECT_EQ(S_OK, Advise(evLater, 40, dwLater));
    EXPECT_EQ(S_OK, Advise(evSoon, 10, dwSoon));
    EXPECT_EQ(S_OK, clock.Unadvise(dwNever));
    ASSERT_TRUE(evSoon.Wait(kTooLongMs));
    clock.GetTime(&rtSoon);
    EXPECT_GE(rtSoon, rtNow + 10 * kMs);
    ASSERT_TRUE(evLater.Wait(kTooLongMs));
    EXPECT_EQ(S_FALSE, clock.Unadvise(dwSoon)) << "served";
    EXPECT_FALSE(evNever.Wait(30));
}

TEST(GraphClock, RejectsAdvisesThatCannotCome) {
    CTestClock clock;
    const CSystemEvent event;
    const auto hEvent = reinterpret_cast<DWORD_PTR>(event.GetHandle());
    constexpr REFERENCE_TIME kMax = std::numeric_limits<REFERENCE_TIME>::max();
    constexpr REFERENCE_TIME kMin = std::numeric_limits<REFERENCE_TIME>::min();
    DWORD_PTR dwCookie = 0;
    EXPECT_EQ(E_INVALIDARG, clock.AdviseTime(1, 0, 0, &dwCookie));
    EXPECT_EQ(E_INVALIDARG, clock.AdviseTime(5, -5, hEvent, &dwCookie));
    EXPECT_EQ(E_INVALIDARG, clock.AdviseTime(kMax, 1, hEvent, &dwCookie));
    EXPECT_EQ(E_INVALIDARG, clock.AdviseTime(kMin, kMin, hEvent, &dwCookie));
    EXPECT_EQ(E_INVALIDARG, clock.AdvisePeriodic(1, 0, hEvent, &dwCookie));
    EXPECT_EQ(E_INVALIDARG, clock.AdvisePeriodic(0, 1, hEvent, &dwCookie));
}

}  // namespace
}  // namespace kest

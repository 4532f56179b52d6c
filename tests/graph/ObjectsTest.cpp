// Allocator, samples and clock, and what leaves an interface method when memory is short or the thread is ended by force:
// a result code, and nothing else.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <list>
#include <new>

#include "graph/BaseReferenceClock.h"
#include "platform/SystemEvent.h"
#include "support/GraphPins.h"
#include "support/TestThreads.h"

thread_local int t_nUntilFailure = 0;  // the allocation of this thread that fails; 0: none

void* operator new(std::size_t nBytes, const std::nothrow_t&) noexcept {
    return t_nUntilFailure > 0 && --t_nUntilFailure == 0 ? nullptr : std::malloc(nBytes + 1);
}
void* operator new(std::size_t nBytes) {
    if (void* p = ::operator new(nBytes, std::nothrow)) return p;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace kest {
namespace {

TEST(GraphAllocator, Properties) {
    const auto pAllocator = MakeAllocator(0);
    EXPECT_EQ(VFW_E_SIZENOTSET, pAllocator->Commit());
    ALLOCATOR_PROPERTIES props{2, 100, 48, 10}, tooLarge{2, 0x7FFFFFFF, 1, 1};
    EXPECT_EQ(VFW_E_BADALIGN, pAllocator->SetProperties(&props, &props));
    EXPECT_EQ(E_INVALIDARG, pAllocator->SetProperties(&tooLarge, &tooLarge));
    props.cbAlign = 64;
    EXPECT_EQ(S_OK, pAllocator->SetProperties(&props, &props));
    EXPECT_EQ(118, props.cbBuffer) << "prefix and buffer fill 128 together";
    pAllocator->Commit();
    const auto pSample = TakeSample(pAllocator.Get());
    BYTE* pBuffer = nullptr;
    pSample->GetPointer(&pBuffer);
    EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(pBuffer - 10) % 64) << "the prefix begins aligned";
    std::fill_n(pBuffer - 10, 128, BYTE{0xFF});  // the sanitizer watches the bounds
    EXPECT_EQ(VFW_E_ALREADY_COMMITTED, pAllocator->SetProperties(&props, &props));
    pAllocator->Decommit();
    EXPECT_EQ(VFW_E_BUFFERS_OUTSTANDING, pAllocator->SetProperties(&props, &props));
}

TEST(GraphAllocator, SamplesReturnAsNewAndOutliveADecommit) {
    auto pAllocator = MakeAllocator(2);
    auto pFirst = TakeSample(pAllocator.Get()), pSecond = TakeSample(pAllocator.Get());
    EXPECT_FALSE(TakeSample(pAllocator.Get()));
    CMediaType type(MEDIATYPE_Video);
    REFERENCE_TIME rtStart = 500, rtStop = 700;
    pFirst->SetMediaType(&type);
    pFirst->SetTime(&rtStart, nullptr);
    EXPECT_EQ(VFW_S_NO_STOP_TIME, pFirst->GetTime(&rtStart, &rtStop));
    EXPECT_EQ(501, rtStop);
    EXPECT_EQ(VFW_E_BUFFER_OVERFLOW, pFirst->SetActualDataLength(101));
    pAllocator->Decommit();
    pFirst = nullptr;
    ASSERT_EQ(S_OK, pAllocator->Commit()) << "with a sample still in use";
    pFirst = TakeSample(pAllocator.Get());
    AM_MEDIA_TYPE* pType = nullptr;
    EXPECT_EQ(VFW_E_SAMPLE_TIME_NOT_SET, pFirst->GetTime(&rtStart, &rtStop));
    EXPECT_EQ(S_FALSE, pFirst->GetMediaType(&pType));
    pAllocator = nullptr;  // the samples keep it alive
    EXPECT_EQ(100, pSecond->GetActualDataLength());
}

TEST(GraphAllocator, WaitEndsWithASampleADecommitOrByForce) {
    for (const std::int32_t nExitCode : {S_OK, VFW_E_NOT_COMMITTED, HRESULT{77}}) {
        const auto pAllocator = MakeAllocator(1);
        auto pSample = TakeSample(pAllocator.Get());
        CThread thread;
        thread.Start(
            [&] { return pAllocator->GetBuffer(CComPtr<IMediaSample>().Put(), nullptr, nullptr, 0); });
        EXPECT_EQ(WAIT_TIMEOUT, thread.Wait(kSettleMs));
        if (nExitCode == S_OK) pSample = nullptr;
        if (nExitCode == VFW_E_NOT_COMMITTED) pAllocator->Decommit();
        if (nExitCode == 77) thread.Terminate(77);
        EXPECT_EQ(WAIT_OBJECT_0, thread.Wait(kTooLongMs));
        EXPECT_EQ(nExitCode, thread.GetExitCode());
    }
}

TEST(GraphAllocator, StressManyThreadsShareFewSamples) {
    const auto pAllocator = MakeAllocator(2);
    std::atomic<int> nInUse{0};
    std::list<CTestThread> threads;
    for (int n = 0; n < 4; ++n) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                CComPtr<IMediaSample> pSample;
                ASSERT_EQ(S_OK, pAllocator->GetBuffer(pSample.Put(), nullptr, nullptr, 0));
                ASSERT_LE(++nInUse, 2);
                --nInUse;
            }
        });
    }
}

TEST(GraphClock, NeverGoesBack) {
    struct CTestClock final : CBaseReferenceClock {
        REFERENCE_TIME GetPrivateTime() override { return rtNow; }
        REFERENCE_TIME rtNow = 1000;
    } clock;
    REFERENCE_TIME rt = 0;
    EXPECT_EQ(S_OK, clock.GetTime(&rt));
    clock.rtNow = 900;
    EXPECT_EQ(S_FALSE, clock.GetTime(&rt));
    EXPECT_EQ(1000, rt);
}

TEST(GraphClock, AdvisesComeWhenTheirTimeHasCome) {
    constexpr REFERENCE_TIME kMs = 10000;
    CBaseReferenceClock clock;
    CSystemEvent evSoon, evNever, evTick(/*bManualReset=*/false);
    DWORD_PTR dwSoon = 0, dwNever = 0, dwTick = 0;
    REFERENCE_TIME rtNow = 0, rtSoon = 0;
    clock.GetTime(&rtNow);
    const auto Handle = [](auto& event) { return reinterpret_cast<DWORD_PTR>(event.GetHandle()); };
    EXPECT_EQ(E_INVALIDARG, clock.AdviseTime(INT64_MAX, 1, Handle(evNever), &dwNever));
    EXPECT_EQ(E_INVALIDARG, clock.AdvisePeriodic(1, 0, Handle(evTick), &dwTick));
    EXPECT_EQ(S_OK, clock.AdviseTime(rtNow, 30 * kMs, Handle(evNever), &dwNever));
    EXPECT_EQ(S_OK, clock.AdviseTime(rtNow, 10 * kMs, Handle(evSoon), &dwSoon));
    EXPECT_EQ(S_OK, clock.Unadvise(dwNever));
    ASSERT_TRUE(evSoon.Wait(kTooLongMs));
    clock.GetTime(&rtSoon);
    EXPECT_GE(rtSoon, rtNow + 10 * kMs);
    EXPECT_EQ(S_FALSE, clock.Unadvise(dwSoon)) << "served";
    EXPECT_FALSE(evNever.Wait(30));
    ReleaseSemaphoreHandle(evTick.GetHandle());
    if (!evTick.Wait(0)) GTEST_SKIP() << "an event is no semaphore here";
    EXPECT_EQ(S_OK, clock.AdvisePeriodic(rtNow, 5 * kMs, Handle(evTick), &dwTick));
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(evTick.Wait(kTooLongMs));
}

/// Runs `step` with its first, second, ... allocation failing, until none does: it fails with E_OUTOFMEMORY and leaves
/// everything as it was (`isAsBefore`), or does without the memory. `undo` follows every success.
void ExpectSurvives(const std::function<HRESULT()>& step, const std::function<bool()>& isAsBefore,
                    const std::function<void()>& undo) {
    bool bFailed = true;
    for (int n = 1; bFailed && n < 1000; ++n) {
        t_nUntilFailure = n;
        const HRESULT hr = step();
        bFailed = std::exchange(t_nUntilFailure, 0) == 0;
        EXPECT_TRUE(hr == S_OK || (bFailed && hr == E_OUTOFMEMORY)) << "allocation " << n << ": " << hr;
        if (hr == S_OK) undo();
        EXPECT_TRUE(isAsBefore()) << "allocation " << n;
    }
    EXPECT_FALSE(bFailed);
}

TEST(GraphInterface, ShortMemoryIsAResultThatChangesNothing) {
    PinPair pins;
    CMediaType type(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO);
    type.SetFormat(VIDEOINFOHEADER{});
    pins.source.m_types = {type, type};
    ExpectSurvives([&] { return pins.Connect(); }, [&] { return pins.AreApart(); },
                   [&] { pins.Disconnect(); });

    CComPtr<IEnumMediaTypes> pTypes;
    pins.source.EnumMediaTypes(pTypes.Put());
    AM_MEDIA_TYPE* apTypes[2];
    ULONG nTypes = 0;
    ExpectSurvives([&] { return pTypes->Next(2, apTypes, &nTypes); },
                   [&] { return nTypes == 0 && pTypes->Skip(2) == S_OK && pTypes->Reset() == S_OK; },
                   [&] {
                       for (pTypes->Reset(); nTypes > 0;) DeleteMediaType(apTypes[--nTypes]);
                   });

    const std::wstring wszLong(100, L'x');
    FILTER_INFO info;
    ExpectSurvives([&] { return pins.pUp->JoinFilterGraph(nullptr, wszLong.c_str()); },
                   [&] { return pins.pUp->QueryFilterInfo(&info), info.achName[0] != L'x'; },
                   [&] { pins.pUp->JoinFilterGraph(nullptr, nullptr); });

    const auto pAllocator = MakeAllocator(3);
    pAllocator->Decommit();
    ExpectSurvives([&] { return pAllocator->Commit(); }, [&] { return !TakeSample(pAllocator.Get()); },
                   [&] { pAllocator->Decommit(); });
    pAllocator->Commit();
    const auto pSample = TakeSample(pAllocator.Get());
    AM_MEDIA_TYPE* pNone = nullptr;
    ExpectSurvives([&] { return pSample->SetMediaType(&type); },
                   [&] { return pSample->GetMediaType(&pNone) == S_FALSE; },
                   [&] { pSample->SetMediaType(nullptr); });

    CBaseReferenceClock clock;
    DWORD_PTR dwCookie = 0;
    ExpectSurvives([&] { return clock.AdviseTime(INT64_MAX, 0, 1, &dwCookie); },
                   [&] { return dwCookie == 0; }, [&] { clock.Unadvise(std::exchange(dwCookie, 0)); });
}

/// A caller that exceptions must not reach: one that does ends the process.
void CallAsForeignCode(const std::function<void()>& call) noexcept { call(); }

TEST(GraphInterface, ForcedEndPassesForeignCodeAsAResultAndIsNotLost) {
    struct CWaitsAtItsEnd final : CUnknown {
        ~CWaitsAtItsEnd() override { SleepMs(1); }
    };
    const auto pAllocator = MakeAllocator(1);
    const auto pTaken = TakeSample(pAllocator.Get());
    ExpectEndsByForce([&] {
        CallAsForeignCode([&] {
            CComPtr<IMediaSample> pSample;
            EXPECT_EQ(E_ABORT, pAllocator->GetBuffer(pSample.Put(), nullptr, nullptr, 0));
            CComPtr<IUnknown>((new CWaitsAtItsEnd)->GetOwner());
            EXPECT_EQ(E_ABORT, pAllocator->GetBuffer(pSample.Put(), nullptr, nullptr, 0));
        });
        SleepMs(kTooLongMs);
    });
}

}  // namespace
}  // namespace kest

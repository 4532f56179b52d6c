// The allocator and its samples.
#include <gtest/gtest.h>

#include <algorithm>
#include <list>

#include "graph/MemAllocator.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

CComPtr<IMemAllocator> MakeCommitted(LONG nBuffers) {
    CComPtr<IMemAllocator> pAllocator;
    CreateMemoryAllocator(pAllocator.Put());
    ALLOCATOR_PROPERTIES request{nBuffers, 100, 1, 0}, actual;
    EXPECT_EQ(S_OK, pAllocator->SetProperties(&request, &actual));
    EXPECT_EQ(S_OK, pAllocator->Commit());
    return pAllocator;
}

CComPtr<IMediaSample> TakeSample(IMemAllocator& allocator) {
    CComPtr<IMediaSample> pSample;
    EXPECT_EQ(S_OK, allocator.GetBuffer(pSample.Put(), nullptr, nullptr, AM_GBF_NOWAIT));
    return pSample;
}

TEST(GraphAllocator, Properties) {
    CComPtr<IMemAllocator> pAllocator;
    CreateMemoryAllocator(pAllocator.Put());
    EXPECT_EQ(VFW_E_SIZENOTSET, pAllocator->Commit());
    struct {
        ALLOCATOR_PROPERTIES request;
        HRESULT hr;
        LONG nGranted;
    } cases[] = {
        {{2, 100, 1, 0}, S_OK, 100},
        {{2, 100, 0, 0}, VFW_E_BADALIGN, 0},
        {{2, 100, 48, 0}, VFW_E_BADALIGN, 0},
        {{-1, 100, 1, 0}, E_INVALIDARG, 0},
        {{2, 0x7FFFFFFF, 1, 1}, E_INVALIDARG, 0},
        {{2, 100, 64, 10}, S_OK, 118},  // prefix and buffer fill 128 together
    };
    for (auto& c : cases) {
        ALLOCATOR_PROPERTIES actual{};
        EXPECT_EQ(c.hr, pAllocator->SetProperties(&c.request, &actual)) << c.request.cbAlign;
        EXPECT_EQ(c.nGranted, actual.cbBuffer) << c.request.cbAlign;
    }
    ASSERT_EQ(S_OK, pAllocator->Commit());
    ALLOCATOR_PROPERTIES actual;
    EXPECT_EQ(VFW_E_ALREADY_COMMITTED, pAllocator->SetProperties(&cases[0].request, &actual));
    const auto pSample = TakeSample(*pAllocator);
    BYTE* pBuffer = nullptr;
    pSample->GetPointer(&pBuffer);
    EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(pBuffer - 10) % 64) << "the prefix begins aligned";
    std::fill_n(pBuffer - 10, 128, BYTE{0xFF});  // the sanitizer watches the bounds
    pAllocator->Decommit();
    EXPECT_EQ(VFW_E_BUFFERS_OUTSTANDING, pAllocator->SetProperties(&cases[0].request, &actual));
}

TEST(GraphAllocator, SamplesReturnAndOutliveADecommit) {
    auto pAllocator = MakeCommitted(2);
    auto pFirst = TakeSample(*pAllocator), pSecond = TakeSample(*pAllocator);
    CComPtr<IMediaSample> pNone;
    EXPECT_EQ(VFW_E_TIMEOUT, pAllocator->GetBuffer(pNone.Put(), nullptr, nullptr, AM_GBF_NOWAIT));
    pAllocator->Decommit();
    EXPECT_EQ(VFW_E_NOT_COMMITTED, pAllocator->GetBuffer(pNone.Put(), nullptr, nullptr, 0));
    pFirst = nullptr;
    ASSERT_EQ(S_OK, pAllocator->Commit()) << "with a sample still in use";
    pFirst = TakeSample(*pAllocator);
    pAllocator = nullptr;  // the samples keep it alive
    BYTE* pBuffer = nullptr;
    pSecond->GetPointer(&pBuffer);
    std::fill_n(pBuffer, 100, BYTE{1});
}

TEST(GraphAllocator, WaitEndsWithASampleADecommitOrByForce) {
    struct {
        const char* name;
        std::function<void(IMemAllocator&, CComPtr<IMediaSample>&, CThread&)> end;
        std::int32_t nExitCode;
    } const cases[] = {
        {"sample", [](auto&, auto& pSample, auto&) { pSample = nullptr; }, S_OK},
        {"decommit", [](auto& allocator, auto&, auto&) { allocator.Decommit(); }, VFW_E_NOT_COMMITTED},
        {"force", [](auto&, auto&, CThread& thread) { thread.Terminate(77); }, 77},
    };
    for (const auto& c : cases) {
        auto pAllocator = MakeCommitted(1);
        auto pSample = TakeSample(*pAllocator);
        CThread thread;
        thread.Start([&]() -> std::int32_t {
            CComPtr<IMediaSample> pNext;
            return pAllocator->GetBuffer(pNext.Put(), nullptr, nullptr, 0);
        });
        EXPECT_EQ(WAIT_TIMEOUT, thread.Wait(kSettleMs)) << c.name;
        c.end(*pAllocator, pSample, thread);
        EXPECT_EQ(WAIT_OBJECT_0, thread.Wait(kTooLongMs)) << c.name;
        EXPECT_EQ(c.nExitCode, thread.GetExitCode()) << c.name;
    }
}

TEST(GraphAllocator, StressManyThreadsShareFewSamples) {
    auto pAllocator = MakeCommitted(2);
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

TEST(GraphSample, IsAsNewWhenItIsTakenAgain) {
    auto pAllocator = MakeCommitted(1);
    auto pSample = TakeSample(*pAllocator);
    REFERENCE_TIME rtStart = 500, rtStop = 700, rtGot = 0, rtGotStop = 0;
    pSample->SetTime(&rtStart, nullptr);
    EXPECT_EQ(VFW_S_NO_STOP_TIME, pSample->GetTime(&rtGot, &rtGotStop));
    EXPECT_EQ(501, rtGotStop);
    pSample->SetTime(&rtStart, &rtStop);
    EXPECT_EQ(S_OK, pSample->GetTime(&rtGot, &rtGotStop));
    EXPECT_EQ(700, rtGotStop);
    EXPECT_EQ(VFW_E_BUFFER_OVERFLOW, pSample->SetActualDataLength(101));
    EXPECT_EQ(VFW_E_BUFFER_OVERFLOW, pSample->SetActualDataLength(-1));
    EXPECT_EQ(S_OK, pSample->SetActualDataLength(100));
    CMediaType type(MEDIATYPE_Video);
    pSample->SetMediaType(&type);
    pSample->SetMediaTime(&rtStart, &rtStop);
    pSample->SetSyncPoint(TRUE);
    pSample->SetPreroll(TRUE);
    pSample->SetDiscontinuity(TRUE);

    pSample = nullptr;
    pSample = TakeSample(*pAllocator);
    AM_MEDIA_TYPE* pType = nullptr;
    EXPECT_EQ(VFW_E_SAMPLE_TIME_NOT_SET, pSample->GetTime(&rtGot, &rtGotStop));
    EXPECT_EQ(VFW_E_MEDIA_TIME_NOT_SET, pSample->GetMediaTime(&rtGot, &rtGotStop));
    EXPECT_EQ(S_FALSE, pSample->GetMediaType(&pType));
    EXPECT_EQ(S_FALSE, pSample->IsSyncPoint());
    EXPECT_EQ(S_FALSE, pSample->IsPreroll());
    EXPECT_EQ(S_FALSE, pSample->IsDiscontinuity());
}

}  // namespace
}  // namespace kest

// The allocator and its samples.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>

#include "graph/MemAllocator.h"
#include "platform/Thread.h"

namespace kest {
namespace {

constexpr std::uint32_t kSettleMs = 20;      // until another thread has most likely come to its wait
constexpr std::uint32_t kTooLongMs = 20000;  // more than anything takes

CComPtr<IMemAllocator> MakeAllocator(LONG nBuffers, LONG nBytes = 100) {
    CComPtr<IMemAllocator> pAllocator;
    EXPECT_EQ(S_OK, CreateMemoryAllocator(pAllocator.Put()));
    ALLOCATOR_PROPERTIES request{nBuffers, nBytes, 1, 0}, actual;
    EXPECT_EQ(S_OK, pAllocator->SetProperties(&request, &actual));
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
    } const cases[] = {
        {{2, 100, 1, 0}, S_OK, 100},         {{2, 100, 64, 0}, S_OK, 128},
        {{2, 100, 64, 10}, S_OK, 118},  // prefix and buffer fill 128 together
        {{2, 100, 0, 0}, VFW_E_BADALIGN, 0}, {{2, 100, 48, 0}, VFW_E_BADALIGN, 0},
        {{-1, 100, 1, 0}, E_INVALIDARG, 0},  {{2, 0x7FFFFFFF, 1, 1}, E_INVALIDARG, 0},
    };
    for (auto c : cases) {
        ALLOCATOR_PROPERTIES actual{};
        EXPECT_EQ(c.hr, pAllocator->SetProperties(&c.request, &actual)) << c.request.cbAlign;
        EXPECT_EQ(c.nGranted, actual.cbBuffer) << c.request.cbAlign;
    }
    ALLOCATOR_PROPERTIES request{2, 100, 64, 10}, actual;
    ASSERT_EQ(S_OK, pAllocator->SetProperties(&request, &actual));
    ASSERT_EQ(S_OK, pAllocator->Commit());
    EXPECT_EQ(VFW_E_ALREADY_COMMITTED, pAllocator->SetProperties(&request, &actual));
    const auto pSample = TakeSample(*pAllocator);
    BYTE* pBuffer = nullptr;
    pSample->GetPointer(&pBuffer);
    EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(pBuffer - 10) % 64) << "the prefix begins aligned";
    std::fill_n(pBuffer - 10, 128, BYTE{0xFF});  // the sanitizer watches the bounds
    pAllocator->Decommit();
    EXPECT_EQ(VFW_E_BUFFERS_OUTSTANDING, pAllocator->SetProperties(&request, &actual));
}

TEST(GraphAllocator, SamplesComeBackAndOutliveADecommit) {
    auto pAllocator = MakeAllocator(2);
    ASSERT_EQ(S_OK, pAllocator->Commit());
    auto pFirst = TakeSample(*pAllocator), pSecond = TakeSample(*pAllocator);
    CComPtr<IMediaSample> pNone;
    EXPECT_EQ(VFW_E_TIMEOUT, pAllocator->GetBuffer(pNone.Put(), nullptr, nullptr, AM_GBF_NOWAIT));
    pAllocator->Decommit();
    EXPECT_EQ(VFW_E_NOT_COMMITTED, pAllocator->GetBuffer(pNone.Put(), nullptr, nullptr, 0));
    pFirst = nullptr;
    ASSERT_EQ(S_OK, pAllocator->Commit()) << "with a sample still out";
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
        auto pAllocator = MakeAllocator(1);
        pAllocator->Commit();
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

TEST(GraphAllocator, ManyThreadsShareFewSamples) {
    constexpr int kThreads = 4, kRounds = 500;
    auto pAllocator = MakeAllocator(2);
    pAllocator->Commit();
    std::atomic<int> nInUse{0}, nTooMany{0};
    CThread threads[kThreads];
    for (CThread& thread : threads) {
        thread.Start([&] {
            for (int i = 0; i < kRounds; ++i) {
                CComPtr<IMediaSample> pSample;
                if (pAllocator->GetBuffer(pSample.Put(), nullptr, nullptr, 0) != S_OK) return 1;
                if (++nInUse > 2) ++nTooMany;
                --nInUse;
            }
            return 0;
        });
    }
    for (CThread& thread : threads) {
        EXPECT_EQ(WAIT_OBJECT_0, thread.Wait(kTooLongMs));
        EXPECT_EQ(0, thread.GetExitCode());
    }
    EXPECT_EQ(0, nTooMany);
}

TEST(GraphSample, TimesFlagsLengthAndType) {
    auto pAllocator = MakeAllocator(1);
    pAllocator->Commit();
    auto pSample = TakeSample(*pAllocator);
    REFERENCE_TIME rtStart = 500, rtStop = 700, rtGot = 0, rtGotStop = 0;
    EXPECT_EQ(VFW_E_SAMPLE_TIME_NOT_SET, pSample->GetTime(&rtGot, &rtGotStop));
    pSample->SetTime(&rtStart, nullptr);
    EXPECT_EQ(VFW_S_NO_STOP_TIME, pSample->GetTime(&rtGot, &rtGotStop));
    EXPECT_EQ(500, rtGot);
    EXPECT_EQ(501, rtGotStop);
    pSample->SetTime(&rtStart, &rtStop);
    EXPECT_EQ(S_OK, pSample->GetTime(&rtGot, &rtGotStop));
    EXPECT_EQ(700, rtGotStop);
    EXPECT_EQ(VFW_E_MEDIA_TIME_NOT_SET, pSample->GetMediaTime(&rtGot, &rtGotStop));

    EXPECT_EQ(VFW_E_BUFFER_OVERFLOW, pSample->SetActualDataLength(101));
    EXPECT_EQ(VFW_E_BUFFER_OVERFLOW, pSample->SetActualDataLength(-1));
    EXPECT_EQ(S_OK, pSample->SetActualDataLength(100));
    CMediaType type(MEDIATYPE_Video);
    type.SetFormat(VIDEOINFOHEADER{});
    AM_MEDIA_TYPE* pType = nullptr;
    EXPECT_EQ(S_FALSE, pSample->GetMediaType(&pType));
    pSample->SetMediaType(&type);
    ASSERT_EQ(S_OK, pSample->GetMediaType(&pType));
    EXPECT_TRUE(type == *pType);
    DeleteMediaType(pType);
    pSample->SetSyncPoint(TRUE);
    pSample->SetPreroll(TRUE);
    pSample->SetDiscontinuity(TRUE);

    pSample = nullptr;
    pSample = TakeSample(*pAllocator);
    EXPECT_EQ(VFW_E_SAMPLE_TIME_NOT_SET, pSample->GetTime(&rtGot, &rtGotStop)) << "handed out as new";
    EXPECT_EQ(S_FALSE, pSample->GetMediaType(&pType));
    EXPECT_EQ(S_FALSE, pSample->IsSyncPoint());
    EXPECT_EQ(S_FALSE, pSample->IsPreroll());
    EXPECT_EQ(S_FALSE, pSample->IsDiscontinuity());
}

}  // namespace
}  // namespace kest

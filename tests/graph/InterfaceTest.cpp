// What leaves an interface method when memory is short or the thread is ended by force: a result code, and nothing else.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>

#include "graph/BaseReferenceClock.h"
#include "platform/SystemEvent.h"
#include "platform/Time.h"
#include "support/GraphPins.h"
#include "support/TestThreads.h"

namespace {

thread_local int t_nUntilFailure = 0;  // the allocation of this thread that fails; 0: none

void* Allocate(std::size_t nBytes) noexcept {
    if (t_nUntilFailure > 0 && --t_nUntilFailure == 0) return nullptr;
    return std::malloc(nBytes > 0 ? nBytes : 1);
}

}  // namespace

void* operator new(std::size_t nBytes) {
    if (void* p = Allocate(nBytes)) return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t nBytes, const std::nothrow_t&) noexcept { return Allocate(nBytes); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace kest {
namespace {

/// Runs `step` with its first, second, ... allocation failing, until none does: it fails with E_OUTOFMEMORY and leaves
/// everything as it was (`isAsBefore`), or does without the memory. `undo` follows every success.
void ExpectSurvivesShortMemory(const std::function<HRESULT()>& step, const std::function<bool()>& isAsBefore,
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
    pins.Source().m_types = {type, type};
    ExpectSurvivesShortMemory([&] { return pins.Connect(); }, [&] { return pins.AreApart(); },
                              [&] { pins.Disconnect(); });
    CComPtr<IEnumMediaTypes> pTypes, pClone;
    ExpectSurvivesShortMemory([&] { return pins.Source().EnumMediaTypes(pTypes.Put()); },
                              [&] { return !pTypes; }, [&] { pTypes = nullptr; });
    pins.Source().EnumMediaTypes(pTypes.Put());
    AM_MEDIA_TYPE* apTypes[2];
    ULONG nTypes = 0;
    ExpectSurvivesShortMemory(
        [&] { return pTypes->Next(2, apTypes, &nTypes); },
        [&] { return nTypes == 0 && pTypes->Skip(2) == S_OK && pTypes->Reset() == S_OK; },
        [&] {
            pTypes->Reset();
            while (nTypes > 0) DeleteMediaType(apTypes[--nTypes]);
        });
    ExpectSurvivesShortMemory([&] { return pTypes->Clone(pClone.Put()); }, [&] { return !pClone; },
                              [&] { pClone = nullptr; });
    CComPtr<IEnumPins> pPins;
    ExpectSurvivesShortMemory([&] { return pins.pUp->EnumPins(pPins.Put()); }, [&] { return !pPins; },
                              [&] { pPins = nullptr; });
    const std::wstring wszLong(100, L'x');
    FILTER_INFO info;
    ExpectSurvivesShortMemory([&] { return pins.pUp->JoinFilterGraph(nullptr, wszLong.c_str()); },
                              [&] { return pins.pUp->QueryFilterInfo(&info), info.achName[0] != L'x'; },
                              [&] { pins.pUp->JoinFilterGraph(nullptr, nullptr); });
    CComPtr<IMemAllocator> pAllocator;
    CreateMemoryAllocator(pAllocator.Put());
    ALLOCATOR_PROPERTIES request{3, 100, 1, 0}, actual;
    pAllocator->SetProperties(&request, &actual);
    ExpectSurvivesShortMemory([&] { return pAllocator->Commit(); },
                              [&] { return pAllocator->SetProperties(&request, &actual) == S_OK; },
                              [&] { pAllocator->Decommit(); });
}

TEST(GraphInterface, ShortMemoryLeavesSampleAndClockUsable) {
    CComPtr<IMemAllocator> pAllocator;
    CreateMemoryAllocator(pAllocator.Put());
    ALLOCATOR_PROPERTIES request{1, 100, 1, 0}, actual;
    pAllocator->SetProperties(&request, &actual);
    pAllocator->Commit();
    CComPtr<IMediaSample> pSample;
    ASSERT_EQ(S_OK, pAllocator->GetBuffer(pSample.Put(), nullptr, nullptr, 0));
    CMediaType type(MEDIATYPE_Video);
    type.SetFormat(VIDEOINFOHEADER{});
    AM_MEDIA_TYPE* pType = nullptr;
    ExpectSurvivesShortMemory([&] { return pSample->SetMediaType(&type); },
                              [&] { return pSample->GetMediaType(&pType) == S_FALSE; },
                              [&] { pSample->SetMediaType(nullptr); });
    CSystemEvent evDue;
    DWORD_PTR dwCookie = 0;
    CBaseReferenceClock clock;
    const auto Advise = [&] {
        return clock.AdviseTime(1, 0, reinterpret_cast<DWORD_PTR>(evDue.GetHandle()), &dwCookie);
    };
    ExpectSurvivesShortMemory(
        Advise, [&] { return dwCookie == 0; }, [&] { dwCookie = 0; });
    EXPECT_TRUE(evDue.Wait(kTooLongMs));
}

/// A caller that exceptions must not reach: one that does ends the process.
HRESULT CallAsForeignCode(const std::function<HRESULT()>& call) noexcept { return call(); }

TEST(GraphInterface, ForcedEndPassesForeignCodeAsAResultAndIsNotLost) {
    struct CWaitsAtItsEnd final : CUnknown {
        ~CWaitsAtItsEnd() override { SleepMs(1); }
    };
    CComPtr<IMemAllocator> pAllocator;
    CreateMemoryAllocator(pAllocator.Put());
    ALLOCATOR_PROPERTIES request{1, 100, 1, 0}, actual;
    pAllocator->SetProperties(&request, &actual);
    pAllocator->Commit();
    CComPtr<IMediaSample> pTaken;
    ASSERT_EQ(S_OK, pAllocator->GetBuffer(pTaken.Put(), nullptr, nullptr, 0));
    ExpectEndsByForce([&] {
        CallAsForeignCode([&] {
            CComPtr<IMediaSample> pSample;
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(E_ABORT, pAllocator->GetBuffer(pSample.Put(), nullptr, nullptr, 0));
            }
            CComPtr<IUnknown>((new CWaitsAtItsEnd)->GetOwner());
            return S_OK;
        });
        SleepMs(kTooLongMs);
    });
}

}  // namespace
}  // namespace kest

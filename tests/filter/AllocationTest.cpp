// Short memory at every point of a filter's life.
#include <cstdlib>
#include <new>

#include "FilterRig.h"
#include "graph/Guard.h"

namespace {

thread_local bool t_bArmed = false;  // allocations of this thread count
thread_local long t_nGranted = 0;    // how many of them succeed before one fails
std::atomic<long> g_nLive{0};        // blocks that have not been given back

}  // namespace

void* operator new(std::size_t n) {
    void* p = t_bArmed && t_nGranted-- == 0 ? nullptr : std::malloc(n);
    if (!p) throw std::bad_alloc();
    ++g_nLive;
    return p;
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept try {
    return operator new(n);
} catch (...) {
    return nullptr;
}
void operator delete(void* p) noexcept {
    if (p) --g_nLive;
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept { operator delete(p); }

namespace kest {
namespace {

/// A filter's life, in which one allocation of the calling thread fails, behind those that are granted.
struct CLife : CRig {
    explicit CLife(long nGranted) { t_nGranted = nGranted; }

    void Live(IAsyncReader* pReader) {
        const std::function<HRESULT()> steps[] = {
            [&] { return Create(); },          [&] { return SetOutput(kDemuxOutputFreeRun); },
            [&] { return Connect(pReader); },  [&] { return ConnectSink(0); },
            [&] { return ConnectSink(1); },    [&] { return m_pFilter->Pause(); },
            [&] { return m_pFilter->Run(0); }, [&] { return Seek(0); },
            [&] { return m_pFilter->Stop(); }, [&] { return Disconnect(), m_pFilter = nullptr, S_OK; }};
        for (std::size_t i = 0; i < std::size(steps); ++i) {
            if (i == 5) StartSinks();
            t_bArmed = true;
            HRESULT hr = Guard(steps[i]);
            t_bArmed = false;
            if (FAILED(hr)) hr = Guard(steps[i]);  // and what fails for want of memory succeeds when repeated
            ASSERT_EQ(S_OK, hr) << "step " << i;
            for (CCountPin* pSink : m_apSinks) EXPECT_TRUE(i < 6 || i > 7 || pSink->WaitForEnd() > 0);
        }
    }
};

TEST(Allocation, EveryFailureIsAResultAndTheFilterGoesOn) {
    const ByteVector bytes = ReadTestData("ps_mpeg2_packs.mpg");
    CMemoryReader reader{std::span<const std::uint8_t>(bytes).first(100000)};
    CLife(1000000).Live(&reader);  // none fails
    const long nLive = g_nLive;
    for (long nGranted = 0; !HasFailure(); ++nGranted) {
        CLife(nGranted).Live(&reader);
        EXPECT_EQ(nLive, g_nLive) << "leaked after " << nGranted;
        if (t_nGranted >= 0) break;  // none has failed
    }
    EXPECT_FALSE(CUnknown::AnyAlive());
}

}  // namespace
}  // namespace kest

// Periodic advises where an event does what a semaphore does on Windows.
#include <gtest/gtest.h>

#include "graph/BaseReferenceClock.h"
#include "graph/EventHandle.h"
#include "platform/Event.h"

namespace kest {
namespace {

TEST(GraphClock, PeriodicAdvisesComeBesideOthers) {
    constexpr std::uint32_t kTooLongMs = 20000;
    constexpr REFERENCE_TIME kMs = 10000;
    CBaseReferenceClock clock;
    CEvent evOnce, evTick(false);
    DWORD_PTR dwOnce = 0, dwTick = 0;
    REFERENCE_TIME rtNow = 0;
    clock.GetTime(&rtNow);
    auto Handle = [](CEvent& event) { return reinterpret_cast<DWORD_PTR>(GetEventHandle(event)); };
    EXPECT_EQ(S_OK, clock.AdviseTime(rtNow, 40 * kMs, Handle(evOnce), &dwOnce));
    EXPECT_EQ(S_OK, clock.AdvisePeriodic(rtNow, 5 * kMs, Handle(evTick), &dwTick));
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(evTick.Wait(kTooLongMs));
    EXPECT_EQ(S_OK, clock.Unadvise(dwTick));
    EXPECT_TRUE(evOnce.Wait(kTooLongMs));
}

}  // namespace
}  // namespace kest

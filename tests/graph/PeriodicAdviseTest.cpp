// Periodic advises where an auto-reset event stands for a semaphore.
#include <gtest/gtest.h>

#include "graph/BaseReferenceClock.h"
#include "platform/SystemEvent.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

TEST(GraphClock, PeriodicAdvisesComeAgainAndAgain) {
    CBaseReferenceClock clock;
    CSystemEvent evTick(/*bManualReset=*/false);
    DWORD_PTR dwTick = 0;
    EXPECT_EQ(S_OK, clock.AdvisePeriodic(1, 50000, reinterpret_cast<DWORD_PTR>(evTick.GetHandle()), &dwTick));
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(evTick.Wait(kTooLongMs));
    EXPECT_EQ(S_OK, clock.Unadvise(dwTick));
}

}  // namespace
}  // namespace kest

#include "platform/Thread.h"

#include <gtest/gtest.h>

#include "platform/ThreadControl.h"
#include "support/CaptureTexts.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

TEST(Thread, EndsByForceInEveryKindOfWait) {
    CEvent event, evAuto(false), evSet(true, true);
    CEvent* const apEvents[] = {&event, &evAuto};
    const std::function<void()> waits[] = {
        [&] { event.Wait(); },
        [&] { event.Wait(kTooLongMs); },
        [&] { CEvent::WaitAny(apEvents); },
        [&] { SleepMs(kTooLongMs); },
        [&] {  // never sleeps: every wait is satisfied at once
            for (;;) evSet.Wait();
        },
    };
    for (std::size_t i = 0; i < std::size(waits); ++i) {
        SCOPED_TRACE(i);
        ExpectEndsByForce(waits[i]);
    }
    evAuto.Set();
    EXPECT_TRUE(evAuto.Wait(0)) << "a thread that is gone took the signal";
}

TEST(Thread, ForceReachesAWaitThatItsDestructorsStillMake) {
    std::atomic<bool> bSlept{false};
    ExpectEndsByForce([&] {
        struct Sleeper {
            std::atomic<bool>& bDone;
            ~Sleeper() {
                SleepMs(1);  // after the signal the thread waits like any other, or it could not clean up
                bDone = true;
            }
        } sleeper{bSlept};
        SleepMs(kTooLongMs);
    });
    EXPECT_TRUE(bSlept);
}

TEST(Thread, ForceWaitsForForeignCodeAndSaysSo) {
    CCaptureTexts texts;
    std::atomic<bool> bLeave{false};
    CThread thread;
    ASSERT_TRUE(thread.Start([&] {
        while (!bLeave) std::this_thread::yield();
        return 5;
    }));
    CTestThread owner([&] { thread.Terminate(100); });
    EXPECT_TRUE(Eventually([&] { return !texts.DebugTexts().empty(); }));
    EXPECT_FALSE(owner.HasEnded());
    bLeave = true;
    owner.Join();
    EXPECT_NE(texts.DebugTexts().find("inside foreign code"), std::string::npos);
    EXPECT_EQ(thread.GetExitCode(), 5) << "it ended by itself";
}

TEST(Thread, WhatIsKnownOfItFromNoneToClosed) {
    CThread thread;
    EXPECT_EQ(thread.Wait(0), WAIT_FAILED);
    EXPECT_EQ(thread.GetId(), 0u);
    thread.Terminate(1);
    const std::uint64_t nBefore = FileTimeNow();
    ASSERT_TRUE(thread.Start([] {
        SleepMs(20);
        return -7;
    }));
    EXPECT_EQ(thread.GetExitCode(), 0);
    EXPECT_EQ(thread.GetTimes().nExit, 0u);
    EXPECT_EQ(thread.Wait(kTooLongMs), WAIT_OBJECT_0);
    thread.Terminate(100);  // too late
    thread.Close();
    EXPECT_EQ(thread.Wait(0), WAIT_FAILED);
    EXPECT_EQ(thread.GetExitCode(), -7);
    EXPECT_NE(thread.GetId(), 0u);
    EXPECT_GE(thread.GetTimes().nCreation, nBefore);
    EXPECT_GE(thread.GetTimes().nExit, nBefore + 190000) << "20 ms in units of 100 ns";
    EXPECT_LE(thread.GetTimes().nExit, FileTimeNow());
}

}  // namespace
}  // namespace kest

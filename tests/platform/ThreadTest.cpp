#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <list>

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
        [&] { CEvent::WaitAny(apEvents, kTooLongMs); },
        [&] { SleepMs(kTooLongMs); },
        [&] {  // never sleeps: every wait is satisfied at once
            for (;;) evSet.Wait();
        },
    };
    for (std::size_t i = 0; i < std::size(waits); ++i) {
        SCOPED_TRACE(i);
        ExpectEndsByForce(waits[i]);
    }
}

TEST(Thread, StressForcedEndSwallowsNoSignal) {
    for (int i = 0; i < 500; ++i) {
        CEvent evAuto(false);
        bool bPassed = false;
        CThread thread;
        ASSERT_TRUE(thread.Start([&] {
            evAuto.Wait();
            bPassed = true;
            return 0;
        }));
        Spin(i * 20);
        evAuto.Set();
        thread.Terminate(1);
        ASSERT_NE(bPassed, evAuto.IsSignalled()) << "in round " << i;
    }
}

// A destructor that throws ends the process: before the signal, while it unwinds, and after it.
TEST(Thread, ForcedEndLeavesWaitsOfDestructorsAlone) {
    struct Owner {
        int& nDone;
        CThread inner{};
        ~Owner() {
            inner.Start([] { return SleepMs(1), 0; });
            EXPECT_EQ(inner.Wait(kTooLongMs), WAIT_OBJECT_0);
            inner.Terminate(1);
            ++nDone;
        }
    };
    int nDone = 0;
    CThread thread;
    ASSERT_TRUE(thread.Start([&] {
        const Owner unwound{nDone};
        while (!CurrentThreadControl()->bTerminate) std::this_thread::yield();
        { const Owner beforeTheSignal{nDone}; }
        struct Sleeper {
            ~Sleeper() { SleepMs(1); }  // a wait as any other
        } const sleeper;
        SleepMs(kTooLongMs);
        return 0;
    }));
    thread.Terminate(77);
    EXPECT_EQ(thread.GetExitCode(), 77);
    EXPECT_EQ(nDone, 2);
}

TEST(Thread, ForceWaitsForForeignCodeAndSaysSo) {
    CCaptureTexts texts;
    std::atomic<bool> bLeave{false};
    CThread thread;
    ASSERT_TRUE(thread.Start([&] {
        while (!bLeave) std::this_thread::yield();
        return 5;
    }));
    CTestThread owner([&] { thread.Terminate(100, /*nNoticeMs=*/10); });
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
    thread.Terminate(1);
    const std::uint64_t nBefore = FileTimeNow();
    ASSERT_TRUE(thread.Start([] { return SleepMs(20), -7; }));
    EXPECT_EQ(thread.GetTimes().nExit, 0u);
    EXPECT_EQ(thread.Wait(kTooLongMs), WAIT_OBJECT_0);
    thread.Terminate(100);  // too late
    thread.Close();
    EXPECT_EQ(thread.Wait(0), WAIT_FAILED);
    EXPECT_EQ(thread.GetExitCode(), -7);
    EXPECT_NE(thread.GetId(), 0u);
    EXPECT_GE(thread.GetTimes().nExit, nBefore + 190000) << "20 ms in units of 100 ns";
    EXPECT_LE(thread.GetTimes().nExit, FileTimeNow());
}

TEST(Thread, StressSeveralOwnersStartEndAndCloseIt) {
    CThread thread;
    std::list<CTestThread> owners;
    for (int nOwner = 0; nOwner < 3; ++nOwner) {
        owners.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                EXPECT_TRUE(thread.Start([] { return SleepMs(kTooLongMs), 0; }));
                thread.Terminate(1);
                thread.Close();
            }
        });
    }
    owners.clear();
    EXPECT_FALSE(thread.Exists());
}

}  // namespace
}  // namespace kest

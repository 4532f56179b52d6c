// Events, threads and their forced end, and texts while all of them write.
#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <array>
#include <list>
#include <memory>

#include "platform/ThreadControl.h"
#include "support/CaptureTexts.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

TEST(Event, WaitAnyGivesTheFirstSignalledTakesNoOtherAndKeepsItsTimeOut) {
    CEvent evNever, evFirst(false, true), evSecond(false, true);
    CEvent* const apEvents[] = {&evNever, &evFirst, &evSecond};
    EXPECT_EQ(CEvent::WaitAny(apEvents), 1);
    EXPECT_TRUE(evSecond.IsSignalled());
    EXPECT_EQ(CEvent::WaitAny(apEvents), 2);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(CEvent::WaitAny(apEvents, 20), -1);
    SleepMs(20);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(40));
}

TEST(Event, StressNoWakeUpIsLostBetweenTwoThreads) {
    CEvent evPing(false), evPong(false);
    CTestThread other([&] {
        for (int i = 0; i < 5000; ++i, evPong.Set()) evPing.Wait();
    });
    for (int i = 0; i < 5000; ++i) {
        evPing.Set();
        ASSERT_TRUE(evPong.Wait(kTooLongMs)) << "in round " << i;
    }
}

// Waiters of overlapping sets of auto-reset events, some leaving by time-out all the while: each signal reaches one of
// them, and only one. The manual-reset event lets all of them through.
TEST(Event, StressEverySignalLetsOneOfSeveralWaitersThrough) {
    CEvent evQuit;
    std::array<CEvent, 3> aEvents{CEvent(false), CEvent(false), CEvent(false)};
    std::array<std::atomic<int>, 3> anPassed{};
    std::list<CTestThread> threads;
    for (std::size_t i = 0; i < 3; ++i) {
        threads.emplace_back([&, i] {
            CEvent* const apEvents[] = {&evQuit, &aEvents[i], &aEvents[(i + 1) % 3]};
            for (int nIndex = -1; nIndex != 0;) {
                nIndex = CEvent::WaitAny(apEvents, 1);
                if (nIndex > 0) ++anPassed[(i + static_cast<std::size_t>(nIndex) - 1) % 3];
            }
        });
    }
    for (int i = 0; i < 6000 && !HasFailure(); ++i) {
        aEvents[static_cast<std::size_t>(i % 3)].Set();
        EXPECT_TRUE(Eventually([&] { return anPassed[static_cast<std::size_t>(i % 3)] == i / 3 + 1; })) << i;
    }
    evQuit.Set();
}

// The sanitizers see a Set that touches the event after the thread that saw the signal has destroyed it.
TEST(Event, StressMayBeDestroyedWhileTheSetThatSignalledItReturns) {
    std::atomic<CEvent*> pShared{nullptr};
    std::atomic<bool> bEnd{false};
    CTestThread setter([&] {
        for (CEvent* pEvent = nullptr; !bEnd; pEvent = pShared.exchange(nullptr)) {
            if (pEvent) pEvent->Set();
        }
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
        const auto pEvent = std::make_unique<CEvent>(/*bManualReset=*/i % 2 == 0);
        pShared = pEvent.get();
        ASSERT_TRUE(pEvent->Wait(kTooLongMs));
    }
    bEnd = true;
}

TEST(Thread, EndsByForceInEveryKindOfWait) {
    CEvent event, evAuto(false), evSet(true, true);
    CEvent* const apEvents[] = {&event, &evAuto};
    ExpectEndsByForce([&] { event.Wait(); });
    ExpectEndsByForce([&] { CEvent::WaitAny(apEvents, kTooLongMs); });
    ExpectEndsByForce([&] { SleepMs(kTooLongMs); });
    ExpectEndsByForce([&] {
        while (evSet.Wait()) continue;
    });  // never sleeps
}

TEST(Thread, StressForcedEndSwallowsNoSignal) {
    for (int i = 0; i < 500; ++i) {
        CEvent evAuto(false);
        bool bPassed = false;
        CThread thread;
        ASSERT_TRUE(thread.Start([&] { return evAuto.Wait(), bPassed = true, 0; }));
        Spin(i * 20);
        evAuto.Set();
        thread.Terminate(1);
        ASSERT_NE(bPassed, evAuto.IsSignalled()) << "in round " << i;
    }
}

// A destructor that throws ends the process: before the signal, and while it unwinds.
TEST(Thread, ForcedEndLeavesTheWaitsOfDestructorsAlone) {
    struct Owner {
        ~Owner() {
            inner.Start([] { return SleepMs(1), 0; });
            EXPECT_EQ(inner.Wait(kTooLongMs), WAIT_OBJECT_0);
            inner.Terminate(1);
            if (std::uncaught_exceptions() > 0) SleepMs(1);
            ++nDone;
        }
        int& nDone;
        CThread inner{};
    };
    int nDone = 0;
    CThread thread;
    ASSERT_TRUE(thread.Start([&] {
        const Owner unwound{nDone};
        while (!CurrentTermination()->IsRequested()) std::this_thread::yield();
        { const Owner beforeTheSignal{nDone}; }
        return SleepMs(kTooLongMs), 0;
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
    EXPECT_TRUE(
        Eventually([&] { return texts.DebugTexts().find("inside foreign code") != std::string::npos; }));
    EXPECT_FALSE(owner.HasEnded());
    bLeave = true;
    owner.Join();
    EXPECT_EQ(thread.GetExitCode(), 5) << "it ended by itself";
}

TEST(Thread, StressSeveralOwnersStartAndEndIt) {
    CThread thread;
    std::list<CTestThread> owners;
    for (int nOwner = 0; nOwner < 3; ++nOwner) {
        owners.emplace_back([&] {
            for (int i = 0; i < 100; ++i, thread.Terminate(1))
                thread.Start([] { return SleepMs(kTooLongMs), 0; });
        });
    }
}

// Each kind has a sink of its own, which may write texts and replace itself while other threads write.
TEST(DebugText, StressSinksWriteTextsAndReplaceThemselves) {
    CCaptureTexts texts;
    DebugText("%d of %s|", 3, "five");
    Trace("%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(texts.DebugTexts(), "3 of five|");
    EXPECT_EQ(texts.TraceTexts(), std::string(1023, 'x'));
    std::atomic<bool> bEnd{false};
    CTestThread writer([&] {
        while (!bEnd) DebugText("text");
    });
    for (int i = 0; i < 2000; ++i) {
        SetDebugSink([strText = std::string(40, 'y')](const char*) {
            SetDebugSink(nullptr);
            Trace("%s", strText.c_str());  // this sink is alive until it returns
        });
    }
    bEnd = true;
    writer.Join();
    EXPECT_EQ(texts.TraceTexts().find_last_not_of('y'), 1022u);
}

}  // namespace
}  // namespace kest

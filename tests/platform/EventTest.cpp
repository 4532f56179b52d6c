#include "platform/Event.h"

#include <gtest/gtest.h>

#include <array>
#include <list>
#include <memory>

#include "support/TestThreads.h"

namespace kest {
namespace {

TEST(Event, ManualResetLetsEveryoneThroughUntilReset) {
    CEvent event;
    std::list<CTestThread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back([&] { event.Wait(); });
    SleepMs(kSettleMs);
    for (const auto& thread : threads) EXPECT_FALSE(thread.HasEnded());
    event.Set();
    threads.clear();
    EXPECT_TRUE(event.Wait(0));
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
}

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
    constexpr int kRounds = 20000;
    CEvent evPing(false), evPong(false);
    CTestThread other([&] {
        for (int i = 0; i < kRounds; ++i) {
            evPing.Wait();
            evPong.Set();
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        evPing.Set();
        ASSERT_TRUE(evPong.Wait(kTooLongMs)) << "in round " << i;
    }
}

// Waiters of overlapping sets of auto-reset events, some leaving by time-out all the while: each signal reaches one of
// them, and only one.
TEST(Event, StressEverySignalLetsOneOfSeveralWaitersThrough) {
    CEvent evQuit;
    std::array<CEvent, 3> aEvents{CEvent(false), CEvent(false), CEvent(false)};
    std::array<std::atomic<int>, 3> anPassed{};
    std::list<CTestThread> threads;
    for (std::size_t i = 0; i < 3; ++i) {
        threads.emplace_back([&, i] {
            const std::array anIndex{i, (i + 1) % 3};
            CEvent* const apEvents[] = {&evQuit, &aEvents[anIndex[0]], &aEvents[anIndex[1]]};
            for (int nIndex = -1; nIndex != 0;) {
                nIndex = CEvent::WaitAny(apEvents, 1);
                if (nIndex > 0) ++anPassed[anIndex[static_cast<std::size_t>(nIndex) - 1]];
            }
        });
    }
    for (std::size_t nRound = 0; nRound < 2000 && !HasFailure(); ++nRound) {
        const int nBefore = anPassed[nRound % 3];
        aEvents[nRound % 3].Set();
        EXPECT_TRUE(Eventually([&] { return anPassed[nRound % 3] == nBefore + 1; })) << "in round " << nRound;
    }
    evQuit.Set();
}

// The sanitizers see a Set that touches the event after the thread that saw the signal has destroyed it.
TEST(Event, StressMayBeDestroyedWhileTheSetThatSignalledItReturns) {
    std::atomic<CEvent*> pShared{nullptr};
    std::atomic<bool> bEnd{false};
    CTestThread setter([&] {
        while (!bEnd) {
            if (CEvent* pEvent = pShared.exchange(nullptr)) pEvent->Set();
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

}  // namespace
}  // namespace kest

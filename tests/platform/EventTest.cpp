#include "platform/Event.h"

#include <gtest/gtest.h>

#include <array>
#include <list>

#include "support/TestThreads.h"

namespace kest {
namespace {

TEST(Event, ManualResetLetsEveryoneThroughUntilReset) {
    CEvent event;
    {
        std::list<CTestThread> threads;
        for (int i = 0; i < 4; ++i) threads.emplace_back([&] { event.Wait(); });
        SleepMs(kSettleMs);
        for (const auto& thread : threads) EXPECT_FALSE(thread.HasEnded());
        event.Set();
    }
    EXPECT_TRUE(event.Wait(0));
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
}

// Each set must let one of the waiting threads through: none lost, none let through twice.
TEST(Event, AutoResetLetsExactlyOneThroughUnderContention) {
    constexpr int kRounds = 3000;
    CEvent event(/*bManualReset=*/false);
    std::atomic<int> nPassed{0};
    std::list<CTestThread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (nPassed < kRounds) {
                if (event.Wait(50)) ++nPassed;
            }
        });
    }
    for (int i = 1; i <= kRounds; ++i) {
        event.Set();
        ASSERT_TRUE(Eventually([&] { return nPassed >= i; })) << "wake-up lost in round " << i;
        ASSERT_EQ(nPassed, i);
    }
    SleepMs(kSettleMs);
    EXPECT_EQ(nPassed, kRounds);
}

TEST(Event, NoWakeUpIsLostBetweenTwoThreads) {
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

TEST(Event, TimeOutIsKept) {
    CEvent event;
    CEvent* const apEvents[] = {&event};
    const std::function<void()> waits[] = {
        [&] { EXPECT_FALSE(event.Wait(20)); },
        [&] { EXPECT_EQ(CEvent::WaitAny(apEvents, 20), -1); },
        [&] { SleepMs(20); },
    };
    for (const auto& wait : waits) {
        const auto begin = std::chrono::steady_clock::now();
        wait();
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
    }
}

TEST(Event, WaitAnyGivesTheFirstSignalledAndTakesNoOther) {
    CEvent evNever, evFirst(false, true), evSecond(false, true);
    CEvent* const apEvents[] = {&evNever, &evFirst, &evSecond};
    EXPECT_EQ(CEvent::WaitAny(apEvents), 1);
    EXPECT_TRUE(evSecond.IsSignalled());
    EXPECT_EQ(CEvent::WaitAny(apEvents), 2);
    EXPECT_EQ(CEvent::WaitAny(apEvents, 0), -1);
}

// Waiters of overlapping sets, some leaving by time-out all the while: each signal still reaches one of them.
TEST(Event, WaitAnyLosesNothingUnderContention) {
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
    for (std::size_t nRound = 0; nRound < 2000; ++nRound) {
        const int nBefore = anPassed[nRound % 3];
        aEvents[nRound % 3].Set();
        EXPECT_TRUE(Eventually([&] { return anPassed[nRound % 3] == nBefore + 1; })) << "in round " << nRound;
        if (HasFailure()) break;
    }
    evQuit.Set();
}

}  // namespace
}  // namespace kest

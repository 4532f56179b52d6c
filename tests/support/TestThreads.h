// Threads for tests: none of them may outlive its test or hang it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "platform/Event.h"
#include "platform/Thread.h"
#include "platform/Time.h"

namespace kest {

/// More than anything takes on a loaded machine under a sanitizer, less than the limit of a test.
constexpr std::uint32_t kTooLongMs = 20000;

/// Long enough that a thread that runs has most likely come to its wait.
constexpr std::uint32_t kSettleMs = 10;

/// A thread that runs a function, already when the constructor returns; a function that has not ended after
/// kTooLongMs fails the test and is ended by force.
class CTestThread {
public:
    explicit CTestThread(std::function<void()> run) {
        m_thread.Start([this, run = std::move(run)] {
            m_evRuns.Set();
            run();
            return 0;
        });
        m_evRuns.Wait();
    }
    ~CTestThread() { Join(); }

    void Join() {
        if (m_thread.Wait(kTooLongMs) == WAIT_TIMEOUT) {
            ADD_FAILURE() << "the thread hangs";
            m_thread.Terminate(1);
        }
        m_thread.Close();
    }
    bool HasEnded() const { return m_thread.Wait(0) == WAIT_OBJECT_0; }

private:
    CEvent m_evRuns;
    CThread m_thread;
};

/// Passes a little time without giving the processor away.
inline void Spin(int nTurns) {
    volatile int nTurn = 0;
    while (nTurn < nTurns) nTurn = nTurn + 1;
}

/// Waits until `isTrue()`. False when it takes too long.
template <class IsTrue>
bool Eventually(IsTrue isTrue) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kTooLongMs);
    while (!isTrue()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

/// Runs `wait` in a thread: `nudge` does not end it, `wake` does.
inline void ExpectWaitEnds(const std::function<void()>& wait, const std::function<void()>& nudge,
                           const std::function<void()>& wake) {
    CTestThread thread(wait);
    SleepMs(kSettleMs);
    nudge();
    SleepMs(kSettleMs / 4);
    EXPECT_FALSE(thread.HasEnded());
    EXPECT_TRUE(Eventually([&] {  // again and again: it may come to its wait only now
        wake();
        SleepMs(1);
        return thread.HasEnded();
    }));
}

/// Runs `wait`, which must not end by itself, in a thread and ends that thread by force: its exit code is the
/// one given, and what the thread held has been given back.
inline void ExpectEndsByForce(const std::function<void()>& wait) {
    CEvent evEntered;
    std::atomic<bool> bGivenBack{false};
    CThread thread;
    ASSERT_TRUE(thread.Start([&] {
        struct Guard {
            std::atomic<bool>& bDone;
            ~Guard() { bDone = true; }
        } guard{bGivenBack};
        evEntered.Set();
        wait();
        return 0;
    }));
    ASSERT_TRUE(evEntered.Wait(kTooLongMs));
    SleepMs(kSettleMs);
    EXPECT_EQ(thread.Wait(0), WAIT_TIMEOUT) << "the wait ended by itself";
    thread.Terminate(77);
    EXPECT_EQ(thread.Wait(0), WAIT_OBJECT_0);
    EXPECT_EQ(thread.GetExitCode(), 77);
    EXPECT_TRUE(bGivenBack);
}

/// Closes a side again and again just when a thread begins an endless wait on it, be it before, between or
/// after the looks that the wait takes: the wait must end.
inline void ExpectCloseIsSeen(const std::function<void()>& open, const std::function<void()>& wait,
                              const std::function<void()>& close) {
    constexpr int kRounds = 2000;
    std::atomic<int> nRound{0}, nEnded{0};
    CTestThread waiter([&] {
        for (int i = 1; i <= kRounds; ++i) {
            while (nRound < i) SleepMs(0);
            wait();
            nEnded = i;
        }
    });
    for (int i = 1; i <= kRounds; ++i) {
        open();
        nRound = i;
        Spin(i % 500);
        close();
        ASSERT_TRUE(Eventually([&] { return nEnded == i; })) << "the wait sleeps on, in round " << i;
    }
}

}  // namespace kest

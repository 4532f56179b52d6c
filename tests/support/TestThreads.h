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

/// Long enough that another thread has most likely come to its wait.
constexpr std::uint32_t kSettleMs = 10;

/// A thread that runs a function; a function that has not ended after kTooLongMs fails the test and is ended
/// by force.
class CTestThread {
public:
    /// Returns when the thread runs.
    explicit CTestThread(std::function<void()> run) {
        m_thread.Start([this, run = std::move(run)] {
            m_evRunning.Set();
            run();
            return 0;
        });
        m_evRunning.Wait(kTooLongMs);
    }
    ~CTestThread() { Join(); }

    /// Does what ends the thread's wait, again and again until it has: a thread that has not come to its wait by
    /// then is reached too.
    void WakeBy(const std::function<void()>& wake) {
        const std::uint32_t nBegin = TickCount();
        do {
            wake();
        } while (m_thread.Wait(5) == WAIT_TIMEOUT && TickCount() - nBegin < kTooLongMs);
    }

    void Join() {
        if (m_thread.Wait(kTooLongMs) == WAIT_TIMEOUT) {
            ADD_FAILURE() << "the thread hangs";
            m_thread.Terminate(1);
        }
        m_thread.Close();
    }
    bool HasEnded() const { return m_thread.Wait(0) == WAIT_OBJECT_0; }

private:
    CEvent m_evRunning;
    CThread m_thread;  // last: it uses the event
};

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

/// Runs `wait`, which must not end by itself, in a thread and ends that thread by force: its exit code is the
/// one given, and what the thread held has been given back.
inline void ExpectEndsByForce(const std::function<void()>& wait) {
    constexpr std::int32_t kExitCode = 77;
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
    thread.Terminate(kExitCode);
    EXPECT_EQ(thread.Wait(0), WAIT_OBJECT_0);
    EXPECT_EQ(thread.GetExitCode(), kExitCode);
    EXPECT_TRUE(bGivenBack);
}

/// Closes a side again and again just when a thread begins an endless wait on it, be it before, between or
/// after the looks that the wait takes: the wait must end.
inline void ExpectCloseIsSeen(const std::function<void()>& open, const std::function<void()>& wait,
                              const std::function<void()>& close) {
    constexpr int kRounds = 3000;
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
        for (int nDelay = 0; nDelay < i % 300; ++nDelay) std::atomic_thread_fence(std::memory_order_seq_cst);
        close();
        ASSERT_TRUE(Eventually([&] { return nEnded == i; })) << "the wait sleeps on, in round " << i;
    }
}

}  // namespace kest

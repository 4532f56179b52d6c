// Threads for tests: none of them may outlive its test or hang it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
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

/// Runs `wait` in a thread: it does not end by itself, `wake` ends it. A thread that comes to its wait late is woken
/// again.
inline void ExpectWaitEnds(const std::function<void()>& wait, const std::function<void()>& wake) {
    CTestThread thread(wait);
    SleepMs(kSettleMs);
    EXPECT_FALSE(thread.HasEnded());
    for (std::uint32_t nMs = 0; nMs < kTooLongMs && !thread.HasEnded(); ++nMs) {
        if (nMs % 200 == 0) wake();
        SleepMs(1);
    }
}

/// Runs `wait`, which must not end by itself, in a thread and ends that thread by force: its exit code is the
/// one given, and what the thread held has been given back.
inline void ExpectEndsByForce(const std::function<void()>& wait) {
    CEvent evEntered;
    std::atomic<bool> bGivenBack{false};
    CThread thread;
    ASSERT_TRUE(thread.Start([&] {
        const std::shared_ptr<void> guard(nullptr, [&](void*) { bGivenBack = true; });
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

}  // namespace kest

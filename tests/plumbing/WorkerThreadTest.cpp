#include "plumbing/WorkerThread.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/ThreadControl.h"
#include "plumbing/KestException.h"
#include "support/CaptureTexts.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

/// A worker with the body of the test: by default one that keeps to the contract.
struct CTestWorker : CWorkerThread {
    using Body = std::function<std::int32_t()>;

    explicit CTestWorker(Body body = nullptr) : m_body(std::move(body)) {}
    ~CTestWorker() { Stop(), CloseThread(); }
    /// The body goes on, or does not, from now on.
    void ExpectRuns(bool bRuns) {
        if (!bRuns) SleepMs(kSettleMs);
        const int nTurns = m_nTurns;
        EXPECT_EQ(
            bRuns ? Eventually([&] { return m_nTurns > nTurns; }) : WaitForThread(kSettleMs) != WAIT_TIMEOUT,
            bRuns);
        EXPECT_EQ(m_nTurns > nTurns, bRuns);
    }
    std::int32_t ThreadProc() override {
        if (m_body) return m_body();
        for (;; ++m_nTurns, SleepMs(1)) {
            m_evRun.Wait();
            if (m_evStop.IsSignalled()) return 42;
        }
    }

    const Body m_body;
    std::atomic<int> m_nTurns{0};
};

TEST(WorkerThread, HoldsRunsAndEndsAsItsEventsSay) {
    CTestWorker worker;
    const std::function<void()> states[] = {
        [] {},  // never started
        [] {},  // running
        [&] { worker.Pause(); },
        [&] { worker.Pause(), worker.Stop(), worker.WaitForThread(kTooLongMs); },
        [&] { worker.CloseThread(); },
    };
    EXPECT_EQ(worker.WaitForThread(0), WAIT_FAILED);
    for (const auto& enterState : states) {
        enterState();
        worker.Restart();
        worker.ExpectRuns(false);
        worker.Resume();
        worker.ExpectRuns(true);
    }
    worker.Pause();
    worker.ExpectRuns(false);
    worker.Stop();
    for (int i = 0; i < 2; ++i) {  // the stop is remembered: a thread started without Restart ends at once
        EXPECT_EQ(worker.WaitForThread(kTooLongMs), WAIT_OBJECT_0);
        EXPECT_EQ(worker.GetExitCode(), 42);
        worker.KillThread();  // leaves a thread alone that has ended
        EXPECT_EQ(worker.WaitForThread(0), WAIT_OBJECT_0);
        worker.StartThread();
    }
    worker.CloseThread();  // forgets the stop
    worker.StartThread();
    worker.ExpectRuns(false);
}

TEST(WorkerThread, ForceEndsABodyThatDoesNotEndInTime) {
    std::atomic<int> nEntered{0};
    CTestWorker worker([&] { return ++nEntered, SleepMs(kTooLongMs), 1; });
    for (int i = 1; i <= 2; ++i) {
        worker.Restart();
        EXPECT_TRUE(Eventually([&] { return nEntered == i; }));
    }
    worker.KillThread();
    EXPECT_EQ(worker.GetExitCode(), 100);
    EXPECT_EQ(worker.WaitForThread(0), WAIT_FAILED) << "it has been forgotten";
}

// The destructor waits for its thread, here on a thread whose waits throw.
TEST(WorkerThread, CanBeDestroyedByAThreadThatIsEndedByForce) {
    ExpectEndsByForce([] {
        {
            CTestWorker worker([] { return SleepMs(kTooLongMs), 1; });
            worker.Restart();
            while (!CurrentTermination()->IsRequested()) Spin(1000);
        }
        SleepMs(0);
    });
}

TEST(WorkerThread, KestExceptionEndsOnlyTheThread) {
    CCaptureTexts texts;
    CTestWorker worker([]() -> std::int32_t { throw KestException("broken stream"); });
    for (int i = 0; i < 2; ++i) {
        worker.Restart();
        EXPECT_EQ(worker.WaitForThread(kTooLongMs), WAIT_OBJECT_0);
        EXPECT_EQ(worker.GetExitCode(), -100);
    }
    EXPECT_EQ(texts.DebugTexts(), "\n *** Capture exception!!!\n\n *** Capture exception!!!\n");
}

TEST(WorkerThread, DumpStatus) {
    CTestWorker worker;
    char szText[2048];
    worker.Restart();
    worker.Stop();
    EXPECT_EQ(worker.WaitForThread(kTooLongMs), WAIT_OBJECT_0);
    worker.DumpStatus(szText);
    std::string strText;  // without what differs from run to run: digits, and how fields are filled up
    for (const char c : std::string(szText)) {
        if (std::string("0123456789-: ").find(c) == std::string::npos) strText += c;
    }
    EXPECT_EQ(strText,
              "***************BeginDebugThread************\nThreadID=\nName=\nTimeinformation\n"
              "CreationTime\nExitTime\nKernelTime\nUserTime\n"
              "TheThreadPriority\n\nStatusofThread\nThreadmayrunning\nThreadStop\n"
              "**************End**************\n");
}

}  // namespace
}  // namespace kest

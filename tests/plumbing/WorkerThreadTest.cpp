#include "plumbing/WorkerThread.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/Termination.h"
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
        EXPECT_EQ(Eventually([&] { return m_nTurns > nTurns; }, bRuns ? kTooLongMs : kSettleMs), bRuns);
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
    EXPECT_EQ(worker.WaitForThread(0), WAIT_FAILED);
    for (int nState = 0; nState < 5; ++nState) {  // not yet started, running, paused, ended, closed
        if (nState == 2 || nState == 3) worker.Pause();
        if (nState == 3) worker.Stop(), worker.WaitForThread(kTooLongMs);
        if (nState == 4) worker.CloseThread();
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

TEST(WorkerThread, ExceptionsAndForceEndOnlyTheThread) {
    CCaptureTexts texts;
    std::atomic<int> nEntered{0};
    CTestWorker worker([&] {
        if (++nEntered == 1) throw KestException("broken stream");
        return SleepMs(kTooLongMs), 1;
    });
    worker.Restart();
    EXPECT_EQ(worker.WaitForThread(kTooLongMs), WAIT_OBJECT_0);
    EXPECT_EQ(worker.GetExitCode(), -100);
    EXPECT_EQ(texts.DebugTexts(), "\n *** Capture exception!!!\n");
    for (int i : {2, 3}) {
        worker.Restart();
        EXPECT_TRUE(Eventually([&] { return nEntered == i; }));
    }
    worker.KillThread();
    EXPECT_EQ(worker.GetExitCode(), 100);
    EXPECT_EQ(worker.WaitForThread(0), WAIT_FAILED) << "it has been forgotten";
}

TEST(WorkerThread, DumpStatus) {
    CTestWorker worker;
    char szText[2048];
    worker.Restart();
    worker.Stop();
    EXPECT_EQ(worker.WaitForThread(kTooLongMs), WAIT_OBJECT_0);
    worker.DumpStatus(szText);
    std::string strText;
    for (const char c : std::string_view(szText)) {  // every number, with the blanks before it, becomes #
        const bool bDigit = c >= '0' && c <= '9';
        while (bDigit && (strText.ends_with(' ') || strText.ends_with('#'))) strText.pop_back();
        strText += bDigit ? '#' : c;
    }
    EXPECT_EQ(strText,
              "*************** Begin Debug Thread  ************\nThread ID=# \n Name=\nTime information:\n"
              " CreationTime :#-#-#:#:#\n ExitTime     :#-#-#:#:#\n KernelTime   :#-#-#:#:#\n"
              " UserTime     :#-#-#:#:#\n The Thread Priority:#\n\n"
              "Status of Thread:\n    Thread may running\n    Thread Stop\n"
              " ************** End **************\n");
}

}  // namespace
}  // namespace kest

#include "plumbing/WorkerThread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "plumbing/KestException.h"
#include "support/CaptureTexts.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

/// A worker with the body of the test.
class CTestWorker : public CWorkerThread {
public:
    using Body = std::function<std::int32_t(CTestWorker&)>;

    explicit CTestWorker(Body body) : m_body(std::move(body)) {}
    ~CTestWorker() {
        Stop();
        CloseThread();
    }
    CEvent& RunEvent() { return m_evRun; }
    CEvent& StopEvent() { return m_evStop; }

    std::atomic<int> m_nEntered{0};
    std::atomic<int> m_nPassedRun{0};

private:
    std::int32_t ThreadProc() override {
        ++m_nEntered;
        return m_body(*this);
    }

    Body m_body;
};

/// As the contract of a body asks: holds at the run event, ends at the stop event.
std::int32_t ObedientBody(CTestWorker& worker) {
    for (;;) {
        worker.RunEvent().Wait();
        if (worker.StopEvent().IsSignalled()) return 42;
        ++worker.m_nPassedRun;
        SleepMs(1);
    }
}

std::int32_t DeafBody(CTestWorker&) {
    SleepMs(kTooLongMs);
    return 1;
}

TEST(WorkerThread, NeverStarted) {
    CTestWorker worker(ObedientBody);
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_EQ(worker.WaitForThread(0), WAIT_FAILED);
    worker.Resume();
    worker.Pause();
    worker.KillThread();
    worker.CloseThread();
    EXPECT_EQ(worker.GetExitCode(), 0);
}

TEST(WorkerThread, RestartHoldsUntilResumeFromEveryState) {
    CTestWorker worker(ObedientBody);
    const std::function<void()> states[] = {
        [] {},  // never started, then running
        [] {},
        [&] { worker.Pause(); },
        [&] {
            worker.Stop();
            EXPECT_EQ(worker.WaitForThread(kTooLongMs), WAIT_OBJECT_0);
        },
        [&] { worker.CloseThread(); },
    };
    int nEntered = 0;
    for (const auto& enterState : states) {
        enterState();
        worker.Restart();
        ++nEntered;
        EXPECT_TRUE(Eventually([&] { return worker.m_nEntered == nEntered; }));
        EXPECT_TRUE(worker.IsRunning());
        const int nPassed = worker.m_nPassedRun;
        SleepMs(kSettleMs);
        EXPECT_EQ(worker.m_nPassedRun, nPassed) << "it is not held";
        worker.Resume();
        EXPECT_TRUE(Eventually([&] { return worker.m_nPassedRun > nPassed; }));
    }
}

TEST(WorkerThread, PausedBodyHoldsAndStopEndsIt) {
    CTestWorker worker(ObedientBody);
    worker.StartThread();
    worker.Resume();
    EXPECT_TRUE(Eventually([&] { return worker.m_nPassedRun > 0; }));
    worker.Pause();
    SleepMs(kSettleMs);
    const int nPassed = worker.m_nPassedRun;
    EXPECT_EQ(worker.WaitForThread(kSettleMs), WAIT_TIMEOUT);
    EXPECT_EQ(worker.m_nPassedRun, nPassed);
    worker.Stop();
    EXPECT_EQ(worker.WaitForThread(kTooLongMs), WAIT_OBJECT_0);
    EXPECT_EQ(worker.GetExitCode(), 42);
    EXPECT_FALSE(worker.IsRunning());
    worker.KillThread();
    EXPECT_EQ(worker.GetExitCode(), 42) << "a thread that ended is left alone";
    EXPECT_EQ(worker.WaitForThread(0), WAIT_OBJECT_0);

    // The stop is remembered: a thread that is started without Restart ends at once.
    worker.StartThread();
    EXPECT_EQ(worker.WaitForThread(kTooLongMs), WAIT_OBJECT_0);

    // Closing forgets it: the next thread holds and runs as the first did.
    worker.CloseThread();
    worker.StartThread();
    EXPECT_EQ(worker.WaitForThread(kSettleMs), WAIT_TIMEOUT);
    const int nPassedBefore = worker.m_nPassedRun;
    worker.Resume();
    EXPECT_TRUE(Eventually([&] { return worker.m_nPassedRun > nPassedBefore; }));
}

TEST(WorkerThread, RestartEndsByForceOnlyWhatDoesNotEndInTime) {
    std::atomic<int> nEndedByItself{0}, nUnwound{0};
    auto Watched = [&](std::int32_t (*body)(CTestWorker&)) {
        return [&, body](CTestWorker& worker) {
            struct Guard {
                std::atomic<int>& nCount;
                ~Guard() { ++nCount; }
            } guard{nUnwound};
            const std::int32_t nExitCode = body(worker);
            ++nEndedByItself;
            return nExitCode;
        };
    };
    {
        CTestWorker worker(Watched(ObedientBody));
        // On a loaded machine even a body that obeys may take longer than the time it is given.
        for (int i = 0; i < 20 && nEndedByItself == 0; ++i) {
            worker.Restart();
            worker.Resume();
            SleepMs(2);
        }
        EXPECT_GT(nEndedByItself, 0);
    }
    nEndedByItself = nUnwound = 0;
    CTestWorker worker(Watched(DeafBody));
    worker.Restart();
    EXPECT_TRUE(Eventually([&] { return worker.m_nEntered == 1; }));
    const auto begin = std::chrono::steady_clock::now();
    worker.Restart();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(10));
    EXPECT_EQ(nUnwound, 1);
    EXPECT_TRUE(worker.IsRunning());
    EXPECT_TRUE(Eventually([&] { return worker.m_nEntered == 2; }));
    worker.KillThread();
    EXPECT_EQ(nUnwound, 2);
    EXPECT_EQ(nEndedByItself, 0);
    EXPECT_EQ(worker.GetExitCode(), 100);
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_EQ(worker.WaitForThread(0), WAIT_FAILED) << "it has been forgotten";
}

TEST(WorkerThread, KestExceptionEndsOnlyTheThread) {
    CCaptureTexts texts;
    std::atomic<bool> bThrow{true};
    CTestWorker worker([&](CTestWorker& self) {
        if (bThrow) throw KestException("broken stream");
        return ObedientBody(self);
    });
    worker.Restart();
    EXPECT_EQ(worker.WaitForThread(kTooLongMs), WAIT_OBJECT_0);
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_EQ(worker.GetExitCode(), -100);
    EXPECT_EQ(texts.DebugTexts(), "\n *** Capture exception!!!\n");
    bThrow = false;
    worker.Restart();
    worker.Resume();
    EXPECT_TRUE(Eventually([&] { return worker.m_nPassedRun > 0; }));
}

/// The text without spaces and dashes, and every number in it as 0.
std::string WithoutNumbers(const std::string& strText) {
    std::string strResult;
    bool bInNumber = false;
    for (const char c : strText) {
        if (c == ' ' || c == '-') continue;
        const bool bDigit = std::isdigit(static_cast<unsigned char>(c)) != 0;
        if (!bDigit || !bInNumber) strResult += bDigit ? '0' : c;
        bInNumber = bDigit;
    }
    return strResult;
}

TEST(WorkerThread, DumpStatusShowsTimesAndEventsWithinItsBuffer) {
    CTestWorker worker(ObedientBody);
    auto ExpectDump = [&](const char* pszExitYear, const std::string& strEvents) {
        char szText[2048];
        worker.DumpStatus(szText);
        EXPECT_EQ(WithoutNumbers(szText),
                  WithoutNumbers("*************** Begin Debug Thread  ************\nThread ID=1 \n Name=\n"
                                 "Time information:\n CreationTime : 0:0:0\n ExitTime     : 0:0:0\n"
                                 " KernelTime   : 0:0:0\n UserTime     : 0:0:0\n"
                                 " The Thread Priority: 0\n\nStatus of Thread:\n    " +
                                 strEvents + "\n ************** End **************\n"));
        EXPECT_THAT(szText, testing::HasSubstr(" CreationTime : 20"));
        EXPECT_THAT(szText, testing::HasSubstr(std::string(" ExitTime     : ") + pszExitYear));
        EXPECT_THAT(szText, testing::HasSubstr(" UserTime     : 1601- 1- 1  0: 0: 0 "));
    };
    worker.Restart();
    EXPECT_TRUE(Eventually([&] { return worker.m_nEntered == 1; }));
    ExpectDump("1601", "Thread Pause\n    Thread not Stop");
    worker.Resume();
    ExpectDump("1601", "Thread may running\n    Thread not Stop");
    worker.Stop();
    EXPECT_EQ(worker.WaitForThread(kTooLongMs), WAIT_OBJECT_0);
    ExpectDump("20", "Thread may running\n    Thread Stop");

    std::string strBuffer(64, '#');
    for (std::size_t nSize : {0u, 1u, 15u, 16u, 50u}) {  // below, at and behind the end of a piece
        worker.DumpStatus(std::span(strBuffer).first(nSize));
        EXPECT_EQ(strBuffer.substr(nSize), std::string(64 - nSize, '#'));
        EXPECT_TRUE(nSize == 0 || strBuffer.find('\0') == nSize - 1);
    }
}

}  // namespace
}  // namespace kest

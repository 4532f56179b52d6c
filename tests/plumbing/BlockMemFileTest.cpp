#include "plumbing/BlockMemFile.h"

#include <gtest/gtest.h>

#include <list>
#include <random>

#include "support/CaptureTexts.h"
#include "support/Records.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

constexpr std::uint32_t kBlockSize = 64;
constexpr std::uint32_t kBlocks = 3;

/// A queue of small blocks whose info record is one number.
class CQueue : public CBlockMemFileEx {
public:
    explicit CQueue(std::uint32_t nBlockSize = kBlockSize)
        : CBlockMemFileEx(nBlockSize, kBlocks, sizeof(std::uint64_t)) {}

    /// Writes a block of n bytes that count from nInfo.
    int Put(std::uint64_t nInfo, std::size_t n = 8, std::uint32_t nTimeoutMs = 0) {
        return WriteEx(Counting(n, static_cast<std::uint8_t>(nInfo)), &nInfo, nTimeoutMs);
    }
    /// Reads a block and checks its bytes. The info of the block, or 0 when none came.
    std::uint64_t Take(int nReader, int nLength = 8, std::uint32_t nTimeoutMs = 0) {
        std::uint64_t nInfo = 0;
        std::vector<std::uint8_t> block(kBlockSize, 0xEE);
        const int nResult = ReadEx(nReader, block, &nInfo, nTimeoutMs);
        auto expected =
            Counting(nInfo ? static_cast<std::size_t>(nLength) : 0, static_cast<std::uint8_t>(nInfo));
        EXPECT_EQ(nResult, static_cast<int>(expected.size()));
        expected.resize(kBlockSize, 0xEE);
        EXPECT_EQ(block, expected);
        return nInfo;
    }
};

TEST(BlockMemFile, SidesOpenAndClose) {
    CQueue queue;
    std::uint64_t nInfo = 0;
    std::uint8_t block[kBlockSize];
    EXPECT_EQ(queue.Put(1), -1);
    EXPECT_EQ(queue.WOpen(), 0);
    EXPECT_EQ(queue.WOpen(), -2);
    EXPECT_EQ(queue.ReadEx(0, block, &nInfo, kInfinite), -2);
    EXPECT_EQ(queue.ReadEx(7, block, &nInfo, kInfinite), -1);
    EXPECT_EQ(queue.ReadEx(-1, block, &nInfo, kInfinite), -1);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(queue.ROpen(), i);
    EXPECT_EQ(queue.ROpen(), -1);
    queue.RClose(5);
    queue.RClose(-1);
    EXPECT_EQ(queue.ROpen(), -1);
    queue.RClose(3);
    queue.RClose(1);
    queue.RClose(1);
    EXPECT_EQ(queue.ROpen(), 1);
    EXPECT_EQ(queue.ROpen(), 3);
    EXPECT_EQ(queue.ROpen(), -1);
    queue.WClose();
    EXPECT_EQ(queue.Put(1), -1);
    EXPECT_EQ(queue.WOpen(), 0);
}

TEST(BlockMemFile, AcceptsExactlyItsBlocksAndKeepsTheOrder) {
    CQueue queue;
    queue.WOpen();
    const int nReader = queue.ROpen();
    std::uint64_t nWritten = 0, nRead = 0;
    for (int nRound = 0; nRound < 4; ++nRound) {  // fills and empties across the end of the ring
        while (queue.Put(nWritten + 1) > 0) ++nWritten;
        EXPECT_EQ(nWritten - nRead, kBlocks);
        EXPECT_EQ(queue.GetFreeBlocks(), 0u);
        EXPECT_EQ(queue.GetPending(nReader), kBlocks);
        for (int i = 0; i < 2; ++i) EXPECT_EQ(queue.Take(nReader), ++nRead);
        EXPECT_EQ(queue.GetFreeBlocks(), 2u);
    }
    while (nRead < nWritten) EXPECT_EQ(queue.Take(nReader), ++nRead);
    EXPECT_EQ(queue.Take(nReader, 0, 5), 0u);
}

TEST(BlockMemFile, EveryReaderSeesWhatIsWrittenWhileItIsOpen) {
    CQueue queue;
    queue.WOpen();
    for (std::uint64_t i = 1; i <= 2 * kBlocks; ++i) EXPECT_EQ(queue.Put(i), 8) << "nobody holds the writer";
    const int nSlow = queue.ROpen();
    queue.Put(10);
    const int nFast = queue.ROpen();
    EXPECT_EQ(queue.GetPending(nFast), 0u);
    queue.Put(11);
    EXPECT_EQ(queue.Take(nFast), 11u);
    EXPECT_EQ(queue.Put(12), 8);
    EXPECT_EQ(queue.Take(nFast), 12u);
    EXPECT_EQ(queue.Put(13), 0) << "the slow reader holds the writer";
    EXPECT_EQ(queue.Take(nSlow), 10u);
    EXPECT_EQ(queue.Put(13), 8);
    for (std::uint64_t nInfo : {11u, 12u, 13u}) EXPECT_EQ(queue.Take(nSlow), nInfo);
    EXPECT_EQ(queue.Take(nFast), 13u);
}

TEST(BlockMemFile, LengthsFromZeroToBeyondTheBlock) {
    CCaptureTexts texts;
    CQueue queue;
    queue.WOpen();
    const int nReader = queue.ROpen();
    EXPECT_EQ(queue.Put(7, 0), 0);
    EXPECT_EQ(queue.GetPending(nReader), 1u);
    EXPECT_EQ(queue.Take(nReader, 0), 7u) << "the info record comes with an empty block too";
    EXPECT_EQ(queue.GetPending(nReader), 0u);
    EXPECT_EQ(queue.Put(8, kBlockSize), static_cast<int>(kBlockSize));
    EXPECT_EQ(texts.TraceTexts(), "");
    EXPECT_EQ(queue.Put(9, kBlockSize + 1), static_cast<int>(kBlockSize));
    EXPECT_EQ(texts.TraceTexts(), "Frame of 65 bytes is cut to its block of 64 bytes\n");
    EXPECT_EQ(queue.Put(10), 8) << "the block behind a cut one";
    EXPECT_EQ(queue.Take(nReader, kBlockSize), 8u);
    EXPECT_EQ(queue.Take(nReader, kBlockSize), 9u);
    EXPECT_EQ(queue.Take(nReader), 10u);

    // A destination that is too small is not overrun.
    queue.Put(11, 20);
    std::uint64_t nInfo = 0;
    std::vector<std::uint8_t> small(12, 0xEE);
    EXPECT_EQ(queue.ReadEx(nReader, std::span(small).first(8), &nInfo, 0), 8);
    EXPECT_EQ(nInfo, 11u);
    auto expected = Counting(8, 11);
    expected.resize(12, 0xEE);
    EXPECT_EQ(small, expected);
    queue.Put(12, 0);
    EXPECT_EQ(queue.ReadEx(nReader, {}, &nInfo, 0), 0) << "an empty block needs no destination";
    EXPECT_EQ(nInfo, 12u);
}

TEST(BlockMemFile, ResetEmptiesAndStartsAgain) {
    CQueue queue;
    queue.WOpen();
    const int nFirst = queue.ROpen(), nSecond = queue.ROpen();
    queue.Put(1);
    queue.Put(2);
    EXPECT_EQ(queue.Take(nFirst), 1u);
    queue.Reset();
    for (int nReader : {nFirst, nSecond}) EXPECT_EQ(queue.Take(nReader), 0u);
    EXPECT_EQ(queue.GetFreeBlocks(), kBlocks);
    queue.Put(3);
    for (int nReader : {nFirst, nSecond}) EXPECT_EQ(queue.Take(nReader), 3u);
}

TEST(BlockMemFile, ReaderWaitIsEndedByWhatHelpsAndByWhatCloses) {
    const struct {
        const char* pszWhat;
        std::function<void(CQueue&)> wake;
        std::uint64_t nInfo;
    } aCases[] = {
        {"write", [](CQueue& queue) { queue.Put(5); }, 5},
        {"reset", [](CQueue& queue) { queue.Reset(); }, 0},
        {"close", [](CQueue& queue) { queue.RClose(0); }, 0},
    };
    for (const auto& c : aCases) {
        SCOPED_TRACE(c.pszWhat);
        CQueue queue;
        queue.WOpen();
        const int nReader = queue.ROpen();
        CTestThread reader([&] { EXPECT_EQ(queue.Take(nReader, 8, kInfinite), c.nInfo); });
        SleepMs(kSettleMs);
        EXPECT_FALSE(reader.HasEnded());
        reader.WakeBy([&] { c.wake(queue); });
    }
}

TEST(BlockMemFile, WriterWaitIsEndedByWhatHelpsAndByWhatCloses) {
    const struct {
        const char* pszWhat;
        std::function<void(CQueue&)> wake;
        int nResult;
    } aCases[] = {
        {"read", [](CQueue& queue) { queue.Take(0); }, 8},
        {"reset", [](CQueue& queue) { queue.Reset(); }, 8},
        {"close of the reader", [](CQueue& queue) { queue.RClose(0); }, 8},
        {"close", [](CQueue& queue) { queue.WClose(); }, 0},
    };
    for (const auto& c : aCases) {
        SCOPED_TRACE(c.pszWhat);
        CQueue queue;
        queue.WOpen();
        queue.ROpen();
        while (queue.Put(1) > 0) {
        }
        EXPECT_EQ(queue.Put(2, 8, 5), 0);
        CTestThread writer([&] { EXPECT_EQ(queue.Put(2, 8, kInfinite), c.nResult); });
        SleepMs(kSettleMs);
        EXPECT_FALSE(writer.HasEnded());
        writer.WakeBy([&] { c.wake(queue); });
    }
}

TEST(BlockMemFile, ForceEndsItsWaits) {
    CQueue queue;
    queue.WOpen();
    const int nReader = queue.ROpen();
    ExpectEndsByForce([&] { queue.Take(nReader, 0, kInfinite); });
    ExpectEndsByForce([&] {  // a reader that never runs dry
        for (;;) {
            queue.Put(1);
            queue.Take(nReader, 8, kInfinite);
        }
    });
    queue.Reset();
    while (queue.Put(1) > 0) {
    }
    ExpectEndsByForce([&] { queue.Put(2, 8, kInfinite); });
    EXPECT_EQ(queue.Take(nReader), 1u) << "the queue is as usable as before";
}

TEST(BlockMemFile, CloseIsSeenByAWaitThatJustBegins) {
    CQueue queue;
    queue.WOpen();
    std::uint64_t nInfo = 0;
    std::uint8_t block[kBlockSize];
    ExpectCloseIsSeen([&] { queue.ROpen(); }, [&] { queue.ReadEx(0, block, &nInfo, kInfinite); },
                      [&] { queue.RClose(0); });
    queue.ROpen();
    while (queue.Put(1) > 0) {
    }
    queue.WClose();
    ExpectCloseIsSeen([&] { queue.WOpen(); }, [&] { queue.Put(2, 8, kInfinite); }, [&] { queue.WClose(); });
}

// One writer and five readers of different speed, with and without somebody who empties, closes and reopens.
class BlockMemFileStress : public testing::Test {
protected:
    /// Runs all threads, the writer from sequence number m_nNext on, until `control` returns and, when
    /// `nBlocks` are asked for, every reader has that many.
    void Run(std::uint64_t nBlocks, const std::function<void()>& control) {
        const bool bUndisturbed = nBlocks > 0;
        const std::uint64_t nFirst = m_nNext;
        OpenAll();
        std::list<CTestThread> readers;
        for (int i = 0; i < CQueue::kMaxReaders; ++i) {
            readers.emplace_back([=, this] { Read(i, nFirst, bUndisturbed ? nBlocks : 0); });
        }
        CTestThread writer([=, this] { Write(bUndisturbed ? nFirst + nBlocks : 0); });
        control();
        if (!bUndisturbed) {
            m_bEnd = true;
            CloseAll();
        }
        writer.Join();
        readers.clear();
        CloseAll();
        m_bEnd = false;
    }

    void OpenAll() {
        for (int i = 0; i < CQueue::kMaxReaders; ++i) ASSERT_EQ(m_queue.ROpen(), i);
        ASSERT_EQ(m_queue.WOpen(), 0);
    }
    void CloseAll() {
        m_queue.WClose();
        for (int i = 0; i < CQueue::kMaxReaders; ++i) m_queue.RClose(i);
    }

    void Write(std::uint64_t nEnd) {
        std::minstd_rand random(1);
        std::vector<std::uint8_t> block(kSize);
        while (!m_bEnd && m_nNext != nEnd) {
            const auto record = std::span(block).first(8 + random() % (kSize - 7));
            FillRecord(record, m_nNext);
            int nResult = 0;
            while (!m_bEnd && (nResult = m_queue.WriteEx(record, &m_nNext, kInfinite)) <= 0) {
                std::this_thread::yield();
            }
            if (nResult > 0) ++m_nNext;
        }
    }

    void Read(int nReader, std::uint64_t nFirst, std::uint64_t nBlocks) {
        std::vector<std::uint8_t> block(kSize);
        std::uint64_t nLast = nFirst - 1, nSeen = 0;
        while (!m_bEnd && (nBlocks == 0 || nSeen < nBlocks)) {
            std::uint64_t nInfo = 0;
            const int nLength = m_queue.ReadEx(nReader, block, &nInfo, kInfinite);
            if (nLength <= 0) {
                std::this_thread::yield();
                continue;
            }
            ASSERT_GE(nLength, 8);
            ASSERT_EQ(CheckRecord(std::span(block).first(static_cast<std::size_t>(nLength))), nInfo)
                << "torn";
            ASSERT_GT(nInfo, nLast) << "delivered twice or out of order";
            ASSERT_TRUE(nBlocks == 0 || nInfo == nLast + 1) << "lost";
            nLast = nInfo;
            ++nSeen;
            for (int i = 0; i < 200 * nReader; ++i) std::atomic_signal_fence(std::memory_order_seq_cst);
        }
        m_nTaken += nSeen;
    }

    static constexpr std::uint32_t kSize = 512;

    CQueue m_queue{kSize};
    std::uint64_t m_nNext = 1;  // sequence number of the writer's next block
    std::atomic<std::uint64_t> m_nTaken{0};
    std::atomic<bool> m_bEnd{false};
};

TEST_F(BlockMemFileStress, NothingIsTornAndNothingIsLost) {
    Run(0, [this] {
        std::minstd_rand random(2);
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
        while (std::chrono::steady_clock::now() < end) {
            switch (const auto n = random() % 10; n) {
                case 0: m_queue.Reset(); break;
                case 1:
                    CloseAll();
                    OpenAll();
                    break;
                case 2:
                    m_queue.WClose();
                    for (int i = CQueue::kMaxReaders; i-- > 0;) m_queue.RClose(i);
                    ASSERT_EQ(m_queue.WOpen(), 0);
                    for (int i = 0; i < CQueue::kMaxReaders; ++i) ASSERT_EQ(m_queue.ROpen(), i);
                    break;
                case 3:
                case 4:
                case 5:
                case 6:
                case 7:
                    m_queue.RClose(static_cast<int>(n) - 3);
                    ASSERT_EQ(m_queue.ROpen(), static_cast<int>(n) - 3);
                    break;
                default: std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
            }
        }
    });
    EXPECT_GT(m_nTaken, 100u) << "the disturbances left no room for the traffic";
    m_nTaken = 0;
    constexpr std::uint64_t kCount = 5000;
    Run(kCount, [] {});
    EXPECT_EQ(m_nTaken, CQueue::kMaxReaders * kCount);
}

}  // namespace
}  // namespace kest

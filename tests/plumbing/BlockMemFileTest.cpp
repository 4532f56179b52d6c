#include "plumbing/BlockMemFile.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/CaptureTexts.h"
#include "support/Stress.h"

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
        const int nResult = static_cast<int>(ReadEx(nReader, block, &nInfo, nTimeoutMs).nLength);
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
    EXPECT_EQ(queue.ReadEx(0, block, &nInfo, kInfinite).status, BlockRead::EStatus::NotOpen);
    EXPECT_EQ(queue.ReadEx(7, block, &nInfo, kInfinite).status, BlockRead::EStatus::BadHandle);
    EXPECT_EQ(queue.ReadEx(-1, block, &nInfo, kInfinite).status, BlockRead::EStatus::BadHandle);
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
    std::vector<std::uint8_t> small(12, 0xEE), expected(12, 0xEE);
    std::ranges::copy(Counting(8, 11), expected.begin());
    EXPECT_EQ(queue.ReadEx(nReader, std::span(small).first(8), &nInfo, 0).nLength, 8u);
    EXPECT_EQ(nInfo, 11u);
    EXPECT_EQ(small, expected);
    queue.Put(12, 0);
    EXPECT_EQ(queue.ReadEx(nReader, {}, &nInfo, 0).nLength, 0u) << "an empty block needs no destination";
    EXPECT_EQ(nInfo, 12u);
}

TEST(BlockMemFile, ResetEmptiesAndStartsAgain) {
    CQueue queue;
    queue.WOpen();
    const int nFirst = queue.ROpen(), nSecond = queue.ROpen();
    queue.Put(1);
    queue.Put(2);
    EXPECT_EQ(queue.Take(nFirst), 1u);
    const std::uint32_t nGeneration = queue.GetWriteGeneration();
    queue.Reset();
    const std::uint64_t nInfo = 2;
    EXPECT_EQ(queue.WriteEx(Counting(8, 2), &nInfo, 0, nGeneration), 0) << "gathered before the reset";
    for (int nReader : {nFirst, nSecond}) EXPECT_EQ(queue.Take(nReader), 0u);
    EXPECT_EQ(queue.GetFreeBlocks(), kBlocks);
    queue.Put(3);
    for (int nReader : {nFirst, nSecond}) EXPECT_EQ(queue.Take(nReader), 3u);
}

TEST(BlockMemFile, WaitsAreEndedByWhatHelpsAndByWhatCloses) {
    const struct {
        const char* pszWhat;
        bool bFull;  // the writer waits, else the reader
        int nResult;
        void (*wake)(CQueue&);
    } aCases[] = {
        {"write", false, 8, [](CQueue& queue) { queue.Put(5); }},
        {"reset", false, 0, [](CQueue& queue) { queue.Reset(); }},
        {"close", false, 0, [](CQueue& queue) { queue.RClose(0); }},
        {"read", true, 8, [](CQueue& queue) { queue.Take(0); }},
        {"reset", true, 0, [](CQueue& queue) { queue.Reset(); }},
        {"close of the reader", true, 8, [](CQueue& queue) { queue.RClose(0); }},
        {"close", true, 0, [](CQueue& queue) { queue.WClose(); }},
    };
    for (const auto& c : aCases) {
        SCOPED_TRACE(testing::Message() << c.pszWhat << (c.bFull ? ", full" : ", empty"));
        CQueue queue;
        queue.WOpen();
        queue.ROpen();
        while (c.bFull && queue.Put(1) > 0) {
        }
        auto Wait = [&](std::uint32_t nTimeoutMs) {
            std::uint8_t block[kBlockSize];
            std::uint64_t nInfo = 0;
            return c.bFull ? queue.Put(2, 8, nTimeoutMs) : static_cast<int>(queue.ReadEx(0, block, &nInfo, nTimeoutMs).nLength);
        };
        EXPECT_EQ(Wait(5), 0);
        ExpectWaitEnds([&] { EXPECT_EQ(Wait(kInfinite), c.nResult); }, [] {}, [&] { c.wake(queue); });
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

class CStressedQueue : public CStressed {
public:
    void OpenAll() override {
        for (int i = 0; i < CQueue::kMaxReaders; ++i) EXPECT_EQ(m_queue.ROpen(), i);
        EXPECT_EQ(m_queue.WOpen(), 0);
    }
    void CloseAll() override {
        m_queue.WClose();
        for (int i = 0; i < CQueue::kMaxReaders; ++i) m_queue.RClose(i);
    }
    void Disturb(std::minstd_rand& random) override {
        const int n = static_cast<int>(random() % 7);
        if (n < CQueue::kMaxReaders) {
            m_queue.RClose(n);
            std::this_thread::yield();  // the writer has the room meanwhile
            EXPECT_EQ(m_queue.ROpen(), n);
        } else if (n == CQueue::kMaxReaders) {
            CloseAll();
            OpenAll();
        } else {
            m_queue.Reset();
        }
    }
    std::uint64_t Write(std::uint64_t nSequence, std::uint64_t, std::minstd_rand& random) override {
        const auto record = std::span(m_record).first(8 + random() % (kStressBlock - 7));
        FillRecord(record, nSequence);
        return m_queue.WriteEx(record, &nSequence, kInfinite) > 0 ? 1 : 0;
    }
    std::vector<std::uint64_t> Read(int nReader) override {
        std::uint8_t block[kStressBlock];
        std::uint64_t nInfo = 0;
        const int nLength = static_cast<int>(m_queue.ReadEx(nReader, block, &nInfo, kInfinite).nLength);
        if (nLength <= 0) return {};
        const auto record = std::span(block).first(static_cast<std::size_t>(nLength));
        return {nLength >= 8 && CheckRecord(record) == nInfo ? nInfo : 0};
    }

private:
    static constexpr std::uint32_t kStressBlock = 512;
    CQueue m_queue{kStressBlock};
    std::uint8_t m_record[kStressBlock];
};

TEST(BlockMemFile, NothingIsTornAndNothingIsLost) {
    CStressedQueue stressed;
    RunStress(stressed, 5000);
}

}  // namespace
}  // namespace kest

// What ring buffer and block queue promise alike: one writer, five readers, and no wait that is not ended.
#include <gtest/gtest.h>

#include <limits>
#include <list>
#include <random>

#include "plumbing/BlockMemFile.h"
#include "plumbing/RingBuffer.h"
#include "support/Records.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kRecord = 40;   // bytes of a record, which is what the tests write and read
constexpr std::uint32_t kRecords = 9;   // records that fill the buffer
constexpr std::uint64_t kTorn = ~0ull;  // the number of a record that is not one
constexpr int kReaders = CBufferSides::kMaxReaders;
constexpr int kLastRound = std::numeric_limits<int>::max();

std::uint64_t Number(std::span<const std::uint8_t> record) {
    const std::uint64_t n = CheckRecord(record);
    return n ? n : kTorn;
}

/// Writing and reading records, numbered from 1 on. `Write` returns how many it wrote, `Read` the record's number, 0
/// when it brought none. Records lie across the end of the storage.
struct CRingSides : CRingBuffer {
    static constexpr bool kEmptyingBringsRoom = true;  // a write that waits is written then

    CRingSides() : CRingBuffer(kRecord * kRecords + 7) {}
    bool OpenWriter() { return CRingBuffer::OpenWriter(3 * kRecord) == 0; }
    int OpenReader() { return CRingBuffer::OpenReader(kRecord + 4); }
    void Empty() { Flush(); }
    int Write(std::uint64_t n, std::uint32_t nTimeoutMs = 0, std::uint32_t nCount = 1) {
        std::uint8_t bytes[3 * kRecord];
        for (std::uint32_t i = 0; i < nCount; ++i)
            FillRecord(std::span(bytes).subspan(i * kRecord, kRecord), n + i);
        const int nWritten = CRingBuffer::Write(std::span(bytes).first(nCount * kRecord), nTimeoutMs);
        return nWritten > 0 ? static_cast<int>(nCount) : 0;
    }
    std::uint64_t Read(int nReader, std::uint32_t nTimeoutMs = 0) {
        std::uint8_t record[kRecord];
        return ReadTimed(nReader, record, nTimeoutMs) > 0 ? Number(record) : 0;
    }
    int WriteForStress(std::uint64_t n) { return Write(n, kInfinite, static_cast<std::uint32_t>(1 + n % 3)); }
    std::uint64_t ReadForStress(int nReader) {  // every reader in its own way
        std::uint8_t record[kRecord];
        int n = 0;
        if (nReader == 0) n = CRingBuffer::Read(nReader, record);
        if (nReader == 1) n = ReadTimed(nReader, record, 5);
        if (nReader == 2) n = ReadAll(nReader, record), WakeWriter();  // which taking everything does not do
        if (nReader == 3) n = Peek(nReader, record) > 0 && Skip(nReader, kRecord) > 0;
        if (nReader == 4) n = ReadToCode(nReader, {}, record, 5);
        return n > 0 ? Number(record) : 0;
    }
};

struct CQueueSides : CBlockMemFileEx {
    static constexpr bool kEmptyingBringsRoom = false;  // what waits is of what was queued before

    CQueueSides() : CBlockMemFileEx(kRecord, kRecords, sizeof(std::uint64_t)) {}
    bool OpenWriter() { return WOpen() == 0; }
    void CloseWriter() { WClose(); }
    int OpenReader() { return ROpen(); }
    void CloseReader(int nReader) { RClose(nReader); }
    void Empty() { Reset(); }
    int Write(std::uint64_t n, std::uint32_t nTimeoutMs = 0) {
        std::uint8_t record[kRecord];
        FillRecord(record, n);
        return WriteEx(record, &n, nTimeoutMs) > 0;
    }
    std::uint64_t Read(int nReader, std::uint32_t nTimeoutMs = 0) {
        std::uint8_t record[kRecord];
        std::uint64_t nInfo = 0;
        const BlockRead read = ReadEx(nReader, record, &nInfo, nTimeoutMs);
        return !read.IsTaken() || Number(std::span(record).first(read.nLength)) == nInfo ? nInfo : kTorn;
    }
    int WriteForStress(std::uint64_t n) {
        if (n % 2) return Write(n, kInfinite);
        const BlockWrite block = BeginBlock(kInfinite);
        if (block.storage.empty()) return 0;
        const auto nLength = static_cast<std::uint32_t>(8 + n % (kRecord - 7));
        FillRecord(block.storage.first(nLength), n);
        return CommitBlock(block, nLength, &n) > 0;
    }
    std::uint64_t ReadForStress(int nReader) { return Read(nReader, nReader == 1 ? 5 : kInfinite); }
};

template <class T>
void CloseReaders(T& sides) {
    for (int i = 0; i < kReaders; ++i) sides.CloseReader(i);
}

template <class T>
void ReopenAll(T& sides) {
    sides.CloseWriter();
    CloseReaders(sides);
    for (int i = 0; i < kReaders; ++i) EXPECT_EQ(sides.OpenReader(), i);
    EXPECT_TRUE(sides.OpenWriter());
}

template <class T>
struct Sides : testing::Test {};
using AllSides = testing::Types<CRingSides, CQueueSides>;
TYPED_TEST_SUITE(Sides, AllSides);

TYPED_TEST(Sides, OpenCloseAndReopen) {
    TypeParam sides;
    EXPECT_FALSE(sides.Write(1, kInfinite) || sides.Read(0, kInfinite)) << "not open";
    for (int i = 0; i < 2; ++i) ReopenAll(sides);
    EXPECT_FALSE(sides.OpenWriter());
    for (int nReader : {3, 1, 1, 7, -1}) sides.CloseReader(nReader);
    for (int nReader : {1, 3}) EXPECT_EQ(sides.OpenReader(), nReader);
    EXPECT_LT(sides.OpenReader(), 0);
    // A reader that stays open goes to the start with the writer: elsewhere it would see what is being written.
    for (std::uint64_t n : {1, 2, 3}) EXPECT_TRUE(sides.Write(n));
    sides.CloseWriter();
    EXPECT_EQ(sides.Read(0), 1u) << "what was written before the closing can be read";
    EXPECT_TRUE(sides.OpenWriter());
    for (std::uint64_t n = 11; n < 11 + kRecords; ++n) EXPECT_TRUE(sides.Write(n));
    for (std::uint64_t n = 11; n < 11 + kRecords; ++n) EXPECT_EQ(sides.Read(0), n);
}

TYPED_TEST(Sides, SlowestReaderHoldsTheWriterAndAllKeepTheOrder) {
    TypeParam sides;
    sides.OpenWriter();
    std::uint64_t nWritten = 0;
    while (nWritten < 2 * kRecords) ASSERT_TRUE(sides.Write(++nWritten)) << "nobody holds it";
    std::uint64_t nSlow = nWritten, nFast = nWritten;  // a reader sees what is written while it is open
    EXPECT_EQ(sides.OpenReader() + sides.OpenReader(), 1);
    for (int nRound = 0; nRound < 5; ++nRound) {  // around the storage
        for (; sides.Write(nWritten + 1); ++nWritten) EXPECT_EQ(sides.Read(1), ++nFast);
        EXPECT_EQ(nWritten - nSlow, kRecords);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(sides.Read(0), ++nSlow);
    }
    sides.CloseReader(0);
    for (std::uint32_t i = 0; i < kRecords; ++i) EXPECT_TRUE(sides.Write(++nWritten));
    sides.Empty();
    EXPECT_EQ(sides.Read(1), 0u);
    EXPECT_TRUE(sides.Write(++nWritten));
    EXPECT_EQ(sides.Read(1), nWritten);
}

TYPED_TEST(Sides, ForceEndsWaitsAndEndlessTransfers) {
    TypeParam sides;
    ReopenAll(sides);
    ExpectEndsByForce([&] { sides.Read(0, kInfinite); });
    ExpectEndsByForce([&] {
        for (;;)
            sides.Empty(), sides.Write(1), sides.Read(0, kInfinite);  // always finds what it would wait for
    });
    while (sides.Write(1)) continue;
    ExpectEndsByForce([&] { sides.Write(2, kInfinite); });
    EXPECT_EQ(sides.Read(0), 1u) << "it is as usable as before";
}

// A thread begins an endless wait, another wakes it. First when it waits for certain: what comes of the wait. Then once
// a round, be it before, between or after the tests that the wait takes: a wake-up that comes before what it announces
// is lost there.
TYPED_TEST(Sides, EveryWaitIsEndedStress) {
    const struct {
        const char* pszWhat;
        bool bFull;             // the writer waits, else the reader
        bool bLasts;            // a wait that begins only then ends too
        std::uint64_t nResult;  // of the wait
        void (*wake)(TypeParam&);
    } aCases[] = {
        {"write", false, true, 5, [](auto& sides) { sides.Write(5); }},
        {"emptying", false, false, 0, [](auto& sides) { sides.Empty(); }},
        {"close", false, true, 0, [](auto& sides) { sides.CloseReader(0); }},
        {"reopen", false, false, 0, [](auto& sides) { sides.CloseReader(0), sides.OpenReader(); }},
        {"read", true, true, 1,
         [](auto& sides) {
             for (int i : {0, 1, 2, 3, 4}) sides.Read(i);
         }},
        {"emptying", true, true, TypeParam::kEmptyingBringsRoom, [](auto& sides) { sides.Empty(); }},
        {"close of the readers", true, true, 1, [](auto& sides) { CloseReaders(sides); }},
        {"close", true, true, 0, [](auto& sides) { sides.CloseWriter(); }},
        {"reopen", true, true, 0, [](auto& sides) { sides.CloseWriter(), sides.OpenWriter(); }},
    };
    for (const auto& c : aCases) {
        SCOPED_TRACE(testing::Message() << c.pszWhat << (c.bFull ? ", full" : ", empty"));
        TypeParam sides;
        auto Wait = [&](std::uint32_t nTimeoutMs) {
            return c.bFull ? static_cast<std::uint64_t>(sides.Write(2, nTimeoutMs))
                           : sides.Read(0, nTimeoutMs);
        };
        auto Prepare = [&] {
            ReopenAll(sides);
            while (c.bFull && sides.Write(1)) continue;
        };
        Prepare();
        EXPECT_EQ(Wait(5), 0u);
        ExpectWaitEnds([&] { EXPECT_EQ(Wait(kInfinite), c.nResult); }, [&] { c.wake(sides); });

        std::atomic<int> nRound{0}, nEnded{0};
        CTestThread waiter([&] {
            for (int i = 1;; nEnded = i++) {
                while (nRound < i) std::this_thread::yield();
                if (nRound == kLastRound) return;
                Wait(kInfinite);
            }
        });
        const auto end = Clock::now() + std::chrono::milliseconds(c.bLasts ? 150 : 0);
        for (int i = 1; Clock::now() < end; ++i) {
            Prepare();
            nRound = i;
            Spin(i % 500);
            c.wake(sides);
            ASSERT_TRUE(Eventually([&] { return nEnded == i; })) << "the wait sleeps on, in round " << i;
        }
        nRound = kLastRound;
    }
}

// An endless writer and five endless readers. Once a round something is emptied, or closed and opened again; then every
// reader must go on. Nothing may be torn, twice, out of order, or lost without such a cause.
TYPED_TEST(Sides, NothingIsTornOrLostStress) {
    TypeParam sides;
    std::atomic<bool> bEnd{false};
    std::atomic<std::uint32_t> nEpoch{0};  // odd while something is emptied or closed
    std::array<std::atomic<std::uint64_t>, kReaders> anTaken{};
    ReopenAll(sides);
    std::list<CTestThread> threads;
    threads.emplace_back([&] {
        for (std::uint64_t nNext = 1; !bEnd;)
            nNext += static_cast<std::uint64_t>(sides.WriteForStress(nNext));
    });
    for (std::size_t nReader = 0; nReader < kReaders; ++nReader) {
        threads.emplace_back([&, nReader] {
            std::uint64_t nLast = 0;
            for (std::uint32_t nLastEpoch = 1, nBefore = 0; !bEnd; Spin(static_cast<int>(50 * nReader))) {
                nBefore = nEpoch;
                const std::uint64_t n = sides.ReadForStress(static_cast<int>(nReader));
                if (n == 0) continue;
                ASSERT_NE(n, kTorn);
                ASSERT_GT(n, nLast) << "twice or out of order";
                ASSERT_TRUE(nLastEpoch % 2 == 1 || nEpoch != nLastEpoch || n == nLast + 1) << "lost";
                nLast = n;
                nLastEpoch = nBefore;
                ++anTaken[nReader];
            }
        });
    }
    std::minstd_rand random(2);
    const auto end = Clock::now() + std::chrono::seconds(1);
    while (Clock::now() < end && !testing::Test::HasFailure()) {
        ++nEpoch;
        switch (const int n = static_cast<int>(random() % 8)) {
            case 5: sides.Empty(); break;
            case 6: sides.CloseWriter(), sides.OpenWriter(); break;
            case 7: ReopenAll(sides); break;
            default: sides.CloseReader(n), sides.OpenReader();
        }
        ++nEpoch;
        for (auto& nTaken : anTaken) {
            const std::uint64_t nBefore = nTaken;
            EXPECT_TRUE(Eventually([&] {
                return nTaken > nBefore + 2 * kRecords || testing::Test::HasFailure();
            })) << "it hangs";
        }
    }
    bEnd = true;
    sides.CloseWriter();
    CloseReaders(sides);
}

}  // namespace
}  // namespace kest

// What ring buffer and block queue promise alike: one writer, five readers, and no wait that is not ended.
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <tuple>

#include "plumbing/BlockMemFile.h"
#include "plumbing/RingBuffer.h"
#include "support/Records.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kRecord = 40;   // bytes of a record, which is what the tests write and read
constexpr std::uint32_t kRecords = 15;  // records that fill the buffer
constexpr std::uint64_t kTorn = ~0ull;  // the number of a record that is not one
constexpr int kReaders = CBufferSides::kMaxReaders;
constexpr int kLastRound = 1 << 30;

std::uint64_t Number(std::span<const std::uint8_t> record) {
    const std::uint64_t n = CheckRecord(record);
    return n ? n : kTorn;
}

/// Writing and reading records, numbered from 1 on. `Write` returns 1 when it wrote, `Read` the record's number, or 0.
/// Records lie across the end of the storage.
struct CRingSides : CRingBuffer {
    static constexpr bool kEmptyingBringsRoom = true;  // a write that waits is written then

    CRingSides() : CRingBuffer(kRecord * kRecords + 7) {}
    bool OpenWriter() { return CRingBuffer::OpenWriter(kRecord) == 0; }
    int OpenReader() { return CRingBuffer::OpenReader(kRecord + 4); }
    void Empty() { Flush(); }
    int Write(std::uint64_t n, std::uint32_t nTimeoutMs = 0) {
        std::uint8_t record[kRecord];
        FillRecord(record, n);
        return CRingBuffer::Write(record, nTimeoutMs) > 0;
    }
    std::uint64_t Read(int nReader, std::uint32_t nTimeoutMs = 0) {
        std::uint8_t record[kRecord];
        return ReadTimed(nReader, record, nTimeoutMs) > 0 ? Number(record) : 0;
    }
    std::uint64_t ReadForStress(int nReader) {  // every reader in its own way
        std::uint8_t record[kRecord];
        int n = nReader == 0 ? CRingBuffer::Read(0, record) : nReader == 1 ? ReadTimed(1, record, 5) : 0;
        if (nReader == 2) n = ReadAll(2, record), WakeWriter();  // which taking everything does not do
        if (nReader == 3) n = Peek(3, record) > 0 && Skip(3, kRecord) > 0;
        if (nReader == 4) n = ReadToCode(4, {}, record, 5);
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
        if (n % 2 == 0) return WriteEx(record, &n, nTimeoutMs) > 0;
        const BlockWrite block = BeginBlock(nTimeoutMs);  // the other half in place
        FillRecord(block.storage, n);
        return !block.storage.empty() && CommitBlock(block, kRecord, &n) > 0;
    }
    std::uint64_t Read(int nReader, std::uint32_t nTimeoutMs = 0) {
        std::uint8_t record[kRecord];
        std::uint64_t nInfo = 0;
        const BlockRead read = ReadEx(nReader, record, &nInfo, nTimeoutMs);
        return !read.IsTaken() || Number(std::span(record).first(read.nLength)) == nInfo ? nInfo : kTorn;
    }
    std::uint64_t ReadForStress(int nReader) { return Read(nReader, nReader == 1 ? 5 : kInfinite); }
};

void CloseReaders(auto& sides) {
    for (int i = 0; i < kReaders; ++i) sides.CloseReader(i);
}

void ReadByAll(auto& sides) {
    for (int i = 0; i < kReaders; ++i) sides.Read(i);
}

void ReopenAll(auto& sides) {
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
    // Always finds what it would wait for, and ends by force all the same.
    ExpectEndsByForce([&] {
        for (;;) sides.Empty(), sides.Write(1), sides.Read(0, kInfinite);
    });
}

// A thread begins an endless wait, another wakes it. First when it waits for certain: what comes of the wait. Then once
// a round, be it before, between or after the tests that the wait takes: a wake-up that comes before what it announces
// is lost there.
TYPED_TEST(Sides, EveryWaitIsEndedStress) {
    // What wakes; whether the writer waits on a full buffer, else the reader on an empty one; for how many milliseconds to
    // stress it (0: a wait that begins only then goes on); the result of the wait.
    const std::tuple<std::string, bool, int, std::uint64_t, void (*)(TypeParam&)> aCases[] = {
        {"write, empty", false, 60, 5, [](auto& sides) { sides.Write(5); }},
        {"emptying, empty", false, 0, 0, [](auto& sides) { sides.Empty(); }},
        {"close, empty", false, 60, 0, [](auto& sides) { sides.CloseReader(0); }},
        {"reopen, empty", false, 0, 0, [](auto& sides) { sides.CloseReader(0), sides.OpenReader(); }},
        {"read, full", true, 60, 1, [](auto& sides) { ReadByAll(sides); }},
        {"emptying, full", true, 600, TypeParam::kEmptyingBringsRoom, [](auto& sides) { sides.Empty(); }},
        {"close of the readers, full", true, 60, 1, [](auto& sides) { CloseReaders(sides); }},
        {"close, full", true, 60, 0, [](auto& sides) { sides.CloseWriter(); }},
        {"reopen, full", true, 60, 0, [](auto& sides) { sides.CloseWriter(), sides.OpenWriter(); }},
    };
    for (const auto& [strWhat, bFullNow, nStressMs, nResultNow, wake] : aCases) {
        SCOPED_TRACE(strWhat);
        const bool bFull = bFullNow;
        const std::uint64_t nResult = nResultNow;
        TypeParam sides;
        auto Wait = [&](std::uint32_t nMs) {
            return bFull ? std::uint64_t(sides.Write(2, nMs)) : sides.Read(0, nMs);
        };
        auto Prepare = [&] {
            ReopenAll(sides);
            while (bFull && sides.Write(1)) continue;
        };
        Prepare();
        EXPECT_EQ(Wait(5), 0u);
        ExpectEndsByForce([&] { Wait(kInfinite); });
        ExpectWaitEnds([&] { EXPECT_EQ(Wait(kInfinite), nResult); }, [&, pfnWake = wake] { pfnWake(sides); });

        std::atomic<int> nRound{0}, nEnded{0};
        CTestThread waiter([&] {
            for (int i = 1;; nEnded = i++) {
                while (nRound < i) std::this_thread::yield();
                if (nRound == kLastRound) return;
                Wait(kInfinite);
            }
        });
        const auto end = Clock::now() + std::chrono::milliseconds(nStressMs);
        for (int i = 1; Clock::now() < end; ++i) {
            Prepare();
            nRound = i;
            Spin(i % 150);
            wake(sides);
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
        for (std::uint64_t nNext = 1; !bEnd;) nNext += sides.Write(nNext, kInfinite) ? 1 : 0;
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
    const auto end = Clock::now() + std::chrono::seconds(1);
    for (int n = 0; Clock::now() < end && !testing::Test::HasFailure(); n = (n + 1) % 8) {
        ++nEpoch;
        if (n < kReaders) sides.CloseReader(n), sides.OpenReader();
        if (n == 5) sides.Empty();
        if (n == 6) sides.CloseWriter(), sides.OpenWriter();
        if (n == 7) ReopenAll(sides);
        ++nEpoch;
        for (auto& nTaken : anTaken) {
            const std::uint64_t nBefore = nTaken;
            auto GoesOn = [&] { return nTaken > nBefore + 2 * kRecords || testing::Test::HasFailure(); };
            EXPECT_TRUE(Eventually(GoesOn)) << "a reader hangs";
        }
    }
    bEnd = true;
    sides.CloseWriter();
    CloseReaders(sides);
}

}  // namespace
}  // namespace kest

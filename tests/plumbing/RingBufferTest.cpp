#include "plumbing/RingBuffer.h"

#include <gtest/gtest.h>

#include <list>
#include <random>
#include <string>

#include "support/Records.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kCapacity = 60;

/// A small buffer with an open write side, and operations that check the bytes they move: those written count
/// 0, 1, 2, ... without end, whatever the pieces.
class CRing : public CRingBuffer {
public:
    explicit CRing(bool bReader = true) : CRingBuffer(kCapacity) {
        EXPECT_EQ(OpenWriter(15), 0);
        if (bReader) OpenReader(15);
    }
    int Put(std::size_t n, std::uint32_t nTimeoutMs = 0) {
        const int nResult = Write(Counting(n, m_nWritten), nTimeoutMs);
        m_nWritten = static_cast<std::uint8_t>(m_nWritten + std::max(0, nResult));
        return nResult;
    }
    /// Fills the room.
    void Fill() { Put(GetFreeSize()); }

    std::uint8_t m_nWritten = 0;
};

TEST(RingBuffer, OpenReaderSizeRules) {
    constexpr std::uint32_t kNone = 0;
    const struct {
        std::uint32_t nCapacity, nEarlierReader, nWriter, nChunk;
        int nExpected;
    } aCases[] = {
        // Without a writer: a third of the capacity.
        {1200, kNone, kNone, 400, 0},
        {1200, kNone, kNone, 401, RB_E_TOO_BIG},
        {1201, kNone, kNone, 401, RB_E_TOO_BIG},
        {1200, 400, kNone, 1, 1},
        // With one: half of it for the writer and the largest reader.
        {1200, kNone, 300, 300, 0},
        {1200, kNone, 300, 301, RB_E_TOO_BIG},
        {1201, kNone, 300, 301, RB_E_TOO_BIG},
        {1200, 200, 400, 200, 1},
        {1200, 400, 400, 1, RB_E_TOO_BIG},
        {1200, kNone, 400, 0xFFFFFFFF, RB_E_TOO_BIG},  // the sum wraps around 32 bits
        {1200, kNone, kNone, 0xFFFFFFFF, RB_E_TOO_BIG},
        // The sizes of the system.
        {2097152, kNone, 32768, 4096, 0},
        {2097152, kNone, 65536, 65536, 0},
        {131072, kNone, 32768, 32768, 0},
    };
    for (const auto& c : aCases) {
        SCOPED_TRACE(testing::Message()
                     << c.nCapacity << ' ' << c.nEarlierReader << ' ' << c.nWriter << ' ' << c.nChunk);
        CRingBuffer ring(c.nCapacity);
        if (c.nEarlierReader) ring.OpenReader(c.nEarlierReader);
        if (c.nWriter) ring.OpenWriter(c.nWriter);
        EXPECT_EQ(ring.OpenReader(c.nChunk), c.nExpected);
    }
}

TEST(RingBuffer, SidesOpenAndClose) {
    CRingBuffer ring(kCapacity);
    EXPECT_EQ(ring.GetWriterMaxChunk(), 0u);
    EXPECT_EQ(ring.OpenWriter(21), RB_E_TOO_BIG);
    EXPECT_EQ(ring.OpenWriter(20), 0);
    EXPECT_EQ(ring.OpenWriter(20), RB_E_WRITER_OPEN);
    EXPECT_EQ(ring.GetWriterMaxChunk(), 20u);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(ring.OpenReader(10), i);
    EXPECT_EQ(ring.OpenReader(10), RB_E_TOO_MANY_READERS);
    for (int nReader : {3, 1, 1, 7, -1}) ring.CloseReader(nReader);
    EXPECT_EQ(ring.OpenReader(10), 1);
    EXPECT_EQ(ring.OpenReader(10), 3);
    ring.CloseAll();
    EXPECT_EQ(ring.GetWriterMaxChunk(), 0u);
    EXPECT_EQ(ring.GetAvailable(0), 0u);
    EXPECT_EQ(ring.OpenReader(10), 0);
    EXPECT_EQ(ring.OpenWriter(20), 0);
    ring.CloseWriter();
    EXPECT_EQ(ring.OpenWriter(20), 0);

    CRingBuffer none;
    EXPECT_EQ(none.OpenWriter(0), RB_E_TOO_BIG);
    EXPECT_EQ(none.OpenReader(0), RB_E_TOO_BIG);
    none.Flush();
    EXPECT_EQ(none.Write(Counting(1), 0), RB_E_NOT_OPEN);
}

TEST(RingBuffer, ResultCodes) {
    Bytes bytes(16);
    const std::span<std::uint8_t> none, whole(bytes), one(bytes.data(), 1);
    std::span<const std::uint8_t> storage;
    std::uint32_t nPos = 0;
    const std::uint32_t aCodes[] = {0x1B3};
    for (int nReader : {-1, 1, 5, 7}) {
        SCOPED_TRACE(nReader);
        CRing ring;
        ring.Put(15);
        EXPECT_EQ(ring.Read(nReader, one), RB_E_NOT_OPEN);
        EXPECT_EQ(ring.ReadTimed(nReader, one, kInfinite), RB_E_NOT_OPEN);
        EXPECT_EQ(ring.ReadAll(nReader, one), RB_E_NOT_OPEN);
        EXPECT_EQ(ring.Peek(nReader, one), RB_E_NOT_OPEN);
        EXPECT_EQ(ring.PeekTimed(nReader, one, kInfinite), RB_E_NOT_OPEN);
        EXPECT_EQ(ring.PeekNow(nReader, one), RB_E_NOT_OPEN);
        EXPECT_EQ(ring.Skip(nReader, 1), RB_E_NOT_OPEN);
        EXPECT_EQ(ring.ReadToCode(nReader, aCodes, one, kInfinite), RB_E_NOT_OPEN);
        EXPECT_EQ(ring.WaitForData(nReader, 1, kInfinite), RB_E_NOT_OPEN);
        EXPECT_EQ(ring.GetReadPointer(nReader, storage, nPos), RB_E_NOT_OPEN);
        EXPECT_EQ(ring.GetAvailable(nReader), 0u);
    }
    CRing ring;
    EXPECT_EQ(ring.ReadAll(0, whole), RB_E_BAD_SIZE);
    ring.Put(15);
    ring.Put(15);
    for (const auto& dest : {none, whole}) {
        EXPECT_EQ(ring.ReadTimed(0, dest, 0), RB_E_BAD_SIZE);
        EXPECT_EQ(ring.Peek(0, dest), RB_E_BAD_SIZE);
        EXPECT_EQ(ring.PeekTimed(0, dest, 0), RB_E_BAD_SIZE);
    }
    EXPECT_EQ(ring.ReadToCode(0, aCodes, std::span(bytes).first(12), 0), RB_E_BAD_SIZE);
    EXPECT_EQ(ring.ReadToCode(0, aCodes, std::span(bytes).first(11), 0), 11);
    EXPECT_EQ(ring.Read(0, whole), 16) << "more than declared, which this form does not look at";
    ring.CloseWriter();
    EXPECT_EQ(ring.Put(1, kInfinite), RB_E_NOT_OPEN);
    EXPECT_EQ(ring.Commit(1), RB_E_NOT_OPEN);
    EXPECT_EQ(ring.WriteWait(whole), 0);
}

// Every way to read, with the storage's end at every place within and around the piece.
TEST(RingBuffer, EveryTransferIsWholeAcrossTheEndOfTheStorage) {
    for (std::uint32_t nOffset = 0; nOffset < kCapacity; ++nOffset) {
        SCOPED_TRACE(nOffset);
        CRing ring;
        ring.Put(nOffset);
        EXPECT_EQ(ring.Skip(0, nOffset), static_cast<int>(nOffset));
        auto nNext = static_cast<std::uint8_t>(nOffset);
        auto ExpectPiece = [&](const std::function<int(std::span<std::uint8_t>)>& read, bool bTakes) {
            Bytes piece(7);
            EXPECT_EQ(read(piece), 7);
            EXPECT_EQ(piece, Counting(7, nNext));
            if (bTakes) nNext = static_cast<std::uint8_t>(nNext + 7);
        };
        EXPECT_EQ(ring.Put(15), 15);
        EXPECT_EQ(ring.WriteWait(Counting(15, ring.m_nWritten)), 15);
        ExpectPiece([&](auto dest) { return ring.Peek(0, dest); }, false);
        ExpectPiece([&](auto dest) { return ring.Read(0, dest); }, true);
        ExpectPiece([&](auto dest) { return ring.PeekTimed(0, dest, 0); }, false);
        ExpectPiece([&](auto dest) { return ring.ReadTimed(0, dest, 0); }, true);
        ExpectPiece([&](auto dest) { return ring.PeekNow(0, dest); }, false);
        ExpectPiece([&](auto dest) { return ring.ReadAll(0, dest); }, true);
        Bytes rest(60, 0xEE);
        EXPECT_EQ(ring.PeekNow(0, rest), 0);
        EXPECT_EQ(ring.Skip(0, 10), 0);
        EXPECT_EQ(ring.ReadAll(0, rest), 9);
        rest.resize(9);
        EXPECT_EQ(rest, Counting(9, nNext));
    }
}

TEST(RingBuffer, InPlaceWritingAndReading) {
    CRing ring;
    std::uint32_t nFree = 0, nReadPos = 0;
    std::span<const std::uint8_t> storage;
    ring.Put(50);
    ring.Skip(0, 40);
    auto room = ring.GetWritePointer(nFree);
    EXPECT_EQ(nFree, 50u);
    ASSERT_EQ(room.size(), 10u) << "up to the end of the storage";
    EXPECT_EQ(ring.Commit(51), RB_E_BAD_SIZE);
    std::ranges::copy(Counting(10, 50), room.begin());
    EXPECT_EQ(ring.Commit(10), 10);
    room = ring.GetWritePointer(nFree);
    EXPECT_EQ(nFree, 40u);
    EXPECT_EQ(room.size(), 40u) << "up to the reader";
    std::ranges::copy(Counting(5, 60), room.begin());
    EXPECT_EQ(ring.Commit(5), 5);
    EXPECT_EQ(ring.GetReadPointer(0, storage, nReadPos), 25);
    EXPECT_EQ(nReadPos, 40u);
    ASSERT_EQ(storage.size(), kCapacity);
    for (std::uint32_t i = 0; i < 25; ++i) EXPECT_EQ(storage[(nReadPos + i) % kCapacity], 40 + i);
}

TEST(RingBuffer, SlowestReaderHoldsTheWriter) {
    CRing ring(/*bReader=*/false);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(ring.Put(15), 15) << "nobody holds it";
    EXPECT_EQ(ring.GetFreeSize(), kCapacity);
    const int nSlow = ring.OpenReader(15);
    EXPECT_EQ(ring.GetAvailable(nSlow), 0u);
    ring.Put(15);
    const int nFast = ring.OpenReader(15);
    EXPECT_EQ(ring.GetAvailable(nFast), 0u);
    while (ring.Put(15) > 0) ring.Skip(nFast, 15);
    EXPECT_EQ(ring.GetAvailable(nSlow), kCapacity);
    EXPECT_EQ(ring.GetFreeSize(), 0u);
    ring.Skip(nSlow, 14);
    EXPECT_EQ(ring.Put(15, 5), 0);
    EXPECT_EQ(ring.GetAvailable(nFast), 0u) << "a write that gave up wrote something";
    EXPECT_EQ(ring.Put(14), 14);
    ring.CloseReader(nSlow);
    EXPECT_EQ(ring.GetFreeSize(), kCapacity - 14);
}

TEST(RingBuffer, ReadToCode) {
    const std::vector<std::uint32_t> aOne{0x1B3}, aTwo{0x1B8, 0x1B3}, aThree{0x1BA, 0x1B8, 0x1B3};
    constexpr int kMaxLength = 8;
    const struct {
        const char* pszWhat;
        Bytes bytes;
        const std::vector<std::uint32_t>& codes;
        int nExpected;
    } aCases[] = {
        {"at the position", {0, 0, 1, 0xB3, 5, 6, 7, 8, 9, 10, 11, 12}, aOne, RB_E_AT_CODE},
        {"one byte on", {9, 0, 0, 1, 0xB3, 6, 7, 8, 9, 10, 11, 12}, aOne, 1},
        {"after more zeros", {0, 0, 0, 0, 1, 0xB3, 7, 8, 9, 10, 11, 12}, aOne, 2},
        {"the first of two", {7, 7, 0, 0, 1, 0xB3, 0, 0, 1, 0xB8, 0, 0}, aTwo, 2},
        {"not among the codes", {0, 0, 1, 0xB8, 0, 0, 1, 0xB3, 9, 9, 9, 9}, aOne, 4},
        {"third code", {1, 2, 3, 4, 5, 0, 0, 1, 0xB3, 9, 9, 9}, aThree, 5},
        {"begins with the last byte of the piece", {1, 2, 3, 4, 5, 6, 7, 0, 0, 1, 0xB3, 9}, aOne, 7},
        {"right behind the piece", {1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 1, 0xB3}, aOne, kMaxLength},
        {"beyond", {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 1}, aOne, kMaxLength},
        {"none", {1, 0, 0, 1, 0xB4, 0, 0, 2, 0xB3, 0, 1, 0xB3}, aThree, kMaxLength},
        {"no codes", {0, 0, 1, 0xB3, 5, 6, 7, 8, 9, 10, 11, 12}, {}, kMaxLength},
    };
    for (const auto& c : aCases) {
        for (std::uint32_t nOffset = 0; nOffset < kCapacity; ++nOffset) {
            SCOPED_TRACE(testing::Message() << c.pszWhat << " at " << nOffset);
            CRing ring;
            ring.Put(nOffset);
            ring.Skip(0, nOffset);
            ASSERT_EQ(ring.Write(std::span(c.bytes).first(11), 0), 11);
            Bytes dest(kMaxLength);
            EXPECT_EQ(ring.ReadToCode(0, c.codes, dest, 0), 0) << "one byte short";
            ASSERT_EQ(ring.Write(std::span(c.bytes).subspan(11), 0), 1);
            ASSERT_EQ(ring.ReadToCode(0, c.codes, dest, 0), c.nExpected);
            const auto nTaken = static_cast<std::size_t>(std::max(0, c.nExpected));
            dest.resize(nTaken);
            EXPECT_EQ(dest, Bytes(c.bytes.begin(), c.bytes.begin() + static_cast<std::ptrdiff_t>(nTaken)));
            EXPECT_EQ(ring.GetAvailable(0), 12 - nTaken);
        }
    }
}

TEST(RingBuffer, ReaderWaitIsEndedByWhatHelpsAndByWhatCloses) {
    const std::function<int(CRing&, std::span<std::uint8_t>)> reads[] = {
        [](CRing& ring, auto dest) { return ring.Read(0, dest); },
        [](CRing& ring, auto dest) { return ring.ReadTimed(0, dest, kTooLongMs); },
        [](CRing& ring, auto dest) { return ring.Peek(0, dest); },
        [](CRing& ring, auto) { return ring.WaitForData(0, 8, kInfinite); },
        [](CRing& ring, auto dest) { return ring.ReadToCode(0, {}, dest.first(4), kInfinite) * 2; },
    };
    const struct {
        const char* pszWhat;
        std::function<void(CRing&)> wake;
        int nResult;
    } aCases[] = {
        {"write of the last byte", [](CRing& ring) { ring.Put(1); }, 8},
        {"flush", [](CRing& ring) { ring.Flush(); }, 0},
        {"close", [](CRing& ring) { ring.CloseReader(0); }, 0},
        {"close of all", [](CRing& ring) { ring.CloseAll(); }, 0},
    };
    for (const auto& c : aCases) {
        for (std::size_t i = 0; i < std::size(reads); ++i) {
            SCOPED_TRACE(testing::Message() << c.pszWhat << ", read " << i);
            CRing ring;
            ring.Put(6);
            CTestThread reader([&] {
                Bytes dest(8);
                EXPECT_EQ(reads[i](ring, dest), c.nResult);
            });
            SleepMs(kSettleMs);
            ring.Put(1);
            SleepMs(kSettleMs);
            EXPECT_FALSE(reader.HasEnded());
            reader.WakeBy([&] { c.wake(ring); });
        }
    }
}

TEST(RingBuffer, WriterWaitIsEndedByWhatHelpsAndByWhatCloses) {
    const struct {
        const char* pszWhat;
        std::function<void(CRing&)> wake;
        int nResult;
        bool bMayGiveUp = false;  // woken before the room is there
    } aCases[] = {
        {"read of the last byte", [](CRing& ring) { ring.Skip(0, 1); }, 15},
        {"close of the reader", [](CRing& ring) { ring.CloseReader(0); }, 15},
        {"flush", [](CRing& ring) { ring.Flush(); }, 15, true},
        {"quiet clearing and waking",
         [](CRing& ring) {
             ring.ClearQuiet();
             ring.WakeWriter();
         },
         15},
        {"close", [](CRing& ring) { ring.CloseWriter(); }, 0},
        {"close of all", [](CRing& ring) { ring.CloseAll(); }, 0},
    };
    for (const auto& c : aCases) {
        for (bool bWriteWait : {false, true}) {
            SCOPED_TRACE(testing::Message() << c.pszWhat << bWriteWait);
            CRing ring;
            ring.Fill();
            ring.Skip(0, 13);
            CTestThread writer([&] {
                const int nResult = bWriteWait ? ring.WriteWait(Bytes(15)) : ring.Put(15, kInfinite);
                EXPECT_TRUE(nResult == c.nResult || (c.bMayGiveUp && nResult == 0)) << nResult;
            });
            SleepMs(kSettleMs);
            ring.Skip(0, 1);
            SleepMs(kSettleMs);
            EXPECT_FALSE(writer.HasEnded());
            writer.WakeBy([&] { c.wake(ring); });
        }
    }
}

TEST(RingBuffer, ForceEndsItsWaits) {
    CRing ring;
    Bytes dest(8);
    const std::uint32_t aCodes[] = {0x1B3};
    ExpectEndsByForce([&] { ring.Read(0, dest); });
    ExpectEndsByForce([&] { ring.PeekTimed(0, dest, kTooLongMs); });
    ExpectEndsByForce([&] { ring.ReadToCode(0, aCodes, dest, kInfinite); });
    ring.Fill();
    ExpectEndsByForce([&] { ring.Put(1, kInfinite); });
    ExpectEndsByForce([&] { ring.WriteWait(dest); });
    // Threads that always find what they would wait for.
    ExpectEndsByForce([&] {
        for (;;) ring.Peek(0, dest);
    });
    ring.Flush();
    ExpectEndsByForce([&] {
        for (;;) {
            ring.Put(8, kInfinite);
            ring.Skip(0, 8);
        }
    });
    ring.Flush();
    ring.m_nWritten = 0;
    EXPECT_EQ(ring.Put(8), 8);
    EXPECT_EQ(ring.Read(0, dest), 8) << "the buffer is as usable as before";
    EXPECT_EQ(dest, Counting(8));
}

TEST(RingBuffer, CloseIsSeenByAWaitThatJustBegins) {
    CRing ring;
    Bytes dest(8);
    ring.CloseReader(0);
    ExpectCloseIsSeen([&] { ring.OpenReader(15); }, [&] { ring.Read(0, dest); },
                      [&] { ring.CloseReader(0); });
    ring.OpenReader(15);
    ring.Fill();
    ring.CloseWriter();
    ExpectCloseIsSeen([&] { ring.OpenWriter(15); }, [&] { ring.WriteWait(dest); },
                      [&] { ring.CloseWriter(); });
}

std::string Dump(const CRingBuffer& ring) {
    std::string strText(4096, '#');
    ring.DumpStatus(strText);
    return strText.substr(0, strText.find('\0'));
}

TEST(RingBuffer, DumpStatusAndEmptying) {
    CRing ring(/*bReader=*/false);
    ring.OpenReader(10);
    ring.OpenReader(12);
    ring.Put(15);
    ring.Skip(1, 5);
    ring.CloseReader(0);
    ring.OpenReader(9);  // a number that was used before comes back with its event set
    ring.Put(7);
    Bytes dest(8);
    EXPECT_EQ(ring.ReadTimed(0, dest, 1), 0);
    EXPECT_EQ(ring.Put(45, 1), 0);
    EXPECT_EQ(Dump(ring),
              "**************Begin***********\nBufferSize   60\nError       NO ERROR\nOverRide    NO\n"
              "<<<<Writting status>>>>>>\n Totoal writting bytes   22\nUsedMark     TRUE\nRequiredSize 45\n"
              "MaxRequiredSize   15\nFilePointer       22\nFileSize          17\nFreeBufferSize    43\n"
              "FileEvent:WriteThread         Nonsignled:Waiting\n-----------------------\n"
              "<<<<<<<<<Reading status>>>>>>>>>>>\n"
              "------------ReadFile #0---------\n Totoal Reading bytes   0\nUsedMark     TRUE\n"
              "RequiredSize 8\nMaxRequiredSize   9\nFilePointer       15\nFileSize          7\n"
              "FileEvent:ReadThread          Nonsignled:Waiting\n"
              "------------ReadFile #1---------\n Totoal Reading bytes   5\nUsedMark     TRUE\n"
              "RequiredSize 0\nMaxRequiredSize   12\nFilePointer       5\nFileSize          17\n"
              "FileEvent:ReadThread          Singled:May Running\n***********End******************\n");

    // Emptying puts everything back to its start; the quiet way leaves the events.
    const std::string strEmptied =
        "**************Begin***********\nBufferSize   60\nError       NO ERROR\nOverRide    NO\n"
        "<<<<Writting status>>>>>>\n Totoal writting bytes   0\nUsedMark     TRUE\nRequiredSize 0\n"
        "MaxRequiredSize   15\nFilePointer       0\nFileSize          0\nFreeBufferSize    60\n"
        "FileEvent:WriteThread         @\n-----------------------\n<<<<<<<<<Reading status>>>>>>>>>>>\n"
        "------------ReadFile #0---------\n Totoal Reading bytes   0\nUsedMark     TRUE\nRequiredSize 0\n"
        "MaxRequiredSize   9\nFilePointer       0\nFileSize          0\nFileEvent:ReadThread          @\n";
    auto ExpectEmptied = [&](const std::string& strEvent) {
        std::string strExpected = strEmptied;
        for (auto n = strExpected.find('@'); n != std::string::npos; n = strExpected.find('@')) {
            strExpected.replace(n, 1, strEvent);
        }
        EXPECT_EQ(Dump(ring).substr(0, strExpected.size()), strExpected);
    };
    ring.ClearQuiet();
    ExpectEmptied("Nonsignled:Waiting");
    ring.Put(15);
    EXPECT_EQ(ring.Read(0, dest), 8);
    EXPECT_EQ(dest, Counting(8, 22));
    ring.CloseWriter();
    ring.Flush();  // opens the write side
    ExpectEmptied("Singled:May Running");
    ring.CloseAll();
    EXPECT_EQ(Dump(ring).find("ReadFile"), std::string::npos);
    EXPECT_NE(Dump(ring).find("UsedMark     FALSE"), std::string::npos);
    EXPECT_NE(Dump(CRingBuffer()).find("BufferSize   0\nError       ERROR\n"), std::string::npos);
    char szSmall[20];
    ring.DumpStatus(szSmall);
    EXPECT_STREQ(szSmall, "**************Begin");
}

// One writer and five readers of different speed, with and without somebody who empties, closes and reopens.
class RingBufferStress : public testing::Test {
protected:
    static constexpr std::uint32_t kRecord = 40;
    static constexpr std::uint32_t kMaxRecords = 16;  // largest write
    static constexpr std::uint32_t kWriterChunk = kRecord * kMaxRecords;
    static constexpr std::uint32_t kReaderChunk = kRecord * 2;

    /// Runs all threads until `control` returns or, when `nRecords` are asked for, until every reader has
    /// that many.
    void Run(std::uint64_t nRecords, const std::function<void()>& control) {
        const std::uint64_t nFirst = m_nNext;
        OpenAll();
        std::list<CTestThread> threads;
        threads.emplace_back([=, this] { Write(nRecords ? nFirst + nRecords : 0); });
        for (int i = 0; i < CRingBuffer::kMaxReaders; ++i) {
            threads.emplace_back([=, this] { Read(i, nFirst, nRecords); });
        }
        control();
        if (nRecords == 0) {
            m_bEnd = true;
            m_ring.CloseAll();
        }
        threads.clear();
        m_ring.CloseAll();
        m_bEnd = false;
    }

    void OpenAll() {
        for (int i = 0; i < CRingBuffer::kMaxReaders; ++i) ASSERT_EQ(m_ring.OpenReader(kReaderChunk), i);
        ASSERT_EQ(m_ring.OpenWriter(kWriterChunk), 0);
    }

    void Write(std::uint64_t nEnd) {
        std::minstd_rand random(1);
        Bytes piece(kWriterChunk);
        while (!m_bEnd && m_nNext != nEnd) {
            std::uint64_t nCount = 1 + random() % kMaxRecords;
            if (nEnd) nCount = std::min(nCount, nEnd - m_nNext);
            for (std::uint64_t i = 0; i < nCount; ++i) {
                FillRecord(std::span(piece).subspan(i * kRecord, kRecord), m_nNext + i);
            }
            while (!m_bEnd && m_ring.Write(std::span(piece).first(nCount * kRecord), kInfinite) <= 0) {
                std::this_thread::yield();
            }
            m_nNext += nCount;
        }
    }

    /// One piece in the reader's own way.
    int ReadPiece(int nReader, std::span<std::uint8_t> dest) {
        switch (nReader) {
            case 0: return m_ring.Read(nReader, dest);
            case 1: return m_ring.ReadTimed(nReader, dest, 50);
            case 2: {
                const int n = m_ring.ReadAll(nReader, dest);
                m_ring.WakeWriter();  // which taking everything does not do
                return n;
            }
            case 3: {
                const int n = m_ring.PeekNow(nReader, dest);
                return n > 0 ? m_ring.Skip(nReader, static_cast<std::uint32_t>(n)) : n;
            }
            default: {
                const std::uint32_t aNone[] = {0xFFFFFFFF};
                return m_ring.ReadToCode(nReader, aNone, dest.first(dest.size() / 2), 5);
            }
        }
    }

    void Read(int nReader, std::uint64_t nFirst, std::uint64_t nRecords) {
        Bytes piece(kReaderChunk);
        std::uint64_t nLast = nFirst - 1, nSeen = 0;
        // Looking for a code takes the last record only with more bytes behind it.
        const std::uint64_t nWanted = nReader == 4 && nRecords ? nRecords - 1 : nRecords;
        while (!m_bEnd && (nRecords == 0 || nSeen < nWanted)) {
            const int nRead = ReadPiece(nReader, piece);
            if (nRead <= 0) {
                std::this_thread::yield();
                continue;
            }
            ASSERT_EQ(static_cast<std::uint32_t>(nRead) % kRecord, 0u);
            for (std::uint32_t n = 0; n < static_cast<std::uint32_t>(nRead); n += kRecord, ++nSeen) {
                const std::uint64_t nSequence = CheckRecord(std::span(piece).subspan(n, kRecord));
                ASSERT_NE(nSequence, 0u) << "torn";
                ASSERT_GT(nSequence, nLast) << "delivered twice or out of order";
                ASSERT_TRUE((n == 0 && nRecords == 0) || nSequence == nLast + 1) << "lost";
                nLast = nSequence;
            }
            for (int i = 0; i < 200 * nReader; ++i) std::atomic_signal_fence(std::memory_order_seq_cst);
        }
        m_nTaken += nSeen;
    }

    CRingBuffer m_ring{kWriterChunk * 4 + 7};  // records lie across the end of the storage
    std::uint64_t m_nNext = 1;                 // sequence number of the writer's next record
    std::atomic<std::uint64_t> m_nTaken{0};
    std::atomic<bool> m_bEnd{false};
};

TEST_F(RingBufferStress, NothingIsTornAndNothingIsLost) {
    Run(0, [this] {
        std::minstd_rand random(2);
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
        while (std::chrono::steady_clock::now() < end) {
            switch (const auto n = random() % 10; n) {
                case 0: m_ring.Flush(); break;
                case 1:
                    m_ring.CloseAll();
                    OpenAll();
                    break;
                case 2:
                case 3:
                case 4:
                case 5:
                case 6: {
                    const int nReader = static_cast<int>(n) - 2;
                    m_ring.CloseReader(nReader);
                    ASSERT_EQ(m_ring.OpenReader(kReaderChunk), nReader);
                    break;
                }
                default: std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
            }
        }
    });
    EXPECT_GT(m_nTaken, 100u) << "the disturbances left no room for the traffic";
    m_nTaken = 0;
    constexpr std::uint64_t kCount = 40000;
    Run(kCount, [] {});
    EXPECT_EQ(m_nTaken, CRingBuffer::kMaxReaders * kCount - 1);
}

}  // namespace
}  // namespace kest

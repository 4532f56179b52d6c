#include "plumbing/RingBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/Stress.h"

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
    EXPECT_EQ(ring.WriteWait(whole), RB_E_NOT_OPEN);
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

TEST(RingBuffer, WriterEventTellsWhetherTheWriterMayGoOn) {
    CRingBuffer fresh(kCapacity);
    EXPECT_FALSE(fresh.WaitWriterEvent(0)) << "nobody may write yet";
    CRing ring;
    EXPECT_TRUE(ring.WaitWriterEvent(0));
    ring.Fill();
    EXPECT_EQ(ring.Put(10), 0);
    EXPECT_FALSE(ring.WaitWriterEvent(0)) << "a write that does not wait resets it all the same";
    ring.Skip(0, 9);
    EXPECT_FALSE(ring.WaitWriterEvent(0));
    ring.Skip(0, 1);
    EXPECT_TRUE(ring.WaitWriterEvent(0));
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

TEST(RingBuffer, ReaderWaitsAreEndedByWhatHelpsAndByWhatCloses) {
    Bytes bytes(8);
    const std::function<int(CRing&)> reads[] = {
        [&](CRing& ring) { return ring.Read(0, bytes); },
        [&](CRing& ring) { return ring.ReadTimed(0, bytes, kTooLongMs); },
        [&](CRing& ring) { return ring.Peek(0, bytes); },
        [&](CRing& ring) { return ring.WaitForData(0, 8, kInfinite); },
        [&](CRing& ring) { return 2 * ring.ReadToCode(0, {}, std::span(bytes).first(4), kInfinite); },
    };
    const struct {
        void (*wake)(CRing&);
        int nResult;
    } aCases[] = {
        {[](CRing& ring) { ring.Put(1); }, 8},
        {[](CRing& ring) { ring.Flush(); }, 0},
        {[](CRing& ring) { ring.ClearQuiet(), ring.Put(8); }, 8},
        {[](CRing& ring) { ring.CloseReader(0); }, 0},
        {[](CRing& ring) { ring.CloseAll(); }, 0},
    };
    for (std::size_t nRead = 0; nRead < std::size(reads); ++nRead) {
        for (std::size_t i = 0; i < std::size(aCases); ++i) {
            SCOPED_TRACE(testing::Message() << "read " << nRead << ", case " << i);
            CRing ring;
            ring.Put(6);
            ExpectWaitEnds([&] { EXPECT_EQ(reads[nRead](ring), aCases[i].nResult); }, [&] { ring.Put(1); },
                           [&] { aCases[i].wake(ring); });
        }
    }
}

TEST(RingBuffer, WriterWaitsAreEndedByWhatHelpsAndByWhatCloses) {
    const struct {
        void (*wake)(CRing&);
        bool bWrites, bGivesUp;
    } aCases[] = {
        {[](CRing& ring) { ring.Skip(0, 1); }, true, false},
        {[](CRing& ring) { ring.CloseReader(0); }, true, false},
        {[](CRing& ring) { ring.Flush(); }, true, true},  // wakes it before or after there is room
        {[](CRing& ring) { ring.ClearQuiet(), ring.WakeWriter(); }, true, false},
        {[](CRing& ring) { ring.CloseWriter(); }, false, true},
        {[](CRing& ring) { ring.CloseAll(); }, false, true},
    };
    for (std::size_t i = 0; i < std::size(aCases); ++i) {
        for (bool bWriteWait : {false, true}) {
            SCOPED_TRACE(testing::Message() << "case " << i << bWriteWait);
            CRing ring;
            ring.Fill();
            ring.Skip(0, 13);
            auto Wait = [&] {
                const int nResult = bWriteWait ? ring.WriteWait(Bytes(15)) : ring.Put(15, kInfinite);
                EXPECT_TRUE((aCases[i].bWrites && nResult == 15) || (aCases[i].bGivesUp && nResult == 0));
            };
            ExpectWaitEnds(
                Wait, [&] { ring.Skip(0, 1); }, [&] { aCases[i].wake(ring); });
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

TEST(RingBuffer, DumpStatus) {
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
    ring.CloseAll();
    EXPECT_EQ(Dump(ring).find("ReadFile"), std::string::npos);
    EXPECT_NE(Dump(ring).find("UsedMark     FALSE"), std::string::npos);
    EXPECT_NE(Dump(CRingBuffer()).find("BufferSize   0\nError       ERROR\n"), std::string::npos);
    char szSmall[20];
    ring.DumpStatus(szSmall);
    EXPECT_STREQ(szSmall, "**************Begin");
}

// Emptying puts everything back to its start, the quiet way without the events.
TEST(RingBuffer, FlushAndClearQuiet) {
    for (const bool bQuiet : {false, true}) {
        SCOPED_TRACE(bQuiet);
        CRing ring;
        Bytes dest(8);
        ring.Put(20);
        ring.Skip(0, 15);
        EXPECT_EQ(ring.ReadTimed(0, dest, 1), 0);
        EXPECT_EQ(ring.Put(60, 1), 0);
        if (bQuiet) {
            ring.ClearQuiet();
        } else {
            ring.CloseWriter();
            ring.Flush();  // opens it again
        }
        const std::string strEvent = bQuiet ? "Nonsignled:Waiting\n" : "Singled:May Running\n";
        EXPECT_NE(Dump(ring).find("writting bytes   0\nUsedMark     TRUE\nRequiredSize 0\n"
                                  "MaxRequiredSize   15\nFilePointer       0\nFileSize          0\n"
                                  "FreeBufferSize    60\nFileEvent:WriteThread         " +
                                  strEvent),
                  std::string::npos)
            << Dump(ring);
        EXPECT_NE(Dump(ring).find("Reading bytes   0\nUsedMark     TRUE\nRequiredSize 0\n"
                                  "MaxRequiredSize   15\nFilePointer       0\nFileSize          0\n"
                                  "FileEvent:ReadThread          " +
                                  strEvent),
                  std::string::npos)
            << Dump(ring);
        EXPECT_EQ(ring.Put(8), 8);
        EXPECT_EQ(ring.Read(0, dest), 8);
        EXPECT_EQ(dest, Counting(8, 20));
    }
}

class CStressedRing : public CStressed {
public:
    void OpenAll() override {
        for (int i = 0; i < CRingBuffer::kMaxReaders; ++i) EXPECT_EQ(m_ring.OpenReader(kReaderChunk), i);
        EXPECT_EQ(m_ring.OpenWriter(kWriterChunk), 0);
    }
    void CloseAll() override { m_ring.CloseAll(); }
    void Disturb(std::minstd_rand& random) override {
        const int n = static_cast<int>(random() % 7);
        if (n < CRingBuffer::kMaxReaders) {
            m_ring.CloseReader(n);
            std::this_thread::yield();  // the writer has the room meanwhile
            EXPECT_EQ(m_ring.OpenReader(kReaderChunk), n);
        } else if (n == CRingBuffer::kMaxReaders) {
            CloseAll();
            OpenAll();
        } else {
            m_ring.Flush();
        }
    }
    std::uint64_t Write(std::uint64_t nSequence, std::uint64_t nMost, std::minstd_rand& random) override {
        const std::uint64_t nCount = std::min<std::uint64_t>(nMost, 1 + random() % kMaxRecords);
        const auto piece = std::span(m_piece).first(nCount * kRecord);
        for (std::uint64_t i = 0; i < nCount; ++i) {
            FillRecord(piece.subspan(i * kRecord, kRecord), nSequence + i);
        }
        return m_ring.Write(piece, kInfinite) > 0 ? nCount : 0;
    }
    std::vector<std::uint64_t> Read(int nReader) override {
        std::uint8_t piece[kReaderChunk];
        std::vector<std::uint64_t> anSequence;
        const int nRead = ReadPiece(nReader, piece);
        for (int n = 0; n < nRead; n += static_cast<int>(kRecord)) {
            anSequence.push_back(CheckRecord(std::span(piece).subspan(static_cast<std::size_t>(n), kRecord)));
        }
        return anSequence;
    }

private:
    /// Every reader has its own way.
    int ReadPiece(int nReader, std::span<std::uint8_t> dest) {
        int n = 0;
        switch (nReader) {
            case 0: return m_ring.Read(nReader, dest);
            case 1: return m_ring.ReadTimed(nReader, dest, 50);
            case 2:
                n = m_ring.ReadAll(nReader, dest);
                m_ring.WakeWriter();  // which taking everything does not do
                return n;
            case 3:
                n = m_ring.PeekNow(nReader, dest);
                return n > 0 ? m_ring.Skip(nReader, static_cast<std::uint32_t>(n)) : n;
            default: return m_ring.ReadToCode(nReader, {}, dest.first(kRecord), 5);
        }
    }

    static constexpr std::uint32_t kRecord = 40;
    static constexpr std::uint32_t kMaxRecords = 16;  // largest write
    static constexpr std::uint32_t kWriterChunk = kRecord * kMaxRecords;
    static constexpr std::uint32_t kReaderChunk = kRecord * 2;

    CRingBuffer m_ring{kWriterChunk * 4 + 7};  // records lie across the end of the storage
    std::uint8_t m_piece[kWriterChunk];
};

TEST(RingBuffer, NothingIsTornAndNothingIsLost) {
    CStressedRing stressed;
    RunStress(stressed, 40000);
}

}  // namespace
}  // namespace kest

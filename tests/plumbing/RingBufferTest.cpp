#include "plumbing/RingBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/Records.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::uint32_t kCapacity = 60;

/// A small buffer with an open write side and a reader, both at nOffset.
struct CRing : CRingBuffer {
    explicit CRing(std::uint32_t nOffset = 0) : CRingBuffer(kCapacity) {
        OpenWriter(15);
        OpenReader(15);
        Put(nOffset);
        Skip(0, nOffset);
    }
    int Put(std::size_t n, std::uint32_t nTimeoutMs = 0) { return Write(Counting(n), nTimeoutMs); }
};

TEST(RingBuffer, SizeRules) {
    const struct {
        std::uint32_t nCapacity, nEarlierReader, nWriter, nChunk;
        int nExpected;
    } aCases[] = {
        {1200, 0, 0, 400, 0},  // without a writer: a third of the capacity
        {1201, 0, 0, 401, RB_E_TOO_BIG},
        {1200, 0, 300, 300, 0},  // with one: half of it for both
        {1201, 0, 300, 301, RB_E_TOO_BIG},
        {1200, 200, 400, 200, 1},
        {1200, 400, 400, 1, RB_E_TOO_BIG},         // the largest reader counts
        {1200, 0, 400, 0xFFFFFFFF, RB_E_TOO_BIG},  // the sum wraps around 32 bits
        {0, 0, 0, 0, RB_E_TOO_BIG},
    };
    for (const auto& c : aCases) {
        CRingBuffer ring(c.nCapacity);
        if (c.nEarlierReader) ring.OpenReader(c.nEarlierReader);
        if (c.nWriter) ring.OpenWriter(c.nWriter);
        EXPECT_EQ(ring.OpenReader(c.nChunk), c.nExpected)
            << c.nCapacity << ' ' << c.nWriter << ' ' << c.nChunk;
    }
    EXPECT_EQ(CRingBuffer(kCapacity).OpenWriter(21), RB_E_TOO_BIG);
    CRing ring;
    Bytes bytes(16);
    EXPECT_EQ(ring.OpenWriter(1), RB_E_WRITER_OPEN);
    EXPECT_EQ(ring.ReadAll(0, bytes), RB_E_BAD_SIZE);
    EXPECT_EQ(ring.Put(28), 28);
    EXPECT_EQ(ring.Peek(0, {}), RB_E_BAD_SIZE);
    EXPECT_EQ(ring.ReadTimed(0, bytes, 0), RB_E_BAD_SIZE);
    EXPECT_EQ(ring.ReadToCode(0, {}, std::span(bytes).first(12), 0), RB_E_BAD_SIZE);
    EXPECT_EQ(ring.Read(1, bytes), RB_E_NOT_OPEN);
    EXPECT_EQ(ring.Read(0, bytes), 16) << "more than declared, which this form does not test";
}

TEST(RingBuffer, InPlaceWritingAndReading) {
    CRing ring(50);
    std::uint32_t nFree = 0, nReadPos = 0;
    std::span<const std::uint8_t> storage;
    auto room = ring.GetWritePointer(nFree);
    ASSERT_EQ(room.size(), 10u) << "up to the end of the storage";
    EXPECT_EQ(ring.Commit(11), RB_E_BAD_SIZE) << "beyond it nothing was written";
    std::ranges::copy(Counting(10), room.begin());
    EXPECT_EQ(ring.Commit(4) + ring.Commit(6), 10);
    room = ring.GetWritePointer(nFree);
    EXPECT_EQ(room.size(), 50u) << "up to the reader";
    std::ranges::copy(Counting(5, 10), room.begin());
    EXPECT_EQ(ring.Commit(5), 5);
    EXPECT_EQ(ring.GetReadPointer(0, storage, nReadPos), 15);
    for (std::uint32_t i = 0; i < 15; ++i) EXPECT_EQ(storage[(nReadPos + i) % kCapacity], i);
    for (std::uint32_t nBefore : {0u, 5u}) {
        ring.Flush();
        ring.Put(nBefore);
        ring.GetWritePointer(nFree);
        ring.Flush();
        EXPECT_EQ(ring.Commit(5), 0) << "written before the emptying";
    }
}

// Waits that the queue does not have: for a number of bytes, with the writer's event, and those that WakeWriter ends.
TEST(RingBuffer, WaitsForBytes) {
    Bytes bytes(8);
    CRing ring;
    ring.Put(7);
    ExpectWaitEnds([&] { EXPECT_EQ(ring.Peek(0, bytes), 8); }, [&] { ring.Put(1); });
    ring.Flush();
    ExpectWaitEnds([&] { EXPECT_EQ(ring.WaitForData(0, 8, kInfinite), 8); },
                   [&] { ring.ClearQuiet(), ring.Put(8); });
    ring.Put(38);
    auto Write = [&](int nResult) { return [&, nResult] { EXPECT_EQ(ring.Put(15, kInfinite), nResult); }; };
    ExpectWaitEnds(Write(0), [&] { ring.WakeWriter(); });
    for (bool bMayGoOn : {false, true}) {  // the event after the write that gave up
        EXPECT_EQ(ring.WaitWriterEvent(0), bMayGoOn);
        EXPECT_EQ(ring.Put(15), bMayGoOn ? 15 : 0);
        ring.Skip(0, 1);
    }
    ExpectWaitEnds(Write(15), [&] { ring.ClearQuiet(), ring.WakeWriter(); });
}

TEST(RingBuffer, ReadToCode) {
    const std::vector<std::uint32_t> aOne{0x1B3}, aTwo{0x1B8, 0x1B3}, aThree{0x1BA, 0x1B8, 0x1B3};
    const struct {
        Bytes bytes;
        const std::vector<std::uint32_t>& codes;
        int nExpected;
    } aCases[] = {
        {{0, 0, 1, 0xB3, 5, 6, 7, 8, 9, 10, 11, 12}, aOne, RB_E_AT_CODE},
        {{9, 0, 0, 1, 0xB3, 6, 7, 8, 9, 10, 11, 12}, aOne, 1},
        {{7, 7, 0, 0, 1, 0xB3, 0, 0, 1, 0xB8, 0, 0}, aTwo, 2},  // the first of two
        {{0, 0, 1, 0xB8, 0, 0, 1, 0xB3, 9, 9, 9, 9}, aOne, 4},  // not among the codes
        {{1, 2, 3, 4, 0, 0, 0, 1, 0xB3, 9, 9, 9}, aThree, 5},
        {{1, 2, 3, 4, 5, 6, 7, 0, 0, 1, 0xB3, 9}, aOne, 7},  // at the last byte that is taken
        {{1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 1, 0xB3}, aOne, 8},  // right behind
        {{1, 0, 0, 1, 0xB4, 0, 0, 2, 0xB3, 0, 0, 1}, aThree, 8},
    };
    for (const auto& c : aCases) {
        for (std::uint32_t nOffset = 0; nOffset < kCapacity; ++nOffset) {
            SCOPED_TRACE(testing::Message() << c.nExpected << " at " << nOffset);
            CRing ring(nOffset);
            Bytes dest(8);
            ring.Write(std::span(c.bytes).first(11), 0);
            EXPECT_EQ(ring.ReadToCode(0, c.codes, dest, 0), 0) << "one byte short";
            ring.Write(std::span(c.bytes).subspan(11), 0);
            ASSERT_EQ(ring.ReadToCode(0, c.codes, dest, 0), c.nExpected);
            const int nTaken = std::max(0, c.nExpected);
            EXPECT_TRUE(std::equal(dest.begin(), dest.begin() + nTaken, c.bytes.begin()));
            EXPECT_EQ(ring.GetAvailable(0), static_cast<std::uint32_t>(12 - nTaken));
        }
    }
}

TEST(RingBuffer, DumpStatus) {
    CRing ring(15);
    Bytes dest(8);
    ring.OpenReader(12);
    ring.CloseReader(0);
    ring.OpenReader(9);  // a number that was used before comes back with its event set
    ring.Put(7);
    ring.Skip(0, 5);
    EXPECT_EQ(ring.ReadTimed(1, dest, 1) + ring.Put(55, 1), 0);
    char szText[4096], szSmall[20];
    ring.DumpStatus(szText);
    EXPECT_STREQ(
        szText,
        "**************Begin***********\nBufferSize   60\nError       NO ERROR\nOverRide    NO\n"
        "<<<<Writting status>>>>>>\n Totoal writting bytes   22\nUsedMark     TRUE\nRequiredSize 55\n"
        "MaxRequiredSize   15\nFilePointer       22\nFileSize          7\nFreeBufferSize    53\n"
        "FileEvent:WriteThread         Nonsignled:Waiting\n-----------------------\n"
        "<<<<<<<<<Reading status>>>>>>>>>>>\n"
        "------------ReadFile #0---------\n Totoal Reading bytes   5\nUsedMark     TRUE\nRequiredSize 0\n"
        "MaxRequiredSize   9\nFilePointer       20\nFileSize          2\n"
        "FileEvent:ReadThread          Singled:May Running\n"
        "------------ReadFile #1---------\n Totoal Reading bytes   0\nUsedMark     TRUE\nRequiredSize 8\n"
        "MaxRequiredSize   12\nFilePointer       15\nFileSize          7\n"
        "FileEvent:ReadThread          Nonsignled:Waiting\n***********End******************\n");
    ring.DumpStatus(szSmall);
    EXPECT_STREQ(szSmall, "**************Begin");
}

}  // namespace
}  // namespace kest

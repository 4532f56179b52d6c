#include "plumbing/BlockMemFile.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/CaptureTexts.h"
#include "support/Records.h"

namespace kest {
namespace {

constexpr std::uint32_t kBlockSize = 64;

/// A queue of small blocks with one reader, whose info record is one number.
struct CQueue : CBlockMemFileEx {
    CQueue() : CBlockMemFileEx(kBlockSize, 3, sizeof(std::uint64_t)) { WOpen(), ROpen(); }
    /// Writes a block of n bytes that count from nInfo.
    int Put(std::uint64_t nInfo, std::size_t n = 8) {
        return WriteEx(Counting(n, static_cast<std::uint8_t>(nInfo)), &nInfo, kInfinite);
    }
    /// Reads a block of n such bytes into nRoom bytes. @return its info, 0 when none came.
    std::uint64_t Take(std::size_t n = 8, std::size_t nRoom = kBlockSize) {
        std::vector<std::uint8_t> bytes(kBlockSize, 0xEE);
        std::uint64_t nInfo = 0;
        const BlockRead read = ReadEx(0, std::span(bytes).first(nRoom), &nInfo, 0);
        if (!read.IsTaken()) return 0;
        EXPECT_EQ(read.nGeneration, GetGeneration(0));
        EXPECT_EQ(read.nLength, n);
        auto expected = Counting(n, static_cast<std::uint8_t>(nInfo));
        expected.resize(kBlockSize, 0xEE);
        EXPECT_EQ(bytes, expected);
        return nInfo;
    }
};

TEST(BlockMemFile, RecordsComeWithBlocksOfEveryLength) {
    const struct {
        std::size_t nWritten, nRoom, nRead;
        const char* pszTrace;
    } aCases[] = {
        {0, 0, 0, ""},
        {kBlockSize + 1, kBlockSize, kBlockSize, "Frame of 65 bytes is cut to its block of 64 bytes\n"},
        {20, 8, 8, "Block of 20 bytes is cut to 8 bytes\n"},
    };
    CQueue queue;
    for (const auto& c : aCases) {
        CCaptureTexts texts;
        EXPECT_EQ(queue.Put(7, c.nWritten), static_cast<int>(std::min<std::size_t>(c.nWritten, kBlockSize)));
        EXPECT_EQ(queue.Put(9), 8) << "the next block";
        EXPECT_EQ(queue.Take(c.nRead, c.nRoom), 7u);
        EXPECT_EQ(queue.Take(), 9u);
        EXPECT_EQ(texts.TraceTexts(), c.pszTrace);
    }
    std::uint64_t nInfo = 5;
    EXPECT_EQ(queue.ReadEx(0, {}, &nInfo, 0).status, BlockRead::EStatus::Nothing);
    EXPECT_EQ(queue.ReadEx(1, {}, &nInfo, kInfinite).status, BlockRead::EStatus::NotOpen);
    for (int n : {-1, 5})
        EXPECT_EQ(queue.ReadEx(n, {}, &nInfo, kInfinite).status, BlockRead::EStatus::BadHandle);
    EXPECT_EQ(nInfo, 5u);
    queue.WClose();
    EXPECT_EQ(queue.Put(1), -1);
    EXPECT_EQ(queue.CommitBlock({}, 0, &nInfo), -1);
}

// What is written in place is seen when it is committed, once, and never when it was begun before an emptying.
TEST(BlockMemFile, BlocksInPlaceAndGenerations) {
    CQueue queue;
    const std::uint64_t nInfo = 3;
    auto Begin = [&] {
        const BlockWrite block = queue.BeginBlock(0);
        EXPECT_EQ(block.storage.size(), kBlockSize);
        std::ranges::copy(Counting(8, 3), block.storage.begin());
        return block;
    };
    for (int i = 0; i < 5; ++i) {  // around the ring
        const BlockWrite block = Begin();
        EXPECT_EQ(Begin().storage.data(), block.storage.data());
        EXPECT_EQ(queue.Take(), 0u) << "not yet";
        for (int nResult : {8, 0}) EXPECT_EQ(queue.CommitBlock(block, 8, &nInfo), nResult) << "once";
        EXPECT_EQ(queue.Take(), 3u);
        EXPECT_EQ(queue.Take(), 0u);
    }
    for (int i = 0; i < 4; ++i) {  // begun at block 0 or behind it, then emptied or closed and opened again
        queue.Reset();
        if (i % 2) queue.Put(8);
        const BlockWrite block = Begin();
        if (i < 2) {
            queue.Reset();
        } else {
            queue.WClose(), queue.WOpen();
        }
        EXPECT_EQ(queue.CommitBlock(block, 8, &nInfo), 0);
        EXPECT_EQ(queue.WriteEx(Counting(8), &nInfo, kInfinite, block.nGeneration), 0);
        EXPECT_EQ(queue.Put(5), 8);
        EXPECT_EQ(queue.Take(), 5u);
    }
    while (queue.GetFreeBlocks() > 0) queue.Put(1);
    EXPECT_TRUE(queue.BeginBlock(1).storage.empty());
    queue.Reset();
    const BlockWrite block = Begin();
    EXPECT_EQ(queue.ROpen(), 1);  // begins with the block that is committed then
    EXPECT_EQ(queue.CommitBlock(block, 8, &nInfo), 8);
    EXPECT_EQ(queue.GetPending(1), 1u);
}

}  // namespace
}  // namespace kest

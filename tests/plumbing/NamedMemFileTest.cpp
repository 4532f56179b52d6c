#include "plumbing/NamedMemFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "support/TestThreads.h"

namespace kest {
namespace {

/// A name that no other test uses, nor another run of this one.
const std::string kName =
    "KestTest" + std::to_string(std::chrono::system_clock::now().time_since_epoch().count());

int Open(CNamedMemFile& file, int nMode, std::uint32_t nSize = 48, const std::string& strName = kName) {
    return file.Open(nMode, nullptr, strName.c_str(), nullptr, nSize, 0);
}

TEST(NamedMemFile, OpenResults) {
    const std::string strLongest(255, 'x');
    CNamedMemFile file;
    for (const auto& strName : {"a/" + kName, std::string(), strLongest + "x"}) {
        EXPECT_EQ(Open(file, MEMFILE_CREATE, 48, strName), -2) << strName;
    }
    EXPECT_EQ(Open(file, MEMFILE_OPEN), -2);
    EXPECT_EQ(Open(file, MEMFILE_CREATE, 0), -2);
    EXPECT_LT(file.Open(MEMFILE_CREATE, nullptr, kName.c_str(), nullptr, 0, 0x7FFFFFFF), 0);
    EXPECT_EQ(Open(file, MEMFILE_CREATE, 1, strLongest), 1);
    EXPECT_EQ(Open(file, 3), -4);
    EXPECT_FALSE(file.IsOpen());
}

TEST(NamedMemFile, AllOfANameShareOneBlockAndItsMailbox) {
    CNamedMemFile first, second, opener;
    std::string record(48, 'a');
    EXPECT_EQ(Open(first, MEMFILE_CREATE), 1);
    EXPECT_EQ(first.WaitRead(record.data(), 48), 0);
    EXPECT_EQ(first.WriteSignal(record.data(), 48), 1);
    EXPECT_EQ(Open(second, MEMFILE_CREATE) + Open(opener, MEMFILE_OPEN), 2);
    EXPECT_TRUE(second.IsCreator() && !opener.IsCreator());
    record.assign(48, 'b');
    EXPECT_EQ(second.WriteSignal(record.data(), 48), 0);
    for (int n : {49, 0, -1}) {
        EXPECT_EQ(opener.Read(record.data(), n) + opener.Write(record.data(), n), 0) << n;
        EXPECT_EQ(opener.WaitRead(record.data(), n), 0) << n;
    }
    EXPECT_EQ(opener.WriteAt(41, record.data(), 8) + opener.WriteAt(~0u, record.data(), 8), 0);
    EXPECT_EQ(opener.WriteAt(33, record.data(), 13), 1);
    EXPECT_EQ(opener.WaitRead(record.data(), 48), 1);
    EXPECT_EQ(record, std::string(33, 'a') + std::string(13, 'b') + "aa");
    EXPECT_EQ(first.WaitRead(record.data(), 48), 0);
    EXPECT_EQ(Open(second, MEMFILE_OPEN, 100000), -3) << "it is smaller";
    first.Close();
    EXPECT_EQ(Open(opener, MEMFILE_OPEN), -2) << "an opening releases what was open, here the last one";
    EXPECT_EQ(Open(first, MEMFILE_CREATE) + first.Read(record.data(), 48), 2);
    EXPECT_EQ(record, std::string(48, '\0')) << "a new one";
}

// Two writers and two readers: nothing is torn, lost or taken twice, and what a writer posts keeps its order.
TEST(NamedMemFile, MailboxStress) {
    using Letter = std::array<std::uint64_t, 4096>;  // a number, odd or even with the writer
    CNamedMemFile aFile[3];
    for (auto& file : aFile) ASSERT_EQ(Open(file, MEMFILE_CREATE, sizeof(Letter)), 1);
    std::atomic<int> nWriters{2}, nPosted{0}, nTaken{0};
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    auto Write = [&](CNamedMemFile& file, std::uint64_t nNumber) {
        for (Letter letter; std::chrono::steady_clock::now() < end;) {
            letter.fill(nNumber);
            if (!file.WriteSignal(&letter, sizeof letter)) continue;
            nNumber += 2;
            ++nPosted;
        }
        --nWriters;
    };
    auto Read = [&](CNamedMemFile& file) {
        std::uint64_t anLast[2]{};
        for (bool bLast = false; !bLast;) {
            bLast = nWriters == 0;
            Letter letter;
            if (!file.WaitRead(&letter, sizeof letter)) continue;
            bLast = false;
            ++nTaken;
            ASSERT_EQ(std::ranges::count(letter, letter[0]), std::ssize(letter)) << "torn";
            ASSERT_GT(letter[0], std::exchange(anLast[letter[0] % 2], letter[0])) << "twice or out of order";
        }
    };
    {
        CTestThread writer1([&] { Write(aFile[0], 1); }), writer2([&] { Write(aFile[1], 2); });
        CTestThread reader1([&] { Read(aFile[1]); }), reader2([&] { Read(aFile[2]); });
    }
    EXPECT_EQ(nTaken, nPosted);
}

}  // namespace
}  // namespace kest

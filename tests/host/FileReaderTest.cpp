#include "host/FileReader.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>

#include "support/Records.h"

namespace kest {
namespace {

class FileReader : public testing::Test {
protected:
    FileReader() { std::filesystem::create_directory(m_dir); }
    ~FileReader() override { std::filesystem::remove_all(m_dir); }

    void Append(std::span<const std::uint8_t> bytes) {
        std::ofstream file(m_path, std::ios::binary | std::ios::app);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    const std::filesystem::path m_dir = testing::TempDir() + "kest_file_reader_" + std::to_string(getpid());
    const std::filesystem::path m_path = m_dir / "bytes";
    std::error_code m_error;
};

TEST_F(FileReader, ReadsAtAnyPosition) {
    Append(Counting(100));
    const auto pReader = CFileReader::Open(m_path, m_error);
    ASSERT_TRUE(pReader);
    EXPECT_FALSE(m_error);
    constexpr LONGLONG kLast = std::numeric_limits<LONGLONG>::max();
    const struct {
        LONGLONG llPosition;
        LONG lLength;
        HRESULT hr;
        std::size_t nCame;
    } aCases[] = {
        {0, 100, S_OK, 100},      {40, 20, S_OK, 20},         {99, 1, S_OK, 1},
        {0, 0, S_OK, 0},          {90, 20, S_FALSE, 10},      {0, 101, S_FALSE, 100},
        {100, 1, S_FALSE, 0},     {1LL << 40, 5, S_FALSE, 0}, {100, 0, S_OK, 0},
        {-1, 5, E_INVALIDARG, 0}, {5, -1, E_INVALIDARG, 0},   {kLast, -1, E_INVALIDARG, 0},
    };
    for (const auto& c : aCases) {
        SCOPED_TRACE(testing::Message() << c.llPosition << " + " << c.lLength);
        std::vector<std::uint8_t> buffer(128, 0xEE);
        EXPECT_EQ(pReader->SyncRead(c.llPosition, c.lLength, buffer.data()), c.hr);
        auto expected = Counting(c.nCame, static_cast<std::uint8_t>(c.llPosition));
        expected.resize(buffer.size(), 0xEE);
        EXPECT_EQ(buffer, expected);
    }
}

TEST_F(FileReader, SeesAFileGrow) {
    Append(Counting(10));
    const auto pReader = CFileReader::Open(m_path, m_error);
    ASSERT_TRUE(pReader);
    LONGLONG llTotal = 0, llAvailable = 0;
    EXPECT_EQ(pReader->Length(&llTotal, &llAvailable), S_OK);
    EXPECT_EQ(llTotal, 10);
    Append(Counting(5, 10));
    EXPECT_EQ(pReader->Length(&llTotal, &llAvailable), S_OK);
    EXPECT_EQ(llTotal, 15);
    EXPECT_EQ(llAvailable, 15);
    EXPECT_EQ(pReader->Length(nullptr, &llAvailable), E_POINTER);
    BYTE last = 0;
    EXPECT_EQ(pReader->SyncRead(14, 1, &last), S_OK);
    EXPECT_EQ(last, 14);
}

TEST_F(FileReader, RemembersWhereItFirstFailed) {
    // The process's own memory: a page that can be read, followed by one that cannot.
    const auto nPage = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* pPages = mmap(nullptr, 2 * nPage, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pPages, MAP_FAILED);
    const auto llPages = static_cast<LONGLONG>(reinterpret_cast<std::uintptr_t>(pPages));
    const auto llHole = llPages + static_cast<LONGLONG>(nPage);
    munmap(static_cast<std::uint8_t*>(pPages) + nPage, nPage);
    const auto pReader = CFileReader::Open("/proc/self/mem", m_error);
    ASSERT_TRUE(pReader) << m_error.message();
    BYTE bytes[100];
    EXPECT_EQ(pReader->SyncRead(llPages, sizeof bytes, bytes), S_OK);
    EXPECT_EQ(pReader->GetErrorPosition(), -1);
    EXPECT_EQ(pReader->SyncRead(llHole - 40, sizeof bytes, bytes), E_FAIL);
    EXPECT_EQ(pReader->SyncRead(llHole + 10, sizeof bytes, bytes), E_FAIL);
    EXPECT_EQ(pReader->SyncRead(llPages, sizeof bytes, bytes), S_OK);
    EXPECT_EQ(pReader->GetErrorPosition(), llHole);
    munmap(pPages, nPage);
}

TEST_F(FileReader, SaysWhyItCannotOpen) {
    const auto fifo = m_dir / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const struct {
        std::filesystem::path path;
        std::errc error;
    } aCases[] = {
        {m_dir / "missing", std::errc::no_such_file_or_directory},
        {m_dir, std::errc::is_a_directory},
        {fifo, std::errc::invalid_seek},  // and nobody writes to it: opening must not block
    };
    for (const auto& c : aCases) {
        EXPECT_FALSE(CFileReader::Open(c.path, m_error)) << c.path;
        EXPECT_TRUE(m_error == c.error) << c.path << ": " << m_error.message();
    }
    Append(Counting(1));
    EXPECT_TRUE(CFileReader::Open(m_path, m_error));
    EXPECT_FALSE(m_error) << "the error of the last attempt is left";
}

}  // namespace
}  // namespace kest

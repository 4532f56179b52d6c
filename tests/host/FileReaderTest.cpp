#include "host/FileReader.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

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

TEST_F(FileReader, ReadsAtAnyPositionOfAFileThatGrows) {
    Append(Counting(60));
    const auto pReader = CFileReader::Open(m_path, m_error);
    ASSERT_TRUE(pReader);
    Append(Counting(40, 60));
    LONGLONG llTotal = 0, llAvailable = 0;
    EXPECT_EQ(pReader->Length(&llTotal, &llAvailable), S_OK);
    EXPECT_TRUE(llTotal == 100 && llAvailable == 100);
    constexpr LONGLONG kLast = std::numeric_limits<LONGLONG>::max();
    const struct {
        LONGLONG llPosition;
        LONG lLength;
        HRESULT hr;
        std::size_t nRead;
    } cases[] = {
        {0, 100, S_OK, 100},      {40, 20, S_OK, 20},         {99, 1, S_OK, 1},
        {0, 0, S_OK, 0},          {90, 20, S_FALSE, 10},      {0, 101, S_FALSE, 100},
        {100, 1, S_FALSE, 0},     {1LL << 40, 5, S_FALSE, 0}, {100, 0, S_OK, 0},
        {-1, 5, E_INVALIDARG, 0}, {5, -1, E_INVALIDARG, 0},   {kLast, -1, E_INVALIDARG, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.llPosition << " + " << c.lLength);
        std::vector<std::uint8_t> buffer(128, 0xEE);
        EXPECT_EQ(pReader->SyncRead(c.llPosition, c.lLength, buffer.data()), c.hr);
        auto expected = Counting(c.nRead, static_cast<std::uint8_t>(c.llPosition));
        expected.resize(buffer.size(), 0xEE);
        EXPECT_EQ(buffer, expected);
    }
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

}  // namespace
}  // namespace kest

#include "host/OutputFile.h"

#include <cerrno>
#include <system_error>

#include "host/CommandError.h"

namespace kest {
namespace {

constexpr std::size_t kBufferSize = 256 * 1024;

}  // namespace

COutputFile::COutputFile(const std::filesystem::path& path, bool bForce) : m_path(path) {
    if (path == "-") {
        m_path = "standard output";
        m_pFile = stdout;
        return;
    }
    std::error_code ignored;
    const auto status = std::filesystem::status(path, ignored);
    const bool bExists = std::filesystem::exists(status);
    if (std::filesystem::is_regular_file(status) && !bForce) {
        throw CCommandError(kExitBadOutput, path.string() + ": exists already; --force overwrites it");
    }
    m_pFile = std::fopen(path.c_str(), bExists ? "wb" : "wbx");
    if (!m_pFile) Fail();
    std::setvbuf(m_pFile, nullptr, _IOFBF, kBufferSize);
    m_bRemove = !bExists || std::filesystem::is_regular_file(status);
}

COutputFile::~COutputFile() {
    if (!m_pFile || m_pFile == stdout) return;
    std::fclose(m_pFile);
    std::error_code ignored;
    if (m_bRemove) std::filesystem::remove(m_path, ignored);
}

void COutputFile::Write(std::span<const std::uint8_t> bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), m_pFile) != bytes.size()) Fail();
    m_nSize += bytes.size();
}

void COutputFile::Commit() {
    if (std::fflush(m_pFile) != 0) Fail();
    if (m_pFile == stdout) return;
    std::FILE* pFile = m_pFile;
    m_pFile = nullptr;
    if (std::fclose(pFile) != 0) Fail();
}

void COutputFile::Fail() const {
    throw CCommandError(kExitBadOutput,
                        m_path.string() + ": " + std::error_code(errno, std::generic_category()).message());
}

}  // namespace kest

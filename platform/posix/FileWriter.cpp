#include "platform/FileWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace kest {

CFileWriter::CFileWriter(CFileWriter&& other) noexcept : m_hFile(std::exchange(other.m_hFile, kNone)) {}

CFileWriter& CFileWriter::operator=(CFileWriter&& other) noexcept {
    std::swap(m_hFile, other.m_hFile);
    return *this;
}

DWORD CFileWriter::Create(const std::string& strName) {
    constexpr mode_t kMode = 0666;
    Close();
    const int hFile = open(strName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, kMode);
    if (hFile < 0) return static_cast<DWORD>(errno);
    const int nError = posix_fallocate(hFile, 0, 1);  // fails in other ways for what is no regular file
    const bool bFull = nError == ENOSPC || nError == EDQUOT || nError == EFBIG;
    if (bFull || (nError == 0 && ftruncate(hFile, 0) != 0)) {
        close(hFile);
        return static_cast<DWORD>(bFull ? nError : EIO);
    }
    m_hFile = hFile;
    return 0;
}

DWORD CFileWriter::Write(std::span<const std::uint8_t> data) {
    while (!data.empty()) {
        const ssize_t nWritten = write(static_cast<int>(m_hFile), data.data(), data.size());
        if (nWritten < 0 && errno == EINTR) continue;
        if (nWritten < 0) return static_cast<DWORD>(errno);
        data = data.subspan(static_cast<std::size_t>(nWritten));
    }
    return 0;
}

void CFileWriter::Close() {
    if (IsOpen()) close(static_cast<int>(m_hFile));
    m_hFile = kNone;
}

}  // namespace kest

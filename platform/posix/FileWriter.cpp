#include "platform/FileWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace kest {
namespace {

/// Whether a new file has room for a byte. @return 0 or the error.
int FindRoom(int hFile) {
    const int nError = posix_fallocate(hFile, 0, 1);
    if (nError == ENOSPC || nError == EDQUOT || nError == EFBIG) return nError;
    return ftruncate(hFile, 0) == 0 ? 0 : errno;
}

bool IsPipe(int hFile) {
    struct stat status;
    return fstat(hFile, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

}  // namespace

DWORD CFileWriter::Create(const std::string& strName) {
    constexpr mode_t kMode = 0666;
    Close();
    constexpr int kFlags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK;
    const int hNew = open(strName.c_str(), kFlags | O_EXCL, kMode);
    const int hFile = hNew >= 0 ? hNew : open(strName.c_str(), kFlags | O_TRUNC, kMode);
    if (hFile < 0) return static_cast<DWORD>(errno);
    const int nError = hNew >= 0 ? FindRoom(hNew) : IsPipe(hFile) ? ESPIPE : 0;
    if (nError != 0) {
        close(hFile);
        if (hNew >= 0) unlink(strName.c_str());
        return static_cast<DWORD>(nError);
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

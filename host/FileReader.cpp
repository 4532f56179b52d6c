#include "host/FileReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace kest {

CComPtr<CFileReader> CFileReader::Open(const std::filesystem::path& path, std::error_code& error) {
    const int hFile =
        open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);  // a pipe without a writer must not block
    error.clear();
    struct stat info {};
    if (hFile >= 0 && fstat(hFile, &info) == 0 && S_ISDIR(info.st_mode)) {
        error = std::make_error_code(std::errc::is_a_directory);
    } else if (hFile < 0 || lseek(hFile, 0, SEEK_CUR) < 0) {
        error.assign(errno, std::generic_category());
    } else {
        return CComPtr<CFileReader>::Attach(new CFileReader(hFile));
    }
    if (hFile >= 0) close(hFile);
    return nullptr;
}

CFileReader::~CFileReader() { close(m_hFile); }

/// Reads until `dest` is full or the file ends. @return bytes read; nothing when the system cannot read: the
/// position is remembered.
std::optional<std::size_t> CFileReader::ReadAt(LONGLONG llPosition, std::span<BYTE> dest) {
    std::size_t nDone = 0;
    while (nDone < dest.size()) {
        const auto llNext = llPosition + static_cast<LONGLONG>(nDone);
        const ssize_t nRead = pread(m_hFile, dest.data() + nDone, dest.size() - nDone, llNext);
        if (nRead < 0 && errno == EINTR) continue;
        if (nRead < 0) {
            NoteError(llNext);
            return std::nullopt;
        }
        if (nRead == 0) break;
        nDone += static_cast<std::size_t>(nRead);
    }
    return nDone;
}

std::size_t CFileReader::ReadNext(std::span<BYTE> dest, const ShouldLeave&) {
    const std::size_t nRead = ReadAt(m_llNext, dest).value_or(0);
    m_llNext += static_cast<LONGLONG>(nRead);
    return nRead;
}

HRESULT CFileReader::SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) {
    if (llPosition < 0 || lLength < 0) return E_INVALIDARG;
    const auto nLength = static_cast<std::size_t>(lLength);
    const auto nRead = ReadAt(llPosition, {pBuffer, nLength});
    if (!nRead) return E_FAIL;
    return *nRead == nLength ? S_OK : S_FALSE;
}

HRESULT CFileReader::Length(LONGLONG* pTotal, LONGLONG* pAvailable) {
    if (!pTotal || !pAvailable) return E_POINTER;
    const off_t nLength = lseek(m_hFile, 0, SEEK_END);  // works on block devices, where fstat gives 0
    if (nLength < 0) return E_FAIL;
    *pTotal = *pAvailable = nLength;
    return S_OK;
}

}  // namespace kest

#include "host/FileReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <span>

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

HRESULT CFileReader::SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) {
    if (llPosition < 0 || lLength < 0) return E_INVALIDARG;
    std::span<BYTE> rest(pBuffer, static_cast<std::size_t>(lLength));
    while (!rest.empty()) {
        const ssize_t nRead = pread(m_hFile, rest.data(), rest.size(), llPosition);
        if (nRead < 0 && errno == EINTR) continue;
        if (nRead < 0) return NoteError(llPosition);
        if (nRead == 0) return S_FALSE;
        llPosition += nRead;
        rest = rest.subspan(static_cast<std::size_t>(nRead));
    }
    return S_OK;
}

HRESULT CFileReader::Length(LONGLONG* pTotal, LONGLONG* pAvailable) {
    if (!pTotal || !pAvailable) return E_POINTER;
    const off_t nLength = lseek(m_hFile, 0, SEEK_END);  // works on block devices, where fstat gives 0
    if (nLength < 0) return E_FAIL;
    *pTotal = *pAvailable = nLength;
    return S_OK;
}

HRESULT CFileReader::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IAsyncReader) return E_NOINTERFACE;
    *ppv = static_cast<IAsyncReader*>(this);
    AddRef();
    return S_OK;
}

ULONG CFileReader::AddRef() { return ++m_nRefs; }

ULONG CFileReader::Release() {
    const ULONG nRefs = --m_nRefs;
    if (nRefs == 0) delete this;
    return nRefs;
}

HRESULT CFileReader::NoteError(LONGLONG llPosition) {
    LONGLONG llNone = -1;
    m_llErrorPosition.compare_exchange_strong(llNone, llPosition);
    return E_FAIL;
}

}  // namespace kest

#include "platform/FileReader.h"

namespace kest {

CComPtr<CFileReader> CFileReader::Open(const std::filesystem::path& path, std::error_code& error) {
    const HANDLE hFile = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (hFile == INVALID_HANDLE_VALUE) {
        error.assign(static_cast<int>(GetLastError()), std::system_category());
        return nullptr;
    }
    error.clear();
    return CComPtr<CFileReader>::Attach(new CFileReader(hFile));
}

CFileReader::~CFileReader() { CloseHandle(m_hFile); }

HRESULT CFileReader::SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) {
    if (llPosition < 0 || lLength < 0) return E_INVALIDARG;
    OVERLAPPED where{};
    where.Offset = static_cast<DWORD>(llPosition);
    where.OffsetHigh = static_cast<DWORD>(llPosition >> 32);
    DWORD nRead = 0;
    if (!ReadFile(m_hFile, pBuffer, static_cast<DWORD>(lLength), &nRead, &where)) {
        return GetLastError() == ERROR_HANDLE_EOF ? S_FALSE : NoteError(llPosition);
    }
    return nRead == static_cast<DWORD>(lLength) ? S_OK : S_FALSE;
}

HRESULT CFileReader::Length(LONGLONG* pTotal, LONGLONG* pAvailable) {
    if (!pTotal || !pAvailable) return E_POINTER;
    LARGE_INTEGER length;
    if (!GetFileSizeEx(m_hFile, &length)) return E_FAIL;
    *pTotal = *pAvailable = length.QuadPart;
    return S_OK;
}

}  // namespace kest

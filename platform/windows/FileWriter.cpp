#include "platform/FileWriter.h"

namespace kest {
namespace {

HANDLE ToHandle(std::intptr_t hFile) { return reinterpret_cast<HANDLE>(hFile); }

}  // namespace

// A full disk is left to the first write: it takes nothing to make an empty file here.
DWORD CFileWriter::Create(const std::string& strName) {
    Close();
    const HANDLE hFile = CreateFileA(strName.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                     FILE_ATTRIBUTE_NORMAL, nullptr);
    if (hFile == INVALID_HANDLE_VALUE) return GetLastError();
    m_hFile = reinterpret_cast<std::intptr_t>(hFile);
    return 0;
}

DWORD CFileWriter::Write(std::span<const std::uint8_t> data) {
    while (!data.empty()) {
        DWORD nWritten = 0;
        if (!WriteFile(ToHandle(m_hFile), data.data(), static_cast<DWORD>(data.size()), &nWritten, nullptr)) {
            return GetLastError();
        }
        if (nWritten == 0) return ERROR_WRITE_FAULT;
        data = data.subspan(nWritten);
    }
    return 0;
}

void CFileWriter::Close() {
    if (IsOpen()) CloseHandle(ToHandle(m_hFile));
    m_hFile = kNone;
}

}  // namespace kest

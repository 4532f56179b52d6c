#include "filter/DumpFile.h"

#include "control/KestDemux2Control.h"
#include "graph/Guard.h"
#include "graph/MediaType.h"
#include "platform/DebugText.h"
#include "platform/Text.h"

namespace kest {

// ---------------- the file

HRESULT CDumpFile::Open(std::wstring_view strName) {
    constexpr std::size_t kLongestName = 260;
    if (strName.size() > kLongestName) return kNameTooLong;
    const auto strNarrow = ToNarrow(strName);
    if (!strNarrow || strNarrow->empty() || strNarrow->find('\0') != std::string::npos) return kInvalidName;
    std::wstring strCopy(strName);
    CAutoLock lock(m_csDump);
    if (strCopy == m_strDumpFile) m_file.Close();  // the system may refuse a second opening
    CFileWriter file;
    if (const DWORD dwError = file.Create(*strNarrow)) return HRESULT_FROM_WIN32(dwError);
    m_file = std::move(file);
    m_strDumpFile = std::move(strCopy);
    m_bFailed = false;
    return 0;
}

void CDumpFile::CloseDumpFile() {
    CAutoLock lock(m_csDump);
    m_file.Close();
    m_bFailed = false;
}

HRESULT CDumpFile::WriteDump(std::span<const std::uint8_t> data) {
    if (!m_bDumpEnabled) return 0;
    bool bFirst = false;
    HRESULT hr = 0;
    {
        CAutoLock lock(m_csDump);
        hr = Append(data);
        bFirst = hr != 0 && !m_bFailed;
        m_bFailed = hr != 0;
    }
    if (bFirst) {
        DebugText(
            hr == kInvalidName ? "dump: no file is open\n" : "dump: the file cannot be written, error %d\n",
            static_cast<int>(hr & 0xFFFF));
    }
    return hr;
}

/// Under m_csDump.
HRESULT CDumpFile::Append(std::span<const std::uint8_t> data) {
    if (!m_file.IsOpen()) return kInvalidName;
    const DWORD dwError =
        m_file.Write(data);  // apart: on Windows the next line is a macro that repeats its argument
    return HRESULT_FROM_WIN32(dwError);
}

std::wstring CDumpFile::GetName() const {
    CAutoLock lock(m_csDump);
    return m_strDumpFile;
}

// ---------------- IFileSinkFilter

HRESULT CDumpFile::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IFileSinkFilter) return GetInterface(static_cast<IFileSinkFilter*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CDumpFile::SetFileName(LPCOLESTR pszFileName, const AM_MEDIA_TYPE*) {
    if (!pszFileName) return E_POINTER;
    return Guard([&] {
        const HRESULT hr = Open(pszFileName);
        if (hr == 0) Enable(true);
        return hr;
    });
}

HRESULT CDumpFile::GetCurFile(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) {
    if (!ppszFileName) return E_POINTER;
    *ppszFileName = nullptr;
    return Guard([&] {
        *ppszFileName = CopyText(GetName());
        if (pmt) *pmt = {};
        return S_OK;
    });
}

}  // namespace kest

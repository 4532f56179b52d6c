#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <string>

#include "graph/Unknown.h"
#include "platform/CritSec.h"
#include "platform/FileWriter.h"

namespace kest {

/// The dump file: the raw input bytes as they come in. It is what the filter offers as IFileSinkFilter.
/// Aggregated with the filter.
///
/// Every operation may be called from any thread. What fails never stops the input: the first failure of a run,
/// from an opening to the closing, goes to the debugger output with the reason.
class CDumpFile final : public CImplements<CUnknown, IFileSinkFilter> {
public:
    using CImplements::CImplements;

    /// Opens the file in the place of the one that is open; one that is there is replaced.
    /// @param strName  at most 260 characters.
    /// @return 0; 123: the name is empty or cannot be converted to the system's narrow text; 206: it is longer;
    ///         HRESULT_FROM_WIN32 of the system's error. What is not 0 leaves the name before, and its file open.
    HRESULT Open(std::wstring_view strName);
    /// Ends the dump of this run. The name stays.
    void CloseDumpFile();
    /// Appends bytes while dumping is on. @return 0; 123: no file is open; the error as for Open.
    HRESULT WriteDump(std::span<const std::uint8_t> data);

    bool IsEnabled() const { return m_bDumpEnabled; }
    void Enable(bool bEnable) { m_bDumpEnabled = bEnable; }
    std::wstring GetName() const;

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    /// `Open`, and switches dumping on when that succeeds. The type is ignored. @return as Open; E_POINTER.
    HRESULT STDMETHODCALLTYPE SetFileName(LPCOLESTR pszFileName, const AM_MEDIA_TYPE* pmt) override;
    /// @param ppszFileName  receives a copy of the name, to be freed with CoTaskMemFree; null when memory is
    ///                      short.
    /// @param pmt           cleared; may be null.
    HRESULT STDMETHODCALLTYPE GetCurFile(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) override;

private:
    HRESULT Append(std::span<const std::uint8_t> data);

    mutable CCritSec m_csDump;                // guards the file, its name and m_bFailed
    CFileWriter m_file;                       // the open file
    std::wstring m_strDumpFile;               // its name, or that of the last one
    bool m_bFailed = false;                   // a failure of this run has been written out
    std::atomic<bool> m_bDumpEnabled{false};  // see Enable
};

}  // namespace kest

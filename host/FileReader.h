#pragma once

#include <filesystem>
#include <optional>
#include <system_error>

#include "host/InputReader.h"

namespace kest {

/// A file that is read at any position, as the `IAsyncReader` of a pull source. The length is looked up at
/// each call, so a file that grows is seen to grow.
class CFileReader final : public CInputReader {
public:
    /// Opens a file for reading.
    /// @param path   a regular file or a device that can be read at any position.
    /// @param error  why it could not be opened: among others no such file, no permission, is a directory,
    ///               cannot seek (a pipe).
    /// @return the reader, or none.
    static CComPtr<CFileReader> Open(const std::filesystem::path& path, std::error_code& error);

    std::size_t ReadNext(std::span<BYTE> dest, const ShouldLeave& shouldLeave) override;
    void Rewind() override { m_llNext = 0; }
    bool IsSeekable() const override { return true; }

    /// As the interface says; E_INVALIDARG for a negative position or length, E_FAIL when the system cannot
    /// read: then the position is remembered.
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) override;
    HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) override;

private:
    explicit CFileReader(int hFile) : m_hFile(hFile) {}
    ~CFileReader() override;

    std::optional<std::size_t> ReadAt(LONGLONG llPosition, std::span<BYTE> dest);

    const int m_hFile;      // open for reading, owned
    LONGLONG m_llNext = 0;  // where ReadNext goes on
};

}  // namespace kest

#pragma once

#include <atomic>
#include <filesystem>
#include <system_error>

#include "platform/ComPtr.h"
#include "platform/api/AsyncReader.h"

namespace kest {

/// A file that is read at any position, as the `IAsyncReader` of a pull source.
///
/// It serves `Length` and `SyncRead`, from any number of threads at once; the length is looked up at each
/// call, so a file that grows is seen to grow. It has no queue of requests: `RequestAllocator`, `Request`,
/// `WaitForNext` and `SyncReadAligned` return E_NOTIMPL. No operation of the interface throws.
class CFileReader final : public IAsyncReader {
public:
    /// Opens a file for reading.
    /// @param path   a regular file or a device that can be read at any position.
    /// @param error  why it could not be opened: among others no such file, no permission, is a directory,
    ///               cannot seek (a pipe).
    /// @return the reader, or none.
    static CComPtr<CFileReader> Open(const std::filesystem::path& path, std::error_code& error);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator*, ALLOCATOR_PROPERTIES*,
                                               IMemAllocator**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Request(IMediaSample*, DWORD_PTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WaitForNext(DWORD, IMediaSample**, DWORD_PTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample*) override { return E_NOTIMPL; }
    /// As the interface says; E_INVALIDARG for a negative position or length, E_FAIL when the system cannot
    /// read: then the position is remembered.
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) override;
    HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) override;
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return S_OK; }

    /// Position of the first byte that the system could not read, at the first failure; -1 while there was
    /// none. The users of a source take a failure for its end; this distinguishes the two.
    LONGLONG GetErrorPosition() const { return m_llErrorPosition; }

private:
    explicit CFileReader(int hFile) : m_hFile(hFile) {}
    ~CFileReader();

    /// Remembers the first failure. @return E_FAIL.
    HRESULT NoteError(LONGLONG llPosition);

    int m_hFile;                                  // open for reading, owned
    std::atomic<LONGLONG> m_llErrorPosition{-1};  // see GetErrorPosition
    std::atomic<ULONG> m_nRefs{1};
};

}  // namespace kest

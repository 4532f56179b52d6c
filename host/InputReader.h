#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <span>

#include "platform/ComPtr.h"
#include "platform/api/AsyncReader.h"

namespace kest {

/// The bytes that a command reads: at any position where that is possible (`SyncRead`, from any number of
/// threads at once), and from the beginning to the end (`ReadNext`, one thread at a time).
///
/// It has no queue of requests: `RequestAllocator`, `Request`, `WaitForNext` and `SyncReadAligned` return
/// E_NOTIMPL. No operation of the interface throws.
class CInputReader : public IAsyncReader {
public:
    /// Whether a wait is to end, asked every kCheckMs.
    using ShouldLeave = std::function<bool()>;
    static constexpr int kCheckMs = 20;

    /// Reads the bytes that come next, and waits until there is at least one.
    /// @return how many; 0 at the end, when the wait was ended, or when the system cannot read.
    virtual std::size_t ReadNext(std::span<BYTE> dest, const ShouldLeave& shouldLeave) = 0;
    /// Lets `ReadNext` begin at the beginning again, where the bytes can be read twice.
    virtual void Rewind() = 0;
    /// Everything can be read at any position. Otherwise that holds for the beginning, until `ReadNext`.
    virtual bool IsSeekable() const = 0;

    /// Position of the first byte that the system could not read, at the first failure; -1 while there was
    /// none. The users of a source take a failure for its end; this distinguishes the two.
    LONGLONG GetErrorPosition() const { return m_llErrorPosition; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRefs; }
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator*, ALLOCATOR_PROPERTIES*,
                                               IMemAllocator**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Request(IMediaSample*, DWORD_PTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WaitForNext(DWORD, IMediaSample**, DWORD_PTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return S_OK; }

protected:
    virtual ~CInputReader() = default;

    /// Remembers the first failure.
    void NoteError(LONGLONG llPosition);

private:
    std::atomic<LONGLONG> m_llErrorPosition{-1};  // see GetErrorPosition
    std::atomic<ULONG> m_nRefs{1};
};

}  // namespace kest

#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "platform/api/AsyncReader.h"

namespace kest {

/// A pull source in memory; lives on the stack of its test. Tests derive others from it.
class CMemoryReader : public IAsyncReader {
public:
    explicit CMemoryReader(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}

    /// Ends the source before its bytes do; they appear when the end is moved. Any thread.
    void SetEnd(std::size_t nEnd) { m_nEnd = nEnd; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator*, ALLOCATOR_PROPERTIES*,
                                               IMemAllocator**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Request(IMediaSample*, DWORD_PTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE WaitForNext(DWORD, IMediaSample**, DWORD_PTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) override {
        if (llPosition < 0 || lLength < 0) return E_INVALIDARG;
        const std::size_t nEnd = std::min(m_bytes.size(), m_nEnd.load());
        const auto nBegin = std::min(static_cast<std::size_t>(llPosition), nEnd);
        const auto nCount = std::min(static_cast<std::size_t>(lLength), nEnd - nBegin);
        if (nCount > 0) std::memcpy(pBuffer, m_bytes.data() + nBegin, nCount);
        return nCount == static_cast<std::size_t>(lLength) ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) override {
        *pTotal = *pAvailable = static_cast<LONGLONG>(std::min(m_bytes.size(), m_nEnd.load()));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return S_OK; }

private:
    const std::span<const std::uint8_t> m_bytes;
    std::atomic<std::size_t> m_nEnd{SIZE_MAX};
};

}  // namespace kest

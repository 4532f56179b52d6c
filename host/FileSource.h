#pragma once

#include <atomic>

#include "graph/BaseFilter.h"
#include "graph/BasePin.h"

namespace kest {

/// The source of a graph: a filter with one output pin, "Output", that does not deliver but lets the
/// downstream filter read at any position (IAsyncReader on the pin). Reads may come from any thread. No
/// operation of the pin's interface throws: all go straight to the reader.
class CFileSource final : public CBaseFilter {
public:
    /// @param pReader  where the bytes come from.
    explicit CFileSource(CComPtr<IAsyncReader> pReader);

    int GetPinCount() override { return 1; }
    CBasePin* GetPin(int n) override { return n == 0 ? &m_output : nullptr; }
    /// Where the last read ended, in bytes.
    LONGLONG GetPosition() const { return m_output.GetPosition(); }

private:
    /// Reads through the reader that it was given and remembers where the last read ended.
    class COutput final : public CImplements<CBasePin, IAsyncReader> {
    public:
        COutput(CFileSource* pFilter, CComPtr<IAsyncReader> pReader);
        LONGLONG GetPosition() const { return m_llPosition; }

        /// A stream of bytes, of whatever kind.
        HRESULT CheckMediaType(const CMediaType& type) override;
        HRESULT GetMediaType(int n, CMediaType& type) override;
        HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

        HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator* pPreferred, ALLOCATOR_PROPERTIES* pProps,
                                                   IMemAllocator** ppActual) override;
        HRESULT STDMETHODCALLTYPE Request(IMediaSample* pSample, DWORD_PTR dwUser) override;
        HRESULT STDMETHODCALLTYPE WaitForNext(DWORD dwTimeout, IMediaSample** ppSample,
                                              DWORD_PTR* pdwUser) override;
        HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample* pSample) override;
        HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) override;
        HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) override;
        /// Both as a reader's: there is nothing to flush where nothing is delivered.
        HRESULT STDMETHODCALLTYPE BeginFlush() override { return m_pReader->BeginFlush(); }
        HRESULT STDMETHODCALLTYPE EndFlush() override { return m_pReader->EndFlush(); }

    private:
        const CComPtr<IAsyncReader> m_pReader;
        std::atomic<LONGLONG> m_llPosition{0};  // end of the last read
    };

    CCritSec m_csPins;  // the object lock
    COutput m_output;
};

}  // namespace kest

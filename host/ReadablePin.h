#pragma once

#include <atomic>
#include <utility>

#include "graph/BasePin.h"
#include "platform/api/AsyncReader.h"

namespace kest {

/// The output pin of a source, "Output", for a stream of bytes of whatever kind, which the downstream filter
/// can read at any position (IAsyncReader on the pin). Reads may come from any thread. No operation of the
/// interface throws: all go straight to the reader.
///
/// @tparam Base  the base of a pin that delivers, CBaseOutputPin, or does not, CBasePin.
template <class Base>
class CReadablePin : public CImplements<Base, IAsyncReader> {
public:
    /// @param pReader  where the bytes come from.
    /// @param args     the arguments of the base.
    template <class... Args>
    explicit CReadablePin(CComPtr<IAsyncReader> pReader, Args... args)
        : CImplements<Base, IAsyncReader>(args...), m_pReader(std::move(pReader)) {}

    /// Where the last read ended, in bytes.
    LONGLONG GetReadPosition() const { return m_llPosition; }

    HRESULT CheckMediaType(const CMediaType& type) override {
        return type.Type() == MEDIATYPE_Stream ? S_OK : S_FALSE;
    }
    HRESULT GetMediaType(int n, CMediaType& type) override {
        return n == 0 ? type.Set(CMediaType(MEDIATYPE_Stream)) : VFW_S_NO_MORE_ITEMS;
    }
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IAsyncReader) return this->GetInterface(static_cast<IAsyncReader*>(this), ppv);
        return Base::NonDelegatingQueryInterface(riid, ppv);
    }

    HRESULT STDMETHODCALLTYPE RequestAllocator(IMemAllocator* pPreferred, ALLOCATOR_PROPERTIES* pProps,
                                               IMemAllocator** ppActual) override {
        return m_pReader->RequestAllocator(pPreferred, pProps, ppActual);
    }
    HRESULT STDMETHODCALLTYPE Request(IMediaSample* pSample, DWORD_PTR dwUser) override {
        return m_pReader->Request(pSample, dwUser);
    }
    HRESULT STDMETHODCALLTYPE WaitForNext(DWORD dwTimeout, IMediaSample** ppSample,
                                          DWORD_PTR* pdwUser) override {
        return m_pReader->WaitForNext(dwTimeout, ppSample, pdwUser);
    }
    HRESULT STDMETHODCALLTYPE SyncReadAligned(IMediaSample* pSample) override {
        return m_pReader->SyncReadAligned(pSample);
    }
    HRESULT STDMETHODCALLTYPE SyncRead(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) override {
        const HRESULT hr = m_pReader->SyncRead(llPosition, lLength, pBuffer);
        if (SUCCEEDED(hr)) m_llPosition = llPosition + lLength;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE Length(LONGLONG* pTotal, LONGLONG* pAvailable) override {
        return m_pReader->Length(pTotal, pAvailable);
    }
    /// Both as a reader's: what the pin delivers does not come through this interface.
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return m_pReader->BeginFlush(); }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return m_pReader->EndFlush(); }

private:
    const CComPtr<IAsyncReader> m_pReader;
    std::atomic<LONGLONG> m_llPosition{0};  // see GetReadPosition
};

}  // namespace kest

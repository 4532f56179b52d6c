#pragma once

#include <atomic>

#include "graph/BasePin.h"

namespace kest {

/// Base of an input pin: adds `IMemInputPin`, through which the upstream pin agrees on an allocator and delivers
/// samples. A derived class overrides `Receive`, which begins with the base's or with `CheckStreaming`.
///
/// Locking: the allocator is guarded by the object lock. `Receive` takes no lock; a derived class that must keep it
/// apart from flushes and stops has its own receive lock, taken before the object lock.
class CBaseInputPin : public CImplements<CBasePin, IMemInputPin> {
public:
    CBaseInputPin(CPinOwner* pFilter, CCritSec* pLock, HRESULT* phr, LPCWSTR pszName);

    /// Whether samples can be taken now. @return S_OK; S_FALSE while flushing; VFW_E_NOT_CONNECTED;
    ///         VFW_E_WRONG_STATE when stopped; VFW_E_RUNTIME_ERROR.
    virtual HRESULT CheckStreaming();

    /// Decommits the allocator; VFW_E_NO_ALLOCATOR.
    HRESULT Inactive() override;
    /// Releases the allocator.
    HRESULT BreakConnect() override;
    /// IMemInputPin and what the base has.
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    /// No sample is taken from here to `EndFlush`.
    HRESULT STDMETHODCALLTYPE BeginFlush() override;
    HRESULT STDMETHODCALLTYPE EndFlush() override;

    /// The allocator in use; makes one when there is none.
    HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) override;
    HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) override;
    /// E_NOTIMPL: there are none.
    HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) override;
    /// `CheckStreaming`; a sample with a type that is not acceptable ends the stream here (VFW_E_INVALIDMEDIATYPE).
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override;
    /// Calls `Receive` for the samples in order, until one is not taken with S_OK; its result is returned.
    HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample** pSamples, LONG nSamples,
                                              LONG* nSamplesProcessed) override;
    /// S_OK: it can. A pin whose `Receive` never waits overrides this with S_FALSE.
    HRESULT STDMETHODCALLTYPE ReceiveCanBlock() override { return S_OK; }

protected:
    CComPtr<IMemAllocator> m_pAllocator;   // of the samples that come in
    std::atomic<bool> m_bFlushing{false};  // between BeginFlush and EndFlush
};

}  // namespace kest

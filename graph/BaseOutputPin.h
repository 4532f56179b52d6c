#pragma once

#include "graph/BasePin.h"

namespace kest {

/// Base of an output pin: negotiates an allocator with the downstream pin and delivers samples and
/// announcements to it. A derived class says in `DecideBufferSize` what its buffers must be.
///
/// Locking: as CBasePin. The Deliver operations and `GetDeliveryBuffer` take no lock; they are for the one
/// thread that delivers, and for a flush, for any thread that holds off the first.
class CBaseOutputPin : public CBasePin {
public:
    CBaseOutputPin(CBaseFilter* pFilter, CCritSec* pLock, HRESULT* phr, LPCWSTR pszName);

    /// Chooses the allocator: the downstream pin's, when it agrees with `DecideBufferSize`, else an own one.
    /// @param pPin     the downstream pin.
    /// @param ppAlloc  gets the allocator with a reference, or null.
    virtual HRESULT DecideAllocator(IMemInputPin* pPin, IMemAllocator** ppAlloc);
    /// Sets the allocator's properties (`SetProperties`) and checks what was granted.
    /// @param pAlloc  the allocator that is tried.
    /// @param props   what the downstream pin asks for; alignment at least 1.
    virtual HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES& props) = 0;
    /// Makes an own allocator.
    virtual HRESULT InitAllocator(IMemAllocator** ppAlloc);

    /// An empty sample to fill; waits until one is free.
    /// @param pStart, pStop  times of the sample to come, 100 ns; may be null.
    /// @param dwFlags        AM_GBF flags.
    /// @return as IMemAllocator::GetBuffer; E_NOINTERFACE without an allocator.
    virtual HRESULT GetDeliveryBuffer(IMediaSample** ppSample, REFERENCE_TIME* pStart, REFERENCE_TIME* pStop,
                                      DWORD dwFlags);
    /// Hands a sample to the downstream pin; the caller keeps its reference. All of these return
    /// VFW_E_NOT_CONNECTED without one, else what it says.
    virtual HRESULT Deliver(IMediaSample* pSample);
    virtual HRESULT DeliverEndOfStream();
    virtual HRESULT DeliverBeginFlush();
    virtual HRESULT DeliverEndFlush();
    /// @param rtStart, rtStop  bounds of the segment, 100 ns.
    virtual HRESULT DeliverNewSegment(REFERENCE_TIME rtStart, REFERENCE_TIME rtStop, double dRate);

    /// Besides the base's test, the other pin must take samples (IMemInputPin), else E_NOINTERFACE.
    HRESULT CheckConnect(IPin* pPin) override;
    HRESULT BreakConnect() override;
    /// `DecideAllocator`.
    HRESULT CompleteConnect(IPin* pReceivePin) override;
    /// Commits the allocator; VFW_E_NO_ALLOCATOR.
    HRESULT Active() override;
    /// Decommits it, so that a thread in `GetDeliveryBuffer` comes back; VFW_E_NO_ALLOCATOR.
    HRESULT Inactive() override;

    /// E_UNEXPECTED: nothing comes into an output pin.
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return E_UNEXPECTED; }

protected:
    CComPtr<IMemAllocator> m_pAllocator;  // of the samples that go out
    CComPtr<IMemInputPin> m_pInputPin;    // the downstream pin's intake
};

}  // namespace kest

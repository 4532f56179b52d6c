#pragma once

#include "graph/BasePin.h"

namespace kest {

/// Base of an output pin: agrees on an allocator with the downstream pin and delivers samples, ends of stream, flushes
/// and segments to it. A derived class sets the size of its buffers in `DecideBufferSize`.
///
/// Locking: as CBasePin. The Deliver operations and `GetDeliveryBuffer` take no lock. They are for the one thread that
/// delivers; a flush may come from any thread while the connection lasts.
class CBaseOutputPin : public CBasePin {
public:
    CBaseOutputPin(CPinOwner* pFilter, CCritSec* pLock, HRESULT* phr, LPCWSTR pszName);

    /// Chooses the allocator: the downstream pin's when `DecideBufferSize` succeeds with it, else an own one.
    /// @param pPin     the downstream pin.
    /// @param ppAlloc  gets the allocator with a reference, or null.
    virtual HRESULT DecideAllocator(IMemInputPin* pPin, IMemAllocator** ppAlloc);
    /// Sets the allocator's properties (`SetProperties`) and checks those that were granted.
    /// @param pAlloc  the allocator that is tried.
    /// @param props   the downstream pin's requirements; alignment at least 1.
    virtual HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES& props) = 0;
    /// Makes an own allocator.
    virtual HRESULT InitAllocator(IMemAllocator** ppAlloc);

    /// An empty sample to fill; waits until one is free.
    /// @param pStart, pStop  times that the sample will have, 100 ns; may be null.
    /// @param dwFlags        AM_GBF flags.
    /// @return as IMemAllocator::GetBuffer; E_NOINTERFACE without an allocator.
    virtual HRESULT GetDeliveryBuffer(IMediaSample** ppSample, REFERENCE_TIME* pStart, REFERENCE_TIME* pStop,
                                      DWORD dwFlags);
    /// Calls the downstream pin; the caller keeps its reference to the sample. All of these return the result of the
    /// downstream pin, or VFW_E_NOT_CONNECTED.
    virtual HRESULT Deliver(IMediaSample* pSample);
    virtual HRESULT DeliverEndOfStream();
    virtual HRESULT DeliverBeginFlush();
    virtual HRESULT DeliverEndFlush();
    /// @param rtStart, rtStop  bounds of the segment, 100 ns.
    virtual HRESULT DeliverNewSegment(REFERENCE_TIME rtStart, REFERENCE_TIME rtStop, double dRate);

    /// Besides the base's test, the other pin must have IMemInputPin, else E_NOINTERFACE.
    HRESULT CheckConnect(IPin* pPin) override;
    HRESULT BreakConnect() override;
    /// `DecideAllocator`.
    HRESULT CompleteConnect(IPin* pReceivePin) override;
    /// Commits the allocator; VFW_E_NO_ALLOCATOR.
    HRESULT Active() override;
    /// Decommits it, which ends a wait in `GetDeliveryBuffer`; VFW_E_NO_ALLOCATOR.
    HRESULT Inactive() override;

    /// E_UNEXPECTED: these are for input pins.
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return E_UNEXPECTED; }

protected:
    CComPtr<IMemAllocator> m_pAllocator;  // of the samples that go out
    CComPtr<IMemInputPin> m_pInputPin;    // the downstream pin
};

}  // namespace kest

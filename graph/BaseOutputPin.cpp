#include "graph/BaseOutputPin.h"

#include "graph/MemAllocator.h"

namespace kest {

CBaseOutputPin::CBaseOutputPin(CPinOwner* pFilter, CCritSec* pLock, HRESULT* phr, LPCWSTR pszName)
    : CBasePin(pFilter, pLock, phr, pszName, PINDIR_OUTPUT) {}

// ---------------- connection

HRESULT CBaseOutputPin::CheckConnect(IPin* pPin) {
    if (const HRESULT hr = CBasePin::CheckConnect(pPin); FAILED(hr)) return hr;
    return pPin->QueryInterface(IID_IMemInputPin, reinterpret_cast<void**>(m_pInputPin.Put()));
}

HRESULT CBaseOutputPin::BreakConnect() {
    if (m_pAllocator) m_pAllocator->Decommit();
    m_pAllocator = nullptr;
    m_pInputPin = nullptr;
    return S_OK;
}

HRESULT CBaseOutputPin::CompleteConnect(IPin*) {
    return DecideAllocator(m_pInputPin.Get(), m_pAllocator.Put());
}

HRESULT CBaseOutputPin::DecideAllocator(IMemInputPin* pPin, IMemAllocator** ppAlloc) {
    *ppAlloc = nullptr;
    ALLOCATOR_PROPERTIES required{};
    pPin->GetAllocatorRequirements(&required);  // a pin without requirements leaves them as they are
    if (required.cbAlign == 0) required.cbAlign = 1;

    auto Try = [&](const CComPtr<IMemAllocator>& pAlloc) {
        ALLOCATOR_PROPERTIES props = required;
        HRESULT hr = DecideBufferSize(pAlloc.Get(), props);
        if (SUCCEEDED(hr)) hr = pPin->NotifyAllocator(pAlloc.Get(), FALSE);
        if (SUCCEEDED(hr)) *ppAlloc = CComPtr(pAlloc).Detach();
        return hr;
    };
    CComPtr<IMemAllocator> pAlloc;
    if (SUCCEEDED(pPin->GetAllocator(pAlloc.Put())) && pAlloc && SUCCEEDED(Try(pAlloc))) return S_OK;
    const HRESULT hr = InitAllocator(pAlloc.Put());
    return SUCCEEDED(hr) ? Try(pAlloc) : hr;
}

HRESULT CBaseOutputPin::InitAllocator(IMemAllocator** ppAlloc) { return CreateMemoryAllocator(ppAlloc); }

// ---------------- states

HRESULT CBaseOutputPin::Active() { return m_pAllocator ? m_pAllocator->Commit() : VFW_E_NO_ALLOCATOR; }

HRESULT CBaseOutputPin::Inactive() {
    m_bRunTimeError = false;
    return m_pAllocator ? m_pAllocator->Decommit() : VFW_E_NO_ALLOCATOR;
}

// ---------------- delivery

HRESULT CBaseOutputPin::GetDeliveryBuffer(IMediaSample** ppSample, REFERENCE_TIME* pStart,
                                          REFERENCE_TIME* pStop, DWORD dwFlags) {
    return m_pAllocator ? m_pAllocator->GetBuffer(ppSample, pStart, pStop, dwFlags) : E_NOINTERFACE;
}

HRESULT CBaseOutputPin::Deliver(IMediaSample* pSample) {
    return m_pInputPin ? m_pInputPin->Receive(pSample) : VFW_E_NOT_CONNECTED;
}

HRESULT CBaseOutputPin::DeliverEndOfStream() {
    return m_Connected ? m_Connected->EndOfStream() : VFW_E_NOT_CONNECTED;
}

HRESULT CBaseOutputPin::DeliverBeginFlush() {
    return m_Connected ? m_Connected->BeginFlush() : VFW_E_NOT_CONNECTED;
}

HRESULT CBaseOutputPin::DeliverEndFlush() {
    return m_Connected ? m_Connected->EndFlush() : VFW_E_NOT_CONNECTED;
}

HRESULT CBaseOutputPin::DeliverNewSegment(REFERENCE_TIME rtStart, REFERENCE_TIME rtStop, double dRate) {
    return m_Connected ? m_Connected->NewSegment(rtStart, rtStop, dRate) : VFW_E_NOT_CONNECTED;
}

}  // namespace kest

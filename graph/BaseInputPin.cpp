#include "graph/BaseInputPin.h"

#include "graph/Guard.h"
#include "graph/MemAllocator.h"

namespace kest {

CBaseInputPin::CBaseInputPin(CPinOwner* pFilter, CCritSec* pLock, HRESULT* phr, LPCWSTR pszName)
    : CImplements(pFilter, pLock, phr, pszName, PINDIR_INPUT) {}

HRESULT CBaseInputPin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IMemInputPin) return GetInterface(static_cast<IMemInputPin*>(this), ppv);
    return CBasePin::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CBaseInputPin::CheckStreaming() {
    if (IsStopped()) return VFW_E_WRONG_STATE;  // first: connections change in this state alone
    if (!IsConnected()) return VFW_E_NOT_CONNECTED;
    if (m_bFlushing) return S_FALSE;
    return m_bRunTimeError ? VFW_E_RUNTIME_ERROR : S_OK;
}

HRESULT CBaseInputPin::Inactive() {
    m_bRunTimeError = false;
    m_bFlushing = false;
    return m_pAllocator ? m_pAllocator->Decommit() : VFW_E_NO_ALLOCATOR;
}

HRESULT CBaseInputPin::BreakConnect() {
    if (m_pAllocator) m_pAllocator->Decommit();
    m_pAllocator = nullptr;
    return S_OK;
}

HRESULT CBaseInputPin::BeginFlush() {
    CAutoLock lock(*m_pLock);
    m_bFlushing = true;
    return S_OK;
}

HRESULT CBaseInputPin::EndFlush() {
    CAutoLock lock(*m_pLock);
    m_bFlushing = false;
    m_bRunTimeError = false;
    return S_OK;
}

HRESULT CBaseInputPin::GetAllocator(IMemAllocator** ppAllocator) {
    if (!ppAllocator) return E_POINTER;
    *ppAllocator = nullptr;
    CAutoLock lock(*m_pLock);
    if (!m_pAllocator) {
        if (const HRESULT hr = CreateMemoryAllocator(m_pAllocator.Put()); FAILED(hr)) return hr;
    }
    *ppAllocator = CComPtr(m_pAllocator).Detach();
    return S_OK;
}

HRESULT CBaseInputPin::NotifyAllocator(IMemAllocator* pAllocator, BOOL) {
    if (!pAllocator) return E_POINTER;
    CAutoLock lock(*m_pLock);
    m_pAllocator = pAllocator;
    return S_OK;
}

HRESULT CBaseInputPin::GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) { return E_NOTIMPL; }

HRESULT CBaseInputPin::Receive(IMediaSample* pSample) {
    if (!pSample) return E_POINTER;
    return Guard([&] {
        if (const HRESULT hr = CheckStreaming(); hr != S_OK) return hr;
        AM_MEDIA_TYPE* pType = nullptr;
        const HRESULT hr = pSample->GetMediaType(&pType);
        const MediaTypePtr pChanged(pType);
        if (hr == E_OUTOFMEMORY) return hr;
        if (hr != S_OK || !pChanged || CheckMediaType(CMediaType(*pChanged)) == S_OK) return S_OK;
        m_bRunTimeError = true;
        EndOfStream();
        return VFW_E_INVALIDMEDIATYPE;
    });
}

HRESULT CBaseInputPin::ReceiveMultiple(IMediaSample** pSamples, LONG nSamples, LONG* nSamplesProcessed) {
    if (!pSamples || !nSamplesProcessed) return E_POINTER;
    HRESULT hr = S_OK;
    for (*nSamplesProcessed = 0; *nSamplesProcessed < nSamples; ++*nSamplesProcessed) {
        hr = Guard([&] { return Receive(pSamples[*nSamplesProcessed]); });
        if (hr != S_OK) break;
    }
    return hr;
}

}  // namespace kest

#include "graph/MemAllocator.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <new>
#include <utility>

#include "graph/Guard.h"

namespace kest {

HRESULT CreateMemoryAllocator(IMemAllocator** ppAllocator) {
    if (!ppAllocator) return E_POINTER;
    *ppAllocator = CComPtr<IMemAllocator>(new (std::nothrow) CMemAllocator).Detach();
    return *ppAllocator ? S_OK : E_OUTOFMEMORY;
}

HRESULT CMemAllocator::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IMemAllocator) return GetInterface(static_cast<IMemAllocator*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CMemAllocator::SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) {
    if (!pRequest || !pActual) return E_POINTER;
    if (pRequest->cBuffers < 0 || pRequest->cbBuffer < 0 || pRequest->cbPrefix < 0) return E_INVALIDARG;
    if (pRequest->cbAlign < 1 || !std::has_single_bit(static_cast<ULONG>(pRequest->cbAlign))) {
        return VFW_E_BADALIGN;
    }
    const LONGLONG nAlign = pRequest->cbAlign;
    const LONGLONG nSize = (LONGLONG{pRequest->cbBuffer} + pRequest->cbPrefix + nAlign - 1) / nAlign * nAlign;
    if (nSize > std::numeric_limits<LONG>::max()) return E_INVALIDARG;

    CAutoLock lock(m_csLock);
    if (m_bCommitted) return VFW_E_ALREADY_COMMITTED;
    if (HasBuffersOutstanding()) return VFW_E_BUFFERS_OUTSTANDING;
    m_props = *pRequest;
    m_props.cbBuffer = static_cast<LONG>(nSize - pRequest->cbPrefix);
    *pActual = m_props;
    return S_OK;
}

HRESULT CMemAllocator::GetProperties(ALLOCATOR_PROPERTIES* pProps) {
    if (!pProps) return E_POINTER;
    CAutoLock lock(m_csLock);
    *pProps = m_props;
    return S_OK;
}

HRESULT CMemAllocator::Commit() {
    return Guard([&] {
        CAutoLock lock(m_csLock);
        if (m_bCommitted) return S_OK;
        if (m_props.cBuffers == 0 || m_props.cbBuffer == 0) return VFW_E_SIZENOTSET;
        // Samples that are still in use after a decommit have kept the memory: it is used again as it is.
        if (m_apSamples.empty()) Allocate();
        m_bCommitted = true;
        return S_OK;
    });
}

HRESULT CMemAllocator::Decommit() {
    CAutoLock lock(m_csLock);
    m_bCommitted = false;
    if (!HasBuffersOutstanding()) Free();
    m_evChanged.Set();
    return S_OK;
}

/// Makes the samples. Throws std::bad_alloc with nothing changed.
void CMemAllocator::Allocate() {
    const auto nPrefix = static_cast<std::size_t>(m_props.cbPrefix);
    const auto nBuffer = static_cast<std::size_t>(m_props.cbBuffer);
    const auto nBuffers = static_cast<std::size_t>(m_props.cBuffers);
    const std::align_val_t nAlign{std::max<std::size_t>(static_cast<std::size_t>(m_props.cbAlign), 16)};
    const std::size_t nStride = nPrefix + nBuffer;
    auto* pBytes = static_cast<BYTE*>(::operator new(nStride* nBuffers, nAlign));
    std::unique_ptr<BYTE, AlignedDelete> pMemory(pBytes, AlignedDelete{nAlign});
    std::vector<std::unique_ptr<CMediaSample>> apSamples;
    std::vector<CMediaSample*> apFree;
    apSamples.reserve(nBuffers);
    apFree.reserve(nBuffers);
    for (std::size_t i = 0; i < nBuffers; ++i) {
        const std::span buffer(pBytes + i * nStride + nPrefix, nBuffer);
        apSamples.push_back(std::make_unique<CMediaSample>(*this, buffer));
        apFree.push_back(apSamples.back().get());
    }
    m_pMemory = std::move(pMemory);
    m_apSamples = std::move(apSamples);
    m_apFree = std::move(apFree);
}

void CMemAllocator::Free() {
    m_apFree.clear();
    m_apSamples.clear();
    m_pMemory.reset();
}

HRESULT CMemAllocator::GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME*, REFERENCE_TIME*, DWORD dwFlags) {
    if (!ppBuffer) return E_POINTER;
    *ppBuffer = nullptr;
    return Guard([&] {
        for (;;) {
            {
                CAutoLock lock(m_csLock);
                if (!m_bCommitted) return VFW_E_NOT_COMMITTED;
                if (!m_apFree.empty()) {
                    CMediaSample* pSample = m_apFree.back();
                    m_apFree.pop_back();
                    pSample->HandOut();
                    AddRef();  // given back in ReleaseBuffer
                    *ppBuffer = pSample;
                    return S_OK;
                }
                if (dwFlags & AM_GBF_NOWAIT) return VFW_E_TIMEOUT;
                m_evChanged.Reset();
            }
            m_evChanged.Wait();
        }
    });
}

HRESULT CMemAllocator::ReleaseBuffer(IMediaSample* pBuffer) {
    if (!pBuffer) return E_POINTER;
    {
        CAutoLock lock(m_csLock);
        m_apFree.push_back(static_cast<CMediaSample*>(pBuffer));  // within its capacity
        if (!m_bCommitted && !HasBuffersOutstanding()) Free();
        m_evChanged.Set();
    }
    Release();
    return S_OK;
}

}  // namespace kest

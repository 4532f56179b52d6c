#include "graph/MediaSample.h"

#include <new>
#include <utility>

namespace kest {

CMediaSample::CMediaSample(IMemAllocator& allocator, std::span<BYTE> buffer)
    : m_allocator(allocator), m_buffer(buffer) {}

void CMediaSample::HandOut() {
    m_nActualLength = GetSize();
    m_rtStart.reset();
    m_rtStop.reset();
    m_mediaTimes.reset();
    m_pmtChanged.reset();
    m_bSyncPoint = m_bPreroll = m_bDiscontinuity = false;
    m_nRefs = 1;
}

HRESULT CMediaSample::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IMediaSample && riid != IID_IUnknown) return E_NOINTERFACE;
    *ppv = static_cast<IMediaSample*>(this);
    AddRef();
    return S_OK;
}

ULONG CMediaSample::Release() {
    const ULONG nRefs = --m_nRefs;
    if (nRefs == 0) m_allocator.ReleaseBuffer(this);  // may be the end of the allocator, and of this
    return nRefs;
}

HRESULT CMediaSample::GetPointer(BYTE** ppBuffer) {
    if (!ppBuffer) return E_POINTER;
    *ppBuffer = m_buffer.data();
    return S_OK;
}

HRESULT CMediaSample::GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) {
    if (!pTimeStart || !pTimeEnd) return E_POINTER;
    if (!m_rtStart) return VFW_E_SAMPLE_TIME_NOT_SET;
    *pTimeStart = *m_rtStart;
    *pTimeEnd = m_rtStop.value_or(*m_rtStart + 1);
    return m_rtStop ? S_OK : VFW_S_NO_STOP_TIME;
}

HRESULT CMediaSample::SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) {
    m_rtStart.reset();
    m_rtStop.reset();
    if (!pTimeStart) return S_OK;
    m_rtStart = *pTimeStart;
    if (pTimeEnd) m_rtStop = *pTimeEnd;
    return S_OK;
}

HRESULT CMediaSample::SetSyncPoint(BOOL bIsSyncPoint) {
    m_bSyncPoint = bIsSyncPoint != FALSE;
    return S_OK;
}

HRESULT CMediaSample::SetPreroll(BOOL bIsPreroll) {
    m_bPreroll = bIsPreroll != FALSE;
    return S_OK;
}

HRESULT CMediaSample::SetActualDataLength(LONG nLength) {
    if (nLength < 0 || nLength > GetSize()) return VFW_E_BUFFER_OVERFLOW;
    m_nActualLength = nLength;
    return S_OK;
}

HRESULT CMediaSample::GetMediaType(AM_MEDIA_TYPE** ppMediaType) {
    if (!ppMediaType) return E_POINTER;
    *ppMediaType = nullptr;
    if (!m_pmtChanged) return S_FALSE;
    *ppMediaType = CreateMediaType(*m_pmtChanged);
    return *ppMediaType ? S_OK : E_OUTOFMEMORY;
}

HRESULT CMediaSample::SetMediaType(AM_MEDIA_TYPE* pMediaType) {
    std::unique_ptr<CMediaType> pChanged;
    if (pMediaType) {
        pChanged.reset(new (std::nothrow) CMediaType);
        if (!pChanged || FAILED(pChanged->Set(*pMediaType))) return E_OUTOFMEMORY;
    }
    m_pmtChanged = std::move(pChanged);
    return S_OK;
}

HRESULT CMediaSample::SetDiscontinuity(BOOL bDiscontinuity) {
    m_bDiscontinuity = bDiscontinuity != FALSE;
    return S_OK;
}

HRESULT CMediaSample::GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) {
    if (!pTimeStart || !pTimeEnd) return E_POINTER;
    if (!m_mediaTimes) return VFW_E_MEDIA_TIME_NOT_SET;
    *pTimeStart = m_mediaTimes->llStart;
    *pTimeEnd = m_mediaTimes->llStop;
    return S_OK;
}

HRESULT CMediaSample::SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) {
    m_mediaTimes.reset();
    if (!pTimeStart) return S_OK;
    if (!pTimeEnd) return E_POINTER;
    m_mediaTimes = {*pTimeStart, *pTimeEnd};
    return S_OK;
}

}  // namespace kest

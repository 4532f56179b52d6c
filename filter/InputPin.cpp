#include "filter/InputPin.h"

#include <cassert>

#include "demux/StreamTypeProbe.h"
#include "filter/Identifiers.h"
#include "filter/KestDemux2Filter.h"
#include "platform/DebugText.h"

namespace kest {

CKestDemux2InputPin::CKestDemux2InputPin(CKestDemux2Filter* pDemuxFilter, CCritSec* pLock, HRESULT* phr)
    : CBaseInputPin(pDemuxFilter, pLock, phr, L"Input"), m_pDemuxFilter(pDemuxFilter) {
    assert(pDemuxFilter != nullptr);
}

// ---------------- connection

HRESULT CKestDemux2InputPin::CheckConnect(IPin* pPin) {
    if (const HRESULT hr = CBaseInputPin::CheckConnect(pPin); FAILED(hr)) return hr;
    CComPtr<IAsyncReader> pReader;
    pPin->QueryInterface(IID_IAsyncReader, reinterpret_cast<void**>(pReader.Put()));
    m_pDemuxFilter->SetPushSource(!pReader);
    if (!pReader) return S_OK;
    CComPtr<IMemAllocator> pAlloc;
    if (const HRESULT hr = GetAllocator(pAlloc.Put()); FAILED(hr)) return hr;
    return m_PullPin.Connect(pPin, pAlloc.Get(), false);
}

// Both the end of a connection and every failed attempt come here. An attempt is made for each candidate
// type, and the next one needs the pull pin empty.
HRESULT CKestDemux2InputPin::BreakConnect() {
    m_pDemuxFilter->DetachReader();
    m_PullPin.Disconnect();
    m_pDemuxFilter->SetPushSource(true);
    return CBaseInputPin::BreakConnect();
}

// The core may be an older one, made for an earlier connection: then it has no reader yet.
HRESULT CKestDemux2InputPin::CompleteConnect(IPin* pReceivePin) {
    m_pDemuxFilter->AttachReader(GetReader().Get());
    return CBaseInputPin::CompleteConnect(pReceivePin);
}

// ---------------- types and working mode

HRESULT CKestDemux2InputPin::CheckMediaType(const CMediaType&) {
    Trace("==>CheckMediaType\n");
    CAutoLock lock(*m_pLock);
    if (m_pDemuxFilter->IsPushSource()) return S_FALSE;
    if (IsConnected()) return S_OK;  // the core may be reading the source that a probe would read
    return ApplyStreamClass(m_pDemuxFilter->ClassifyStream());
}

HRESULT CKestDemux2InputPin::GetMediaType(int n, CMediaType& type) {
    CAutoLock lock(*m_pLock);
    if (m_pDemuxFilter->IsPushSource()) return VFW_S_NO_MORE_ITEMS;
    if (n == 0) return type.Set(m_mtPreferred);
    return n == 1 ? type.Set(CMediaType()) : VFW_S_NO_MORE_ITEMS;
}

HRESULT CKestDemux2InputPin::ApplyStreamClass(int nClass) {
    switch (nClass) {
        case kClassProgramMpeg4:
            m_mtPreferred = CMediaType(MEDIATYPE_Stream, kSubtypeMpeg4ProgramStream);
            break;
        case kClassTransportMpeg12:
        case kClassProgramMpeg12:
            m_mtPreferred = CMediaType(MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_VIDEO);
            break;
        case kClassMpeg4VideoEs:
        case kClassTransportMpeg4:
        case kClassMpeg1System: break;
        default: return S_FALSE;
    }
    SetWorkingMode(static_cast<EWorkingMode>(nClass));
    return S_OK;
}

void CKestDemux2InputPin::SetWorkingMode(EWorkingMode mode) {
    if (mode == m_nWorkingMode) return;
    Trace("==>SetWorkingMode %s\n", FindWorkingMode(mode).pszName);
    m_pDemuxFilter->PrepareWorkingMode(mode);
    m_nWorkingMode = mode;
}

// ---------------- flushing

HRESULT CKestDemux2InputPin::BeginFlush() {
    CAutoLock lock(m_csReceive);
    return CBaseInputPin::BeginFlush();
}

HRESULT CKestDemux2InputPin::EndFlush() {
    CAutoLock lock(m_csReceive);
    return CBaseInputPin::EndFlush();
}

}  // namespace kest

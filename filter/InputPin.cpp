#include "filter/InputPin.h"

#include "control/Identifiers.h"
#include "graph/Guard.h"
#include "platform/DebugText.h"

namespace kest {

CKestDemux2InputPin::CKestDemux2InputPin(CPinOwner* pFilter, CSource& source, CDemuxPath& path,
                                         CCritSec* pLock, HRESULT* phr)
    : CBaseInputPin(pFilter, pLock, phr, L"Input"), m_source(source), m_path(path) {}

// ---------------- connection: a step that fails has a result code, so that BreakConnect undoes it

HRESULT CKestDemux2InputPin::CheckConnect(IPin* pPin) {
    return Guard([&] {
        if (const HRESULT hr = CBaseInputPin::CheckConnect(pPin); FAILED(hr)) return hr;
        if (const HRESULT hr = m_source.Connect(pPin); FAILED(hr) || m_source.IsPushSource()) return hr;
        CComPtr<IMemAllocator> pAlloc;  // the base keeps it for the connection
        return GetAllocator(pAlloc.Put());
    });
}

// Both the end of a connection and every failed attempt come here. An attempt is made for each candidate
// type, and the next one needs the source without a reader.
HRESULT CKestDemux2InputPin::BreakConnect() {
    m_path.SetReader(nullptr);
    m_source.Disconnect();
    return CBaseInputPin::BreakConnect();
}

HRESULT CKestDemux2InputPin::CompleteConnect(IPin* pReceivePin) {
    return Guard([&] {
        m_path.SetReader(m_source.GetReader().Get());
        return CBaseInputPin::CompleteConnect(pReceivePin);
    });
}

// ---------------- types and working mode

HRESULT CKestDemux2InputPin::CheckMediaType(const CMediaType&) {
    return Guard([this] {
        Trace("==>CheckMediaType\n");
        CAutoLock lock(*m_pLock);
        if (m_source.IsPushSource()) return S_FALSE;
        if (IsConnected()) return S_OK;  // the path may be reading the source that a probe would read
        return ApplyStreamClass(m_source.ClassifyStream());
    });
}

HRESULT CKestDemux2InputPin::GetMediaType(int n, CMediaType& type) {
    return Guard([&] {
        CAutoLock lock(*m_pLock);
        if (m_source.IsPushSource()) return VFW_S_NO_MORE_ITEMS;
        if (n == 0) return type.Set(m_mtPreferred);
        return n == 1 ? type.Set(CMediaType()) : VFW_S_NO_MORE_ITEMS;
    });
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
    return SetWorkingMode(static_cast<EWorkingMode>(nClass));
}

HRESULT CKestDemux2InputPin::SetWorkingMode(EWorkingMode mode) {
    if (mode == m_path.GetWorkingMode()) return S_OK;
    Trace("==>SetWorkingMode %s\n", FindWorkingMode(mode).pszName);
    return m_path.EnterMode(mode);
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

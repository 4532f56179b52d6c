#include "filter/InputPin.h"

#include <algorithm>
#include <optional>
#include <span>

#include "control/Identifiers.h"
#include "graph/Guard.h"
#include "platform/DebugText.h"

namespace kest {

CKestDemux2InputPin::CKestDemux2InputPin(CPinOwner* pFilter, const Parts& parts, CCritSec* pLock,
                                         HRESULT* phr)
    : CBaseInputPin(pFilter, pLock, phr, L"Input"), m_parts(parts) {}

// ---------------- connection: a step that fails has a result code, so that BreakConnect undoes it

HRESULT CKestDemux2InputPin::CheckConnect(IPin* pPin) {
    return Guard([&] {
        if (const HRESULT hr = CBaseInputPin::CheckConnect(pPin); FAILED(hr)) return hr;
        if (const HRESULT hr = m_parts.source.Connect(pPin); FAILED(hr) || m_parts.source.IsPushSource())
            return hr;
        CComPtr<IMemAllocator> pAlloc;  // the base keeps it for the connection
        return GetAllocator(pAlloc.Put());
    });
}

// Both the end of a connection and every failed attempt come here. An attempt is made for each candidate
// type, and the next one needs the source without a reader.
HRESULT CKestDemux2InputPin::BreakConnect() {
    m_parts.path.SetReader(nullptr);
    m_parts.source.Disconnect();
    return CBaseInputPin::BreakConnect();
}

HRESULT CKestDemux2InputPin::CompleteConnect(IPin* pReceivePin) {
    return Guard([&] {
        m_parts.source.SearchByTime(m_parts.switches.IsOn(ESwitch::SeekByTime));
        m_parts.path.SetReader(m_parts.source.GetReader().Get());
        if (m_parts.switches.IsOn(ESwitch::TrueTypes)) m_parts.source.Describe();
        return CBaseInputPin::CompleteConnect(pReceivePin);
    });
}

// ---------------- types and working mode

HRESULT CKestDemux2InputPin::CheckMediaType(const CMediaType&) {
    return Guard([this] {
        Trace("==>CheckMediaType\n");
        CAutoLock lock(*m_pLock);
        if (!m_pFilter->MayChangeConnections()) return IsConnected() ? S_OK : VFW_E_NOT_STOPPED;
        if (IsConnected()) return S_OK;  // the path may be reading the source that a probe would read
        return ApplyStreamClass(ClassifySource());
    });
}

HRESULT CKestDemux2InputPin::GetMediaType(int n, CMediaType& type) {
    return Guard([&] {
        CAutoLock lock(*m_pLock);
        if (m_parts.source.IsPushSource() &&
            m_parts.switches.Get(ESwitch::PushStreamClass) == kClassNotRecognised) {
            return VFW_S_NO_MORE_ITEMS;
        }
        if (n == 0) return type.Set(m_mtPreferred);
        return n == 1 ? type.Set(CMediaType()) : VFW_S_NO_MORE_ITEMS;
    });
}

int CKestDemux2InputPin::ClassifySource() {
    if (m_parts.source.IsPushSource()) return m_parts.switches.Get(ESwitch::PushStreamClass);
    return m_parts.source.ClassifyStream(m_parts.switches.IsOn(ESwitch::AdmitAll),
                                         m_parts.switches.IsOn(ESwitch::AssumeMap));
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
    if (mode != m_parts.path.GetWorkingMode()) {
        Trace("==>SetWorkingMode %s\n", FindWorkingMode(mode).pszName);
    }
    const HRESULT hr = m_parts.path.BeginConnection(mode);
    m_parts.publisher.Publish(static_cast<std::uint32_t>(m_parts.path.GetWorkingMode()),
                              m_parts.sender.GetSettingsPtr()->Get());
    return hr;
}

// ---------------- samples

HRESULT CKestDemux2InputPin::Receive(IMediaSample* pSample) {
    if (!pSample) return E_POINTER;
    return Guard([&] {
        CheckAndResetDemux();
        CAutoLock lock(m_csReceive);
        if (const HRESULT hr = CheckStreaming(); hr != S_OK) {
            DebugText("*****************Demxu is not ready yet!!!*************");
            return hr;
        }
        BYTE* pBytes = nullptr;
        if (const HRESULT hr = pSample->GetPointer(&pBytes); FAILED(hr)) return hr;
        const LONG lLength = pSample->GetActualDataLength();
        const std::span bytes(pBytes, static_cast<std::size_t>(std::max<LONG>(lLength, 0)));
        return m_parts.intake.Take(bytes) ? S_OK : S_FALSE;
    });
}

// Before any lock: the reset takes the state lock, under which others end the waits of a sample.
void CKestDemux2InputPin::CheckAndResetDemux() {
    if (m_parts.resets.CheckNeedReset() == -1) {
        Trace(
            "********************************\n Do reset demux filter here!!!!! "
            "\n******************************************\n");
        m_parts.resets.ResetDemux();
    }
    if (m_parts.resets.CheckNeedReset() == -2) {
        Trace(
            "********************************\n Do reset demux filter here!!!!! because  a/v data losted "
            "sync a lot "
            "we have to do it!!!\n******************************************\n");
        m_parts.resets.ResetDemux();
    }
}

HRESULT CKestDemux2InputPin::EndOfStream() {
    return Guard([this] {
        if (!m_parts.intake.WaitUntilDelivered([this] { return CheckStreaming() != S_OK; })) return S_OK;
        m_parts.path.DeliverEnd();
        return CBaseInputPin::EndOfStream();
    });
}

// ---------------- flushing

/// Does a step of a flush while no sample is being received.
template <class Step>
HRESULT CKestDemux2InputPin::WithoutSample(Step step) {
    return Guard([&] {
        std::optional<CIntake::CHold> hold;
        {
            CAutoLock lock(*m_pLock);  // without it the path may change
            hold.emplace(m_parts.intake);
        }
        CAutoLock lock(m_csReceive);
        return step();
    });
}

HRESULT CKestDemux2InputPin::BeginFlush() {
    return WithoutSample([this] { return CBaseInputPin::BeginFlush(); });
}

HRESULT CKestDemux2InputPin::EndFlush() {
    return WithoutSample([this] { return CBaseInputPin::EndFlush(); });
}

}  // namespace kest

#include "pins/AudioOutputPin.h"

#include "platform/DebugText.h"

namespace kest {
namespace {

/// MPEG-1 audio, layer II: what every decoder behind this pin is offered, whatever the stream turns out to
/// be.
CMediaType MakeAudioType() {
    MPEG1WAVEFORMAT format{};
    format.wfx.wFormatTag = WAVE_FORMAT_MPEG;
    format.wfx.nChannels = 2;
    format.wfx.nSamplesPerSec = 44100;
    format.wfx.nAvgBytesPerSec = 48000;
    format.wfx.nBlockAlign = 1152;
    format.wfx.cbSize = 22;
    format.fwHeadLayer = 2;  // ACM_MPEG_LAYER2
    format.dwHeadBitrate = 384000;
    format.fwHeadMode = 1;  // stereo
    format.fwHeadModeExt = 1;
    format.wHeadEmphasis = 1;  // none
    format.fwHeadFlags = 24;   // protection bit, MPEG-1 id
    CMediaType type(MEDIATYPE_Audio, MEDIASUBTYPE_MPEG1AudioPayload);
    type.SetFormatType(FORMAT_WaveFormatEx);
    type.SetFormat(format);
    return type;
}

}  // namespace

CKestDemux2AudioOutputPin::CKestDemux2AudioOutputPin(CPinOwner* pFilter, IDemuxFilterSite* pSite,
                                                     CAvTiming& timing, CCritSec* pLock, HRESULT* phr)
    : CDemuxOutputPin({.pin = EPin::Audio,
                       .pszName = L"Audio Output",
                       .nBlockSize = 32768,
                       .nBuffers = 5,
                       .nBufferSize = 65536,
                       .bGate = false},
                      pFilter, pSite, timing, pLock, phr),
      m_mtOffered(MakeAudioType()) {
    m_mt = m_mtOffered;
}

HRESULT CKestDemux2AudioOutputPin::SetOfferedType(const AM_MEDIA_TYPE& type) {
    CAutoLock lock(*m_pLock);
    return m_mtOffered.Set(type);
}

HRESULT CKestDemux2AudioOutputPin::CheckMediaType(const CMediaType& type) {
    CAutoLock lock(*m_pLock);
    if (!m_pDemuxFilter->IsInputConnected() || !(type == m_mtOffered)) return S_FALSE;
    const bool bAudio =
        type.Subtype() == MEDIASUBTYPE_MPEG1Audio || type.Subtype() == MEDIASUBTYPE_MPEG1AudioPayload;
    return type.Type() == MEDIATYPE_Audio && bAudio ? S_OK : S_FALSE;
}

HRESULT CKestDemux2AudioOutputPin::GetMediaType(int n, CMediaType& type) {
    if (n < 0) return E_INVALIDARG;
    if (n > 0) return VFW_S_NO_MORE_ITEMS;
    CAutoLock lock(*m_pLock);
    return type.Set(m_mtOffered);
}

HRESULT CKestDemux2AudioOutputPin::DeliverNewSegment(REFERENCE_TIME rtStart, REFERENCE_TIME rtStop,
                                                     double dRate) {
    Trace("===>Enter Audio DeliverNewSegment\n");
    const CPinUse use(m_flowControl);
    const HRESULT hr = use ? CDemuxOutputPin::DeliverNewSegment(rtStart, rtStop, dRate) : VFW_E_STATE_CHANGED;
    Trace("===>Leave Audio DeliverNewSegment\n");
    return hr;
}

HRESULT CKestDemux2AudioOutputPin::Notify(IBaseFilter*, Quality) {
    DebugText("Notify in audio output pin!!\n");
    return E_NOTIMPL;
}

}  // namespace kest

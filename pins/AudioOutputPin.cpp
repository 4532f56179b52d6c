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

/// Bytes of a frame when all have the same number of them, else 1.
WORD GetBlockAlign(const AudioFormat& audio) {
    const std::uint64_t nSlotSize = audio.nLayer == 1 ? 4 : 1;
    const std::uint64_t nSlots = audio.nFrameSamples / 8 / nSlotSize * std::uint64_t{audio.nBitRate};
    return nSlots == 0 || nSlots % audio.nSamplingRate
               ? WORD{1}
               : static_cast<WORD>(nSlots / audio.nSamplingRate * nSlotSize);
}

/// What the first header of the stream says. The header's codes are bits or count from 1 in the record.
CMediaType MakeTrueAudioType(const AudioFormat& audio) {
    constexpr WORD kPrivate = 1, kCopyright = 2, kOriginal = 4, kProtection = 8, kMpeg1 = 16;  // ACM_MPEG_...
    const auto Bit = [](unsigned n) { return static_cast<WORD>(1U << n); };
    MPEG1WAVEFORMAT format{};
    format.wfx.wFormatTag = WAVE_FORMAT_MPEG;
    format.wfx.nChannels = static_cast<WORD>(audio.nChannels);
    format.wfx.nSamplesPerSec = audio.nSamplingRate;
    format.wfx.nAvgBytesPerSec = audio.nBitRate / 8;
    format.wfx.nBlockAlign = GetBlockAlign(audio);
    format.wfx.cbSize = 22;
    format.fwHeadLayer = Bit(audio.nLayer - 1U);
    format.dwHeadBitrate = audio.nBitRate;
    format.fwHeadMode = Bit(audio.nMode);
    format.fwHeadModeExt = Bit(audio.nModeExtension);
    format.wHeadEmphasis = static_cast<WORD>(audio.nEmphasis + 1U);
    format.fwHeadFlags =
        static_cast<WORD>((audio.bPrivate ? kPrivate : 0) | (audio.bCopyright ? kCopyright : 0) |
                          (audio.bOriginal ? kOriginal : 0) | (audio.bProtected ? kProtection : 0) |
                          (audio.nVersion == 1 ? kMpeg1 : 0));
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
    m_bByHost = true;
    return m_mtOffered.Set(type);
}

CMediaType CKestDemux2AudioOutputPin::GetOfferedType() const {
    const StreamDescription* pStream =
        m_bByHost ? nullptr : m_pDemuxFilter->GetDescription(EStreamKind::Audio);
    return pStream && pStream->codec == ECodec::MpegAudio && pStream->audio.nLayer
               ? MakeTrueAudioType(pStream->audio)
               : m_mtOffered;
}

HRESULT CKestDemux2AudioOutputPin::CheckMediaType(const CMediaType& type) {
    CAutoLock lock(*m_pLock);
    if (!m_pDemuxFilter->IsInputConnected() || !(type == GetOfferedType())) return S_FALSE;
    const bool bAudio =
        type.Subtype() == MEDIASUBTYPE_MPEG1Audio || type.Subtype() == MEDIASUBTYPE_MPEG1AudioPayload;
    return type.Type() == MEDIATYPE_Audio && bAudio ? S_OK : S_FALSE;
}

HRESULT CKestDemux2AudioOutputPin::GetMediaType(int n, CMediaType& type) {
    if (n < 0) return E_INVALIDARG;
    if (n > 0) return VFW_S_NO_MORE_ITEMS;
    CAutoLock lock(*m_pLock);
    return type.Set(GetOfferedType());
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

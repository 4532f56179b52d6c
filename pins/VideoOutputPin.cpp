#include "pins/VideoOutputPin.h"

#include <algorithm>
#include <array>

#include "graph/Guard.h"
#include "graph/TimeArithmetic.h"
#include "pins/VideoMediaTypes.h"
#include "platform/DebugText.h"
#include "platform/Time.h"

namespace kest {
namespace {

constexpr REFERENCE_TIME kFrameTime = 330000;  // one frame, 100 ns
constexpr int kLiveWidth = 720;                // picture size offered for live input
constexpr int kLiveHeight = 480;

}  // namespace

CKestDemux2VideoOutputPin::CKestDemux2VideoOutputPin(CPinOwner* pFilter, IDemuxFilterSite* pSite,
                                                     CAvTiming& timing, CCritSec* pLock, HRESULT* phr)
    : CDemuxOutputPin({.pin = EPin::Video,
                       .pszName = L"Video Output",
                       .nBlockSize = 163840,
                       .nBuffers = 6,
                       .nBufferSize = 1327104,
                       .bGate = true},
                      pFilter, pSite, timing, pLock, phr),
      m_seeking(static_cast<IPin*>(this), &m_csSeeking, pSite) {
    m_context.pSeeking = &m_seeking;
}

void CKestDemux2VideoOutputPin::CloseMemFiles() {
    CDemuxOutputPin::CloseMemFiles();
    m_timing.Update([](AvTimes& times) { times.video.rtTimeBase = kNoTimeBase; });
}

// ---------------- media types

HRESULT CKestDemux2VideoOutputPin::CheckMediaType(const CMediaType& type) {
    static const std::array kSubtypes = {MEDIASUBTYPE_MPEG2_VIDEO, MEDIASUBTYPE_MPEG1Payload,
                                         MEDIASUBTYPE_KestMpeg4Video, MEDIASUBTYPE_KestMp4s,
                                         MEDIASUBTYPE_MPEG1Packet};
    if (!m_pDemuxFilter->IsInputConnected() || type.Type() != MEDIATYPE_Video) return S_FALSE;
    const bool bTaken = std::any_of(kSubtypes.begin(), kSubtypes.end(),
                                    [&](const GUID& subtype) { return subtype == type.Subtype(); });
    return bTaken ? S_OK : S_FALSE;
}

HRESULT CKestDemux2VideoOutputPin::GetMediaType(int n, CMediaType& type) {
    if (n < 0) return E_INVALIDARG;
    if (n > 0) return VFW_S_NO_MORE_ITEMS;
    CAutoLock lock(*m_pLock);
    const std::optional<CMediaType> offered = GetOfferedType();
    if (!offered) return E_INVALIDARG;
    if (!IsConnected())
        m_mt = *offered;  // what is offered is the pin's type until a connection fixes another
    return type.Set(*offered);
}

/// @return nothing: there is no stream.
std::optional<CMediaType> CKestDemux2VideoOutputPin::GetOfferedType() const {
    const EVideoType kind = FindWorkingMode(m_pDemuxFilter->GetWorkingMode()).videoType;
    const StreamDescription* pStream = m_pDemuxFilter->GetDescription(EStreamKind::Video);
    if (kind != EVideoType::None && pStream) {
        if (auto type = MakeTrueVideoType(*pStream)) return type;
    }
    switch (kind) {
        case EVideoType::Mpeg4: {
            const bool bLive = m_pDemuxFilter->IsPushSource();
            return MakeMpeg4VideoType(bLive ? kLiveWidth : m_pDemuxFilter->GetDefaultWidth(),
                                      bLive ? kLiveHeight : m_pDemuxFilter->GetDefaultHeight());
        }
        case EVideoType::Mpeg2: return MakeMpeg2VideoType();
        case EVideoType::Mpeg1: return MakeMpeg1VideoType(m_pDemuxFilter->GetSequenceHeader());
        case EVideoType::None: break;
    }
    return std::nullopt;
}

// ---------------- seeking

void CKestDemux2VideoOutputPin::InitSeeking() {
    if (!m_pAsyncReader) return;
    LONGLONG llTotal = 0, llAvailable = 0;
    if (FAILED(m_pAsyncReader->Length(&llTotal, &llAvailable))) llTotal = 0;
    m_pDemuxFilter->SetPositionsHook(m_seeking.GetFilePos(), llTotal);
    m_seeking.Init(llTotal);
}

// ---------------- delivery

// A step that a stop or a flush has overtaken is not waited for: the next sample belongs to another place.
HRESULT CKestDemux2VideoOutputPin::Deliver(IMediaSample* pSample) {
    if (pSample->IsPreroll() == S_OK) return CDemuxOutputPin::Deliver(pSample);
    m_seeking.UpdatePosition();
    const std::uint32_t nFlushes = m_context.gate.CountFlushes();
    const HRESULT hr = CDemuxOutputPin::Deliver(pSample);
    m_pDemuxFilter->DoSingleStep(
        [&] { return IsDeliveryStopping() || m_context.gate.CountFlushes() != nFlushes; });
    return hr;
}

HRESULT CKestDemux2VideoOutputPin::DeliverNewSegment(REFERENCE_TIME, REFERENCE_TIME, double) {
    Trace("===>Enter Video DeliverNewSegment\n");
    { const CPinUse use(m_flowControl); }
    Trace("<=== Leave Video DeliverNewSegment\n");
    return S_OK;
}

HRESULT CKestDemux2VideoOutputPin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IMediaSeeking) {
        DebugText("CKestDemux2VideoOutputPin::NonDelegatingQueryInterface IMediaSeeking\n");
        return m_seeking.NonDelegatingQueryInterface(riid, ppv);
    }
    if (riid == IID_IMediaPosition || riid == IID_IDispatch)
        return m_seeking.NonDelegatingQueryInterface(riid, ppv);
    return CDemuxOutputPin::NonDelegatingQueryInterface(riid, ppv);
}

// ---------------- lateness

HRESULT CKestDemux2VideoOutputPin::Notify(IBaseFilter*, Quality q) {
    constexpr REFERENCE_TIME kTransportLate = -200000;
    constexpr REFERENCE_TIME kProgramLate = -310000;
    return Guard([&] {
        switch (FindWorkingMode(m_pDemuxFilter->GetWorkingMode()).lateness) {
            case ELateness::MoveTimeBase: return NotifyElementaryStream(q);
            case ELateness::TraceWhenLate:
                if (q.Late <= kTransportLate || GetFramesPending() == 0) return E_NOTIMPL;
                DebugText("===>Skipping frame\n");
                return S_OK;
            case ELateness::AcceptWhenLate:
                return q.Late > kProgramLate && GetFramesPending() > 0 ? S_OK : E_NOTIMPL;
            case ELateness::NotHandled: break;
        }
        return E_NOTIMPL;
    });
}

/// Moves the time base of an elementary stream that is rendered too late, at most every 100 seconds.
HRESULT CKestDemux2VideoOutputPin::NotifyElementaryStream(const Quality& q) {
    constexpr REFERENCE_TIME kLate = 750000;         // 75 ms
    constexpr REFERENCE_TIME kBehindClock = 500000;  // 50 ms
    constexpr std::uint32_t kEnoughPending = 3;
    constexpr std::uint32_t kPauseMs = 100000;
    constexpr REFERENCE_TIME kLaterMove = 500000;
    // One moment for all filters of the process, as renderers share its load; 0: there was no move yet.
    static std::atomic<std::uint32_t> s_dwLastMove{0};

    if (q.Late <= kLate) return E_NOTIMPL;
    const std::uint32_t nPending = GetFramesPending();
    if (nPending >= kEnoughPending) return S_OK;
    REFERENCE_TIME rtNow = 0;
    if (!m_pDemuxFilter->GetClockTime(rtNow)) return S_FALSE;
    const REFERENCE_TIME rtStream = SaturatedSubtract(rtNow, m_pDemuxFilter->GetStreamStart());
    return m_timing.Update([&](AvTimes& times) {
        REFERENCE_TIME& rtBase = times.video.rtTimeBase;
        const REFERENCE_TIME rtBehind = SaturatedSubtract(SaturatedAdd(rtStream, rtBase), q.TimeStamp);
        const std::uint32_t dwLastMove = s_dwLastMove;
        if (rtBehind > kBehindClock && (!dwLastMove || TickCount() - dwLastMove > kPauseMs)) {
            const REFERENCE_TIME nFrames = (q.Late - nPending * kFrameTime) / kFrameTime;
            rtBase = SaturatedSubtract(rtBase, dwLastMove ? kLaterMove : (nFrames - 1) * kFrameTime);
            s_dwLastMove = std::max(TickCount(), 1u);
        }
        return E_NOTIMPL;
    });
}

}  // namespace kest

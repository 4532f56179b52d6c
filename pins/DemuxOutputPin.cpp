#include "pins/DemuxOutputPin.h"

#include <algorithm>

#include "graph/Guard.h"

namespace kest {

CDemuxOutputPin::CDemuxOutputPin(const Traits& traits, CPinOwner* pFilter, IDemuxFilterSite* pSite,
                                 CAvTiming& timing, CCritSec* pLock, HRESULT* phr)
    : CImplements(pFilter, pLock, phr, traits.pszName),
      m_pDemuxFilter(pSite),
      m_timing(timing),
      m_flowControl(traits.bGate),
      m_context{.pin = traits.pin,
                .output = *this,
                .site = *pSite,
                .timing = timing,
                .frames = m_frames,
                .gate = m_gate,
                .flowControl = m_flowControl,
                .evActive = m_evActive,
                .nDelivered = m_nDelivered},
      m_nBuffers(traits.nBuffers),
      m_nBufferSize(traits.nBufferSize),
      m_frames(traits.nBlockSize) {
    if (!m_frames.Exists() && phr) *phr = E_OUTOFMEMORY;
}

void CDemuxOutputPin::EndDelivery() noexcept {
    RunToTheEnd([this] {
        StopDelivery();
        m_frames.Close();
        m_deliveryThread.End();
    });
}

// The thread is the upstream pin's: it keeps the downstream pin alive, since nothing keeps the filter from being
// stopped and disconnected meanwhile.
void CDemuxOutputPin::DeliverEnd() {
    CComPtr<IPin> pPeer;
    {
        CAutoLock lock(*m_pLock);
        pPeer = GetConnected();
    }
    if (!pPeer) return;
    {
        CAutoLock lock(m_gate.GetFlushLock());  // a flush of others comes before or not at all
        if (m_gate.HasEnded()) return;
        m_gate.SetEnded(true);
    }
    pPeer->EndOfStream();
}

void CDemuxOutputPin::ROpenMemFile() {
    if (IsConnected()) m_frames.OpenReader();
}

// ---------------- flushing and flow control

HRESULT CDemuxOutputPin::DeliverBeginFlush() {
    if (m_gate.OnBeginFlush()) m_flowControl.BeginFlush();
    return CBaseOutputPin::DeliverBeginFlush();
}

HRESULT CDemuxOutputPin::DeliverEndFlush() {
    const HRESULT hr = CBaseOutputPin::DeliverEndFlush();
    if (m_gate.OnEndFlush()) m_flowControl.EndFlush();
    return hr;
}

HRESULT CDemuxOutputPin::Block(DWORD dwBlockFlags, HANDLE hEvent) {
    return Guard([&] { return m_flowControl.Block(dwBlockFlags, hEvent); });
}

// ---------------- connection and start

// The delivery thread is started first and finds no samples until now.
HRESULT CDemuxOutputPin::Active() {
    const HRESULT hr = CBaseOutputPin::Active();
    m_gate.SetEnded(false);  // set by the run before; the delivery thread may be the same
    m_evActive.Set();
    return hr;
}

HRESULT CDemuxOutputPin::DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES& props) {
    if (!IsConnected()) return E_UNEXPECTED;
    props.cBuffers = m_nBuffers;
    props.cbBuffer = std::max(m_nBufferSize, static_cast<LONG>(m_frames.GetBlockSize()));
    props.cbAlign = 1;
    ALLOCATOR_PROPERTIES actual{};
    if (const HRESULT hr = pAlloc->SetProperties(&props, &actual); FAILED(hr)) return hr;
    return actual.cBuffers < props.cBuffers || actual.cbBuffer < props.cbBuffer ? E_FAIL : S_OK;
}

HRESULT CDemuxOutputPin::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IPinFlowControl) return GetInterface(static_cast<IPinFlowControl*>(this), ppv);
    return CBaseOutputPin::NonDelegatingQueryInterface(riid, ppv);
}

}  // namespace kest

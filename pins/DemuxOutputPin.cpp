#include "pins/DemuxOutputPin.h"

#include <cassert>

#include "pins/DeliveryLoop.h"
#include "pins/DeliveryThread.h"
#include "platform/DebugText.h"

namespace kest {

CDemuxOutputPin::CDemuxOutputPin(CBaseFilter* pFilter, IDemuxFilterSite* pSite, CCritSec* pLock, HRESULT* phr,
                                 LPCWSTR pszName, std::uint32_t nBlockSize, Buffers buffers, bool bGate)
    : CImplements(pFilter, pLock, phr, pszName),
      m_pDemuxFilter(pSite),
      m_buffers(buffers),
      m_pFrameQueue(std::make_unique<CBlockMemFileEx>(nBlockSize, kFrameBlocks, sizeof(FRAME_INFO))),
      m_flowControl(bGate),
      m_pDeliveryThread(std::make_unique<CDeliveryThread>(*this)) {}

CDemuxOutputPin::~CDemuxOutputPin() = default;

void CDemuxOutputPin::EndDelivery() {
    StopDelivery();
    CDemuxOutputPin::CloseMemFiles();
    m_pDeliveryThread->CloseThread();
}

// ---------------- frame queue

void CDemuxOutputPin::WOpenMemFile() { m_pFrameQueue->WOpen(); }

void CDemuxOutputPin::ROpenMemFile() {
    m_bmHandle = m_pFrameQueue->ROpen();
    assert(m_bmHandle == 0);  // the pin is the queue's only reader, and closed the one before
}

void CDemuxOutputPin::CloseMemFiles() {
    m_pFrameQueue->WClose();
    m_pFrameQueue->RClose(m_bmHandle.exchange(-1));
}

std::uint32_t CDemuxOutputPin::GetFramesPending() const { return m_pFrameQueue->GetPending(m_bmHandle); }

// ---------------- thread and timing

void CDemuxOutputPin::StopDelivery() { m_pDeliveryThread->CWorkerThread::Stop(); }

void CDemuxOutputPin::WaitReadyToReset() {
    constexpr std::uint32_t kWaitMs = 100;
    const bool bVideo = IsVideo();
    m_timing.bReadyToReset = true;
    Trace(bVideo ? "Video is ready to reset\n" : "Audio is ready to reset\n");
    while (m_pDemuxFilter->IsResetting()) {
        if (m_pDeliveryThread->WaitStop(kWaitMs)) return;
        Trace(bVideo ? "Video is ready  and waiting for 100ms\n" : "Audio is ready and waited 100ms\n");
    }
}

// ---------------- flushing and flow control

void CDemuxOutputPin::FlushDownstream() {
    CAutoLock lock(m_csFlush);
    const CFlushing flushing(*this);
}

void CDemuxOutputPin::WaitForDelivery() {
    constexpr std::uint32_t kBoundMs = 1000;  // for a downstream filter that does not mind the flush
    m_evNotDelivering.Wait(kBoundMs);
}

HRESULT CDemuxOutputPin::DeliverBeginFlush() {
    m_evNotFlushing.Reset();
    m_flowControl.BeginFlush();
    return CBaseOutputPin::DeliverBeginFlush();
}

HRESULT CDemuxOutputPin::DeliverEndFlush() {
    m_flowControl.EndFlush();
    const HRESULT hr = CBaseOutputPin::DeliverEndFlush();
    m_evNotFlushing.Set();
    return hr;
}

void CDemuxOutputPin::SetGraphConfig(IGraphConfig* pConfig, CEvent* pStopEvent) {
    m_pGraphConfig = pConfig;
    m_flowControl.SetStopEvent(pStopEvent);
}

HRESULT CDemuxOutputPin::Block(DWORD dwBlockFlags, HANDLE hEvent) {
    return m_flowControl.Block(dwBlockFlags, hEvent);
}

// ---------------- connection

HRESULT CDemuxOutputPin::DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES& props) {
    if (!IsConnected()) return E_UNEXPECTED;
    props.cBuffers = m_buffers.nCount;
    props.cbBuffer = m_buffers.nSize;
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

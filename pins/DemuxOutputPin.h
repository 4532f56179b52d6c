#pragma once

#include "graph/BaseOutputPin.h"
#include "graph/PinFlowControl.h"
#include "pins/AvTiming.h"
#include "pins/DeliveryContext.h"
#include "pins/DeliveryGate.h"
#include "pins/DeliveryThread.h"
#include "pins/DemuxFilterSite.h"
#include "pins/FrameQueue.h"

namespace kest {

/// What the video and the audio output pin have in common: a frame queue that the demuxer writes, a delivery
/// thread that turns its frames into samples, flow control. The timing is shared by both pins: CAvTiming.
///
/// The filter opens and closes the queue, starts and stops the thread; the thread does the rest. Lock order:
/// the seek lock of the seeking object, the audio pin's flush lock, the video pin's; then, each by itself,
/// the locks of the gate's and the flow control's flags and of the timing.
class CDemuxOutputPin : public CImplements<CBaseOutputPin, IPinFlowControl> {
public:
    using CFlushing = kest::CFlushing;

    // ---- the frame queue, called by the filter

    /// The queue that a demuxer writes its frames to.
    CBlockMemFileEx& GetFrameQueue() { return m_frames.GetBlocks(); }
    /// Makes its blocks of this many bytes, and the samples of the connections that follow at least as long. While it is
    /// closed; throws for want of memory.
    void SetBlockSize(std::uint32_t nBlockSize) { m_frames.SetBlockSize(nBlockSize); }
    /// Opens the queue's write side.
    void WOpenMemFile() { m_frames.OpenWriter(); }
    /// Opens the pin's read side; the one before must have been closed. The queue of a pin that is not
    /// connected has no reader: its frames are lost, and hold nobody up.
    void ROpenMemFile();
    /// Closes both sides, which wakes whoever waits on them.
    virtual void CloseMemFiles() { m_frames.Close(); }
    /// Blocks of the queue, and those waiting for the pin.
    std::uint32_t GetFrameCapacity() const { return m_frames.GetBlockCount(); }
    std::uint32_t GetFramesPending() const { return m_frames.GetPending(); }
    /// Samples that have gone downstream since the pin was made. Any thread.
    std::uint64_t CountDelivered() const { return m_nDelivered; }

    // ---- the delivery thread, called by the filter

    /// `Restart`, `Resume`, `IsRunning`, and `Stop` with the stop rule.
    CDeliveryThread& GetDeliveryThread() { return m_deliveryThread; }
    /// Signals the delivery thread's stop and returns at once.
    void StopDelivery() { m_deliveryThread.RequestStop(); }
    /// The delivery thread is to end.
    bool IsDeliveryStopping() const { return m_deliveryThread.IsStopping(); }
    /// Every frame of the queue has been delivered, as far as the pin delivers.
    bool IsDrained() const { return !IsConnected() || !m_deliveryThread.IsRunning() || m_frames.IsDrained(); }
    /// Passes the end of the stream downstream, in the name of the upstream pin; unless the delivery thread has
    /// done so already, and nothing has gone out since. Called while the pin is drained.
    void DeliverEnd();
    /// Ends the delivery thread for good. The filter calls it on both pins before it lets either go, since
    /// each thread uses the other pin; every derived class in its destructor, since the thread calls the
    /// derived class.
    void EndDelivery() noexcept;
    /// The other output pin; set once, before the first connection.
    void SetPeer(CDemuxOutputPin& peer) { m_context.pPeerGate = &peer.m_gate; }

    // ---- flushing and flow control

    /// Held around a flush; see CDeliveryGate.
    CCritSec& GetFlushLock() { return m_gate.GetFlushLock(); }
    /// See CDeliveryGate::WaitForDelivery.
    void WaitForDelivery() { m_gate.WaitForDelivery(); }
    /// The event that ends a delivery's wait on a blocked pin; null when the filter leaves the graph. Not
    /// owned.
    void SetStopEvent(CEvent* pStopEvent) { m_flowControl.SetStopEvent(pStopEvent); }

    HRESULT Active() override;
    HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES& props) override;
    HRESULT DeliverBeginFlush() override;
    HRESULT DeliverEndFlush() override;
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    HRESULT STDMETHODCALLTYPE Block(DWORD dwBlockFlags, HANDLE hEvent) override;

    /// What the pin carries.
    bool IsVideo() const { return m_context.IsVideo(); }

protected:
    /// In what the two pins differ.
    struct Traits {
        EPin pin;
        LPCWSTR pszName;
        std::uint32_t nBlockSize;  // bytes of a block of the frame queue
        LONG nBuffers;             // samples that the pin wants from an allocator
        LONG nBufferSize;          // bytes of each, unless a block is longer
        bool bGate;                // one user at a time between the flow control's brackets
    };

    /// @param pSite   the filter's services.
    /// @param timing  shared with the other pin.
    /// @param phr     E_OUTOFMEMORY when there is no memory for the frame queue, else unchanged; may be null.
    CDemuxOutputPin(const Traits& traits, CPinOwner* pFilter, IDemuxFilterSite* pSite, CAvTiming& timing,
                    CCritSec* pLock, HRESULT* phr);

    IDemuxFilterSite* const m_pDemuxFilter;  // the filter
    CAvTiming& m_timing;                     // of both pins
    CPinFlowControl m_flowControl;
    DeliveryContext m_context;  // of the delivery thread

private:
    const LONG m_nBuffers;                        // asked of the allocator
    const LONG m_nBufferSize;                     // the same
    CFrameQueue m_frames;                         // frames of the demuxer
    CDeliveryGate m_gate{*this};                  // keeps deliveries and flushes apart
    CEvent m_evActive{/*bManualReset=*/false};    // ends the delivery thread's pause without samples
    CCount m_nDelivered;                          // see CountDelivered
    CDeliveryThread m_deliveryThread{m_context};  // last: it uses the others
};

}  // namespace kest

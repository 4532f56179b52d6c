#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "demux/FrameInfo.h"
#include "graph/BaseOutputPin.h"
#include "graph/PinFlowControl.h"
#include "pins/DemuxFilterSite.h"
#include "pins/PinTiming.h"
#include "platform/Event.h"
#include "plumbing/BlockMemFile.h"

namespace kest {

class CDeliveryLoop;
class CDeliveryThread;

/// What the video and the audio output pin have in common: a frame queue that the demux core writes, a
/// delivery thread that turns its frames into samples, the timing that both pins share, flow control.
///
/// The filter opens and closes the queue, starts and stops the thread and resets the timing; the thread does
/// the rest. Lock order of a flush: the audio pin's flush lock, then the video pin's.
class CDemuxOutputPin : public CImplements<CBaseOutputPin, IPinFlowControl> {
public:
    ~CDemuxOutputPin() override;

    // ---- the frame queue, called by the filter

    /// The queue that a demux core writes its frames to.
    CBlockMemFileEx& GetFrameQueue() { return *m_pFrameQueue; }
    /// Opens the queue's write side.
    void WOpenMemFile();
    /// Opens the pin's read side; the one before must have been closed.
    void ROpenMemFile();
    /// Closes both sides, which wakes whoever waits on them.
    virtual void CloseMemFiles();
    /// Blocks of the queue, and those waiting for the pin.
    std::uint32_t GetFrameCapacity() const { return m_pFrameQueue->GetBlockCount(); }
    std::uint32_t GetFramesPending() const;

    // ---- the delivery thread and the timing, called by the filter and the other pin

    /// `Restart`, `Resume`, `IsRunning`, and `Stop` with the stop rule.
    CDeliveryThread& GetDeliveryThread() { return *m_pDeliveryThread; }
    /// Signals the delivery thread's stop and returns at once.
    void StopDelivery();
    PinTiming& GetTiming() { return m_timing; }
    /// Ends the delivery thread for good. The filter calls it on both pins before it lets either go, since
    /// each thread uses the other pin; every derived class in its destructor, since the thread calls the
    /// derived class.
    void EndDelivery();
    /// The other output pin; set once, before the first connection.
    void SetPeer(CDemuxOutputPin& peer) { m_pPeer = &peer; }
    CDemuxOutputPin& GetPeer() { return *m_pPeer; }
    IDemuxFilterSite& GetSite() { return *m_pDemuxFilter; }

    /// Parks the delivery thread while a reset is in progress.
    void WaitReadyToReset();

    // ---- flushing and flow control

    /// Held around a `DeliverBeginFlush`/`DeliverEndFlush` pair.
    CCritSec& GetFlushLock() { return m_csFlush; }
    /// Such a pair, for the length of a block, however the block is left.
    class CFlushing {
    public:
        explicit CFlushing(CDemuxOutputPin& pin) : m_pin(pin) { m_pin.DeliverBeginFlush(); }
        CFlushing(const CFlushing&) = delete;
        CFlushing& operator=(const CFlushing&) = delete;
        ~CFlushing() { m_pin.DeliverEndFlush(); }

    private:
        CDemuxOutputPin& m_pin;
    };
    /// One right after the other, under the lock.
    void FlushDownstream();
    /// Waits until the delivery that is under way has come back, for a second at most. A seek does so between
    /// the two, with the queue emptied: what is delivered from then on is of the new place.
    void WaitForDelivery();
    CPinFlowControl& GetFlowControl() { return m_flowControl; }
    /// Takes over the graph's reconnection interface and stop event; both null when the filter leaves the
    /// graph. Neither is counted or owned: the graph and the filter outlive the pin's use of them.
    void SetGraphConfig(IGraphConfig* pConfig, CEvent* pStopEvent);

    HRESULT CheckMediaType(const CMediaType& type) override = 0;
    HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES& props) override;
    HRESULT DeliverBeginFlush() override;
    HRESULT DeliverEndFlush() override;
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    HRESULT STDMETHODCALLTYPE Block(DWORD dwBlockFlags, HANDLE hEvent) override;

    /// What the pin carries.
    virtual bool IsVideo() const = 0;
    /// The same and the class name, in texts.
    const char* GetStreamText() const { return IsVideo() ? "video" : "audio"; }
    const char* GetClassText() const {
        return IsVideo() ? "CKestDemux2VideoOutputPin" : "CKestDemux2AudioOutputPin";
    }
    /// The body of the delivery thread, for one run.
    virtual std::unique_ptr<CDeliveryLoop> MakeDeliveryLoop() = 0;

protected:
    struct Buffers {
        LONG nCount;
        LONG nSize;  // bytes
    };
    static constexpr std::uint32_t kFrameBlocks = 80;

    /// @param pSite       the filter's services.
    /// @param nBlockSize  bytes of a block of the frame queue.
    /// @param buffers     samples that the pin wants from an allocator.
    /// @param bGate       one user at a time between the flow control's brackets.
    CDemuxOutputPin(CBaseFilter* pFilter, IDemuxFilterSite* pSite, CCritSec* pLock, HRESULT* phr,
                    LPCWSTR pszName, std::uint32_t nBlockSize, Buffers buffers, bool bGate);

    IDemuxFilterSite* const m_pDemuxFilter;          // the filter
    const Buffers m_buffers;                         // asked of the allocator
    std::unique_ptr<CBlockMemFileEx> m_pFrameQueue;  // frames of the core
    std::atomic<int> m_bmHandle{-1};                 // the pin's reader of its queue; -1 when closed
    PinTiming m_timing;                              // shared with the other pin and the filter
    CDemuxOutputPin* m_pPeer = nullptr;              // the other output pin
    CCritSec m_csFlush;                              // see GetFlushLock
    CEvent m_evNotDelivering{true, true};            // no delivery is under way
    CEvent m_evNotFlushing{true, true};              // no flush is under way
    CPinFlowControl m_flowControl;
    IGraphConfig* m_pGraphConfig = nullptr;              // the graph's, while in a graph
    std::unique_ptr<CDeliveryThread> m_pDeliveryThread;  // last: it uses the others

    friend class CDeliveryLoop;
};

}  // namespace kest

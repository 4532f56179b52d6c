#pragma once

#include <atomic>
#include <cstdint>

#include "graph/BaseInputPin.h"
#include "graph/PullPin.h"
#include "pins/WorkingMode.h"

namespace kest {

class CKestDemux2Filter;

/// The pin "Input": takes a byte stream from an upstream pin that lets itself be read (IAsyncReader), and
/// from no other. A connection attempt has the stream classified and puts the filter into the working mode
/// that the stream needs; the stream decides, not the media type that the upstream pin names.
///
/// Locking: connection, types and reader are guarded by the filter's pin lock. The receive lock keeps flushes
/// apart from what comes in; it is taken before the pin lock, never after it.
class CKestDemux2InputPin final : public CBaseInputPin {
public:
    /// @param pDemuxFilter  owner; never null.
    /// @param pLock         the filter's pin lock.
    CKestDemux2InputPin(CKestDemux2Filter* pDemuxFilter, CCritSec* pLock, HRESULT* phr);

    /// The working mode. Any thread.
    EWorkingMode GetWorkingMode() const { return m_nWorkingMode; }
    /// Enters a working mode: a new mode gets a new demux core, the present one keeps what it has.
    void SetWorkingMode(EWorkingMode mode);
    /// Sets preferred type and working mode for a stream of class `nClass` (EStreamClass).
    /// @return S_OK; S_FALSE, with nothing changed, for a class that no mode handles.
    HRESULT ApplyStreamClass(int nClass);
    /// The reader of the upstream pin, from the attempt to connect to the disconnection; else null.
    CComPtr<IAsyncReader> GetReader() const { return m_PullPin.GetReader(); }

    /// Takes the upstream pin's reader. A pin without one passes here; its types are refused.
    HRESULT CheckConnect(IPin* pPin) override;
    /// Gives the reader back, from the demux core and the video pin too, be it after a connection or after an
    /// attempt that failed. The working mode stays.
    HRESULT BreakConnect() override;
    /// Hands the reader to the demux core and the video pin.
    HRESULT CompleteConnect(IPin* pReceivePin) override;
    /// Classifies the stream and enters its mode. A connected pin has done so: it accepts.
    HRESULT CheckMediaType(const CMediaType& type) override;
    /// 0: the preferred type of the last accepted stream; 1: any type. None unless the upstream pin can be
    /// read.
    HRESULT GetMediaType(int n, CMediaType& type) override;

    // Both wait for a sample that is being received.
    HRESULT STDMETHODCALLTYPE BeginFlush() override;
    HRESULT STDMETHODCALLTYPE EndFlush() override;

private:
    CKestDemux2Filter* const m_pDemuxFilter;                       // owner
    CPullPin m_PullPin;                                            // holds the upstream pin's reader
    CMediaType m_mtPreferred;                                      // see GetMediaType
    CCritSec m_csReceive;                                          // see above
    std::atomic<EWorkingMode> m_nWorkingMode{EWorkingMode::None};  // see GetWorkingMode
};

}  // namespace kest

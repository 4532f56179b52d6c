#pragma once

#include "filter/DemuxPath.h"
#include "filter/Intake.h"
#include "filter/Source.h"
#include "filter/StatusPublisher.h"
#include "filter/Switches.h"
#include "graph/BaseInputPin.h"

namespace kest {

/// What the input pin asks of the filter around a sample.
class IResetSite {
public:
    /// Decides whether the demultiplexer is to be reset.
    /// @return 1: working mode 0, where it is never decided here; 0: no; -1: a pin or the demuxer asks for it; -2:
    ///         the frame queues are out of balance.
    virtual int CheckNeedReset() = 0;
    virtual void ResetDemux() = 0;

protected:
    ~IResetSite() = default;
};

/// The pin "Input": takes a byte stream from an upstream pin that offers IAsyncReader; from another one only when
/// the switch PushStreamClass says what its stream is. A connection attempt has the stream classified and puts
/// the path into the working mode that the stream needs; the stream decides, not the media type that the upstream
/// pin offers. Samples that the upstream pin delivers go to the intake.
///
/// Locking: connection and types are guarded by the filter's pin lock. The receive lock keeps flushes apart
/// from samples that come in; it is taken before the pin lock, never after it. Whoever takes it from another
/// thread holds the intake, since a sample may wait there for room.
class CKestDemux2InputPin final : public CBaseInputPin {
public:
    /// What the pin works with; all outlive it.
    struct Parts {
        IResetSite& resets;           // the filter
        CSource& source;              // what the pin connects to
        CDemuxPath& path;             // the path that the source's bytes take
        CIntake& intake;              // what becomes of samples
        CUdpSender& sender;           // its settings are published with the working mode
        CStatusPublisher& publisher;  // where
        const CSwitches& switches;    // AdmitAll, PushStreamClass
    };
    /// @param pFilter  owner of the pin.
    /// @param pLock    the filter's pin lock.
    CKestDemux2InputPin(CPinOwner* pFilter, const Parts& parts, CCritSec* pLock, HRESULT* phr);

    /// Puts the path into a working mode and publishes it; nothing else changes in the present one. Under the pin
    /// lock, while the filter is stopped. @return E_OUTOFMEMORY when the demuxer cannot be made.
    HRESULT SetWorkingMode(EWorkingMode mode);
    /// Sets preferred type and working mode for a stream of class `nClass` (EStreamClass).
    /// @return as SetWorkingMode; S_FALSE, with nothing changed, for a class that no mode handles.
    HRESULT ApplyStreamClass(int nClass);

    /// Takes the upstream pin's reader. A pin without one passes here; its types may be refused.
    HRESULT CheckConnect(IPin* pPin) override;
    /// Gives the reader back, from the path too. The working mode stays.
    HRESULT BreakConnect() override;
    /// Hands the reader to the path.
    HRESULT CompleteConnect(IPin* pReceivePin) override;
    /// Classifies the stream and enters its mode. A connected pin has done so: it accepts.
    HRESULT CheckMediaType(const CMediaType& type) override;
    /// 0: the preferred type of the last accepted stream; 1: any type. None while there is nothing to classify.
    HRESULT GetMediaType(int n, CMediaType& type) override;

    /// Takes a sample: first the reset check, then the intake. Waits while there is no room.
    /// @return S_OK, also when nothing was done with the bytes; S_FALSE when a flush or a stop has ended it; as
    ///         CheckStreaming, with a debug text, when the filter takes no samples now.
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override;
    /// Waits until all that was received has left the output pins, and passes the end on. A stop and a flush end
    /// the wait, and nothing is passed on then.
    HRESULT STDMETHODCALLTYPE EndOfStream() override;
    // Both end the waits of a sample that is being received, and wait for it.
    HRESULT STDMETHODCALLTYPE BeginFlush() override;
    HRESULT STDMETHODCALLTYPE EndFlush() override;

private:
    void CheckAndResetDemux();
    int ClassifySource();

    const Parts m_parts;       // see Parts
    CMediaType m_mtPreferred;  // see GetMediaType
    CCritSec m_csReceive;      // see above
};

}  // namespace kest

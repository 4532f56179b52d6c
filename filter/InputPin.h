#pragma once

#include "filter/DemuxPath.h"
#include "filter/Source.h"
#include "graph/BaseInputPin.h"

namespace kest {

/// The pin "Input": takes a byte stream from an upstream pin that offers IAsyncReader, and from no other. A
/// connection attempt has the stream classified and puts the path into the working mode that the stream needs;
/// the stream decides, not the media type that the upstream pin offers.
///
/// Locking: connection and types are guarded by the filter's pin lock. The receive lock keeps flushes apart
/// from samples that come in; it is taken before the pin lock, never after it.
class CKestDemux2InputPin final : public CBaseInputPin {
public:
    /// @param pFilter  owner of the pin.
    /// @param source   the source that the pin connects to.
    /// @param path     the path that the source's bytes take.
    /// @param pLock    the filter's pin lock.
    CKestDemux2InputPin(CPinOwner* pFilter, CSource& source, CDemuxPath& path, CCritSec* pLock, HRESULT* phr);

    /// Puts the path into a working mode; nothing changes in the present one. Under the pin lock, while the
    /// filter is stopped. @return E_OUTOFMEMORY when the demuxer cannot be made.
    HRESULT SetWorkingMode(EWorkingMode mode);
    /// Sets preferred type and working mode for a stream of class `nClass` (EStreamClass).
    /// @return as SetWorkingMode; S_FALSE, with nothing changed, for a class that no mode handles.
    HRESULT ApplyStreamClass(int nClass);

    /// Takes the upstream pin's reader. A pin without one passes here; its types are refused.
    HRESULT CheckConnect(IPin* pPin) override;
    /// Gives the reader back, from the path too. The working mode stays.
    HRESULT BreakConnect() override;
    /// Hands the reader to the path.
    HRESULT CompleteConnect(IPin* pReceivePin) override;
    /// Classifies the stream and enters its mode. A connected pin has done so: it accepts.
    HRESULT CheckMediaType(const CMediaType& type) override;
    /// 0: the preferred type of the last accepted stream; 1: any type. None while there is no reader.
    HRESULT GetMediaType(int n, CMediaType& type) override;

    // Both wait for a sample that is being received.
    HRESULT STDMETHODCALLTYPE BeginFlush() override;
    HRESULT STDMETHODCALLTYPE EndFlush() override;

private:
    CSource& m_source;         // see the constructor
    CDemuxPath& m_path;        // see the constructor
    CMediaType m_mtPreferred;  // see GetMediaType
    CCritSec m_csReceive;      // see above
};

}  // namespace kest

#pragma once

#include <atomic>
#include <string>

#include "graph/MediaType.h"
#include "graph/PinOwner.h"
#include "graph/Unknown.h"
#include "platform/CritSec.h"

namespace kest {

/// Base of a pin: agrees on a media type with another pin and keeps the connection. A derived class names the types
/// that it accepts and prepares the connection in the steps given below.
///
/// A pin has an identity of its own, but its references count on the filter, which owns it. Two connected filters
/// therefore keep each other alive until both pins are disconnected.
///
/// The steps of a connection, on the pin whose `Connect` is called: for each candidate type `CheckConnect`,
/// `CheckMediaType`, `SetMediaType`, the other pin's `ReceiveConnection` (there: the same three, and
/// `CompleteConnect`), `CompleteConnect`. When a step fails, `BreakConnect` undoes it. A partial type given to `Connect`
/// limits the candidates, which are the types that the other pin lists, then those of this one.
///
/// Locking: connection and disconnection take the filter's object lock, m_pLock, and happen only while the filter
/// allows it (`MayChangeConnections`); the steps above are called with it held. A thread that delivers uses the
/// connection without the lock, and must have ended before the connection changes.
///
/// No exception leaves an interface method: it becomes a result code, see Guard. The steps may throw.
class CBasePin : public CImplements<CUnknown, IPin, IQualityControl> {
public:
    /// @param pFilter  owner of the pin.
    /// @param pLock    the filter's object lock.
    /// @param phr      unused by the base: the reason when the construction of a derived class fails.
    /// @param pszName  name and identifier of the pin.
    CBasePin(CPinOwner* pFilter, CCritSec* pLock, HRESULT* phr, LPCWSTR pszName, PIN_DIRECTION dir);

    bool IsConnected() const { return static_cast<bool>(m_Connected); }
    /// The other pin, without a reference added, or null.
    IPin* GetConnected() const { return m_Connected.Get(); }
    const std::wstring& Name() const { return m_wszName; }
    /// The list that `GetMediaType` gives has changed: enumerators in use become out of sync.
    void IncrementTypeVersion() { ++m_nTypeVersion; }

    // For a derived class to override. Called with the object lock held, except CheckMediaType and GetMediaType, which
    // enumerators and QueryAccept call without it.

    /// S_OK: the type is acceptable; anything else: it is not.
    virtual HRESULT CheckMediaType(const CMediaType& type) = 0;
    /// The pin's n-th preferred type. @return S_OK; E_OUTOFMEMORY; else the list ends. The base: E_UNEXPECTED.
    virtual HRESULT GetMediaType(int n, CMediaType& type);
    /// Keeps the agreed type. A failure leaves the one before.
    virtual HRESULT SetMediaType(const CMediaType& type) { return m_mt.Set(type); }
    /// Whether the other pin can be connected at all. The base: VFW_E_INVALID_DIRECTION for one of the same
    /// direction.
    virtual HRESULT CheckConnect(IPin* pPin);
    /// Gives back what `CheckConnect` and later steps acquired; also called without a connection.
    virtual HRESULT BreakConnect() { return S_OK; }
    /// The last step of a connection; a failure undoes it.
    virtual HRESULT CompleteConnect(IPin* pReceivePin);

    // State changes, called by the filter on connected pins.

    /// The filter leaves the stopped state.
    virtual HRESULT Active() { return S_OK; }
    /// The filter stops.
    virtual HRESULT Inactive();
    virtual HRESULT Run(REFERENCE_TIME /*tStart*/) { return S_OK; }

    /// IPin, IQualityControl and IUnknown.
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    ULONG NonDelegatingAddRef() override { return m_pFilter->GetFilter()->AddRef(); }
    ULONG NonDelegatingRelease() override { return m_pFilter->GetFilter()->Release(); }

    /// VFW_E_ALREADY_CONNECTED, VFW_E_NOT_STOPPED, or the result of a failed step: for a full type its own; else the
    /// first one other than VFW_E_TYPE_NOT_ACCEPTED, or VFW_E_NO_ACCEPTABLE_TYPES.
    HRESULT STDMETHODCALLTYPE Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) override;
    /// As `Connect`, for the one type given; VFW_E_TYPE_NOT_ACCEPTED.
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) override;
    /// S_FALSE without a connection; VFW_E_NOT_STOPPED.
    HRESULT STDMETHODCALLTYPE Disconnect() override;
    /// VFW_E_NOT_CONNECTED, with null, without a connection.
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pPin) override;
    /// VFW_E_NOT_CONNECTED, with an empty type, without a connection.
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* pInfo) override;
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) override;
    /// A copy of the name in task memory.
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) override;
    /// S_OK, or S_FALSE for a type that is not acceptable for whatever reason.
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) override;
    /// E_NOTIMPL: every input reaches every output.
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** apPin, ULONG* nPin) override;
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return S_OK; }
    /// S_OK: the base has no use for the segment.
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override;
    /// E_NOTIMPL: a pin that acts on quality messages overrides this.
    HRESULT STDMETHODCALLTYPE Notify(IBaseFilter* pSelf, Quality q) override;
    /// E_NOTIMPL: pins send no quality messages of their own.
    HRESULT STDMETHODCALLTYPE SetSink(IQualityControl* piqc) override;

protected:
    bool IsStopped() const { return m_pFilter->IsStopped(); }

    const std::wstring m_wszName;  // name and identifier
    const PIN_DIRECTION m_dir;     // direction of the samples
    CPinOwner* const m_pFilter;    // owner
    CCritSec* const m_pLock;       // the filter's object lock
    CComPtr<IPin> m_Connected;     // the other pin
    CMediaType m_mt;               // type of the connection
    std::atomic<bool> m_bRunTimeError{
        false};  // streaming failed; no samples are taken until the next stop or flush
    std::atomic<int> m_nTypeVersion{1};  // version of the list of types

private:
    HRESULT CheckMayConnect() const;
    HRESULT AgreeMediaType(IPin* pReceivePin, const CMediaType& pattern);
    HRESULT TryMediaTypes(IPin* pReceivePin, const CMediaType& pattern, IPin* pOffering);
    HRESULT AttemptConnection(IPin* pReceivePin, const CMediaType& type);
    HRESULT PrepareConnection(IPin* pPin, const CMediaType& type);
    HRESULT Abandon(HRESULT hr);
};

}  // namespace kest

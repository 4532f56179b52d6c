#pragma once

#include <atomic>
#include <string>

#include "graph/BaseFilter.h"
#include "graph/MediaType.h"

namespace kest {

/// Base of a pin: agrees on a media type with another pin and keeps the connection. A derived class names
/// the types that it takes and, at the points given below, prepares the connection.
///
/// A pin has an identity of its own, but no life of its own: its references count on the filter, which owns
/// it. Two connected filters so keep each other alive: who connects them disconnects both pins.
///
/// How a connection comes about, on the pin that `Connect` is called on: `CheckConnect`, then for each
/// candidate type `CheckMediaType`, `SetMediaType`, the other pin's `ReceiveConnection` (there: the same
/// three, and `CompleteConnect`), `CompleteConnect`. When a step fails, `BreakConnect` undoes it. A partial
/// type given to `Connect` limits the candidates: the types that the other pin lists, then those of this one
/// (the other way round with m_bTryMyTypesFirst).
///
/// Locking: connection and disconnection take the filter's object lock, m_pLock, and happen only while the
/// filter is stopped (unless m_bCanReconnectWhenActive); the steps above are called with it held. A thread
/// that delivers uses the connection without the lock, and must have ended before the connection changes.
class CBasePin : public CImplements<CUnknown, IPin, IQualityControl> {
public:
    /// @param pFilter  owner of the pin.
    /// @param pLock    the filter's object lock.
    /// @param phr      kept unchanged unless construction fails, then the reason; may be null.
    /// @param pszName  name and identifier of the pin.
    CBasePin(CBaseFilter* pFilter, CCritSec* pLock, HRESULT* phr, LPCWSTR pszName, PIN_DIRECTION dir);

    bool IsConnected() const { return static_cast<bool>(m_Connected); }
    /// The other pin, without a reference added, or null.
    IPin* GetConnected() const { return m_Connected.Get(); }
    const std::wstring& Name() const { return m_wszName; }
    /// The type of the connection; meaningful while there is one.
    const CMediaType& CurrentMediaType() const { return m_mt; }
    /// Start, stop (100 ns) and rate of the segment last announced by `NewSegment`.
    REFERENCE_TIME CurrentStartTime() const { return m_tStart; }
    REFERENCE_TIME CurrentStopTime() const { return m_tStop; }
    double CurrentRate() const { return m_dRate; }
    /// Version of the list that `GetMediaType` gives.
    int GetMediaTypeVersion() const { return m_nTypeVersion; }
    void IncrementTypeVersion() { ++m_nTypeVersion; }

    // What a derived class decides. Called with the object lock held, except CheckMediaType and GetMediaType,
    // which enumerators and QueryAccept reach without it.

    /// S_OK: the type is acceptable; anything else refuses it.
    virtual HRESULT CheckMediaType(const CMediaType& type) = 0;
    /// The pin's n-th preferred type. @return S_OK, VFW_S_NO_MORE_ITEMS or an error. The base: E_UNEXPECTED.
    virtual HRESULT GetMediaType(int n, CMediaType& type);
    /// Takes the agreed type.
    virtual HRESULT SetMediaType(const CMediaType& type) { return m_mt.Set(type); }
    /// Whether the other pin can be connected at all. The base: VFW_E_INVALID_DIRECTION for one of the same
    /// direction.
    virtual HRESULT CheckConnect(IPin* pPin);
    /// Gives back what `CheckConnect` and later steps took; also called without a connection.
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
    ULONG NonDelegatingAddRef() override { return m_pFilter->AddRef(); }
    ULONG NonDelegatingRelease() override { return m_pFilter->Release(); }

    /// VFW_E_ALREADY_CONNECTED, VFW_E_NOT_STOPPED, or what a step said: for a full type the reason it failed,
    /// else the first failure that is not the refusal of a type, or VFW_E_NO_ACCEPTABLE_TYPES.
    HRESULT STDMETHODCALLTYPE Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) override;
    /// As `Connect`, for the one type given; VFW_E_TYPE_NOT_ACCEPTED.
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) override;
    /// S_FALSE without a connection; VFW_E_NOT_STOPPED.
    HRESULT STDMETHODCALLTYPE Disconnect() override;
    /// VFW_E_NOT_CONNECTED, with null.
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pPin) override;
    /// VFW_E_NOT_CONNECTED, with an empty type.
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* pInfo) override;
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) override;
    /// A copy of the name in task memory.
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) override;
    /// S_FALSE for a type that is refused with an error.
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) override;
    /// E_NOTIMPL: every input reaches every output.
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** apPin, ULONG* nPin) override;
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override;
    /// E_NOTIMPL: a pin that answers quality messages overrides this.
    HRESULT STDMETHODCALLTYPE Notify(IBaseFilter* pSelf, Quality q) override;
    /// Where quality messages go instead of upstream; not counted, null restores the ordinary way.
    HRESULT STDMETHODCALLTYPE SetSink(IQualityControl* piqc) override;

protected:
    bool IsStopped() const { return m_pFilter->IsStopped(); }
    /// Disconnects whatever the filter's state; the caller holds the lock.
    HRESULT DisconnectInternal();

    const std::wstring m_wszName;               // name and identifier
    const PIN_DIRECTION m_dir;                  // which way the samples go
    CBaseFilter* const m_pFilter;               // owner
    CCritSec* const m_pLock;                    // the filter's object lock
    CComPtr<IPin> m_Connected;                  // the other pin
    CMediaType m_mt;                            // type of the connection
    IQualityControl* m_pQSink = nullptr;        // where quality messages go, or null; not counted
    std::atomic<bool> m_bRunTimeError{false};   // streaming failed; samples are refused until the next stop
    bool m_bCanReconnectWhenActive = false;     // connections may change while the filter is not stopped
    bool m_bTryMyTypesFirst = false;            // this pin's types are tried before the other's
    std::atomic<REFERENCE_TIME> m_tStart{0};    // segment start, 100 ns
    std::atomic<REFERENCE_TIME> m_tStop{kEnd};  // segment stop, 100 ns
    std::atomic<double> m_dRate{1.0};           // segment rate
    std::atomic<int> m_nTypeVersion{1};         // version of the list of types

private:
    static constexpr REFERENCE_TIME kEnd = 0x7FFFFFFFFFFFFFFF;  // a segment without an end

    HRESULT CheckMayConnect() const;
    HRESULT AgreeMediaType(IPin* pReceivePin, const CMediaType& pattern);
    HRESULT TryMediaTypes(IPin* pReceivePin, const CMediaType& pattern, IPin* pOffering);
    HRESULT AttemptConnection(IPin* pReceivePin, const CMediaType& type);
    HRESULT AcceptType(const CMediaType& type);
    HRESULT Abandon(HRESULT hr);
};

}  // namespace kest

#pragma once

#include <atomic>

#include "graph/Unknown.h"
#include "platform/CritSec.h"

namespace kest {

/// Base of a seeking object: keeps position, stop, duration and rate for one client side, in media time
/// alone, and notifies the derived class of changes.
///
/// Positions are added with saturation: no value that a caller gives overflows.
///
/// Locking: changes of the positions that belong together are made under the lock given at construction; the
/// change notifications are called after it is released, on the caller's thread, with the values that were
/// set. The values are atomic, so a streaming thread may move the current position without the lock: what a
/// notification is given is still what its caller asked for.
class CSourceSeeking : public CImplements<CUnknown, IMediaSeeking> {
public:
    /// @param pOuter  the object it is part of (a pin), or null.
    /// @param pLock   the seeking lock; must outlive it.
    CSourceSeeking(IUnknown* pOuter, CCritSec* pLock);

    /// IMediaSeeking and IUnknown.
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // Every operation returns E_POINTER for a pointer that is missing.

    HRESULT STDMETHODCALLTYPE GetCapabilities(DWORD* pCapabilities) override;
    /// S_OK when all of them are there, S_FALSE else.
    HRESULT STDMETHODCALLTYPE CheckCapabilities(DWORD* pCapabilities) override;
    /// S_OK for TIME_FORMAT_MEDIA_TIME, S_FALSE else.
    HRESULT STDMETHODCALLTYPE IsFormatSupported(const GUID* pFormat) override;
    HRESULT STDMETHODCALLTYPE QueryPreferredFormat(GUID* pFormat) override;
    HRESULT STDMETHODCALLTYPE GetTimeFormat(GUID* pFormat) override;
    HRESULT STDMETHODCALLTYPE IsUsingTimeFormat(const GUID* pFormat) override;
    /// E_INVALIDARG for another than TIME_FORMAT_MEDIA_TIME.
    HRESULT STDMETHODCALLTYPE SetTimeFormat(const GUID* pFormat) override;
    HRESULT STDMETHODCALLTYPE GetDuration(LONGLONG* pDuration) override;
    HRESULT STDMETHODCALLTYPE GetStopPosition(LONGLONG* pStop) override;
    /// E_NOTIMPL: only the derived class knows the position of the stream.
    HRESULT STDMETHODCALLTYPE GetCurrentPosition(LONGLONG* pCurrent) override;
    /// Media time to media time, the meaning of a missing format; E_INVALIDARG for others.
    HRESULT STDMETHODCALLTYPE ConvertTimeFormat(LONGLONG* pTarget, const GUID* pTargetFormat, LONGLONG Source,
                                                const GUID* pSourceFormat) override;
    /// Moves current and stop position as the positioning bits say: absolute, relative to the old value or,
    /// for the stop, relative to the new current position; then calls `ChangeStop` and `ChangeStart`. Flags
    /// of 0 leave a position alone, and its pointer may be null; so does a current position while there are
    /// none (`HasPositions`).
    /// @return E_INVALIDARG for other positioning of the current position, or stop flags beyond the
    ///         positioning bits, with nothing changed; else the last notification's result.
    HRESULT STDMETHODCALLTYPE SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop,
                                           DWORD dwStopFlags) override;
    /// Either pointer may be null.
    HRESULT STDMETHODCALLTYPE GetPositions(LONGLONG* pCurrent, LONGLONG* pStop) override;
    /// From 0 to the duration; either pointer may be null.
    HRESULT STDMETHODCALLTYPE GetAvailable(LONGLONG* pEarliest, LONGLONG* pLatest) override;
    /// Keeps the rate and returns what `ChangeRate` says.
    HRESULT STDMETHODCALLTYPE SetRate(double dRate) override;
    HRESULT STDMETHODCALLTYPE GetRate(double* pdRate) override;
    /// 0.
    HRESULT STDMETHODCALLTYPE GetPreroll(LONGLONG* pllPreroll) override;

protected:
    /// The values have been set, by a client.
    virtual HRESULT ChangeStart(REFERENCE_TIME rtStart) = 0;
    virtual HRESULT ChangeStop(REFERENCE_TIME rtStop) = 0;
    virtual HRESULT ChangeRate(double dRate) = 0;
    /// A current position can be sought; else `SetPositions` leaves it as it is.
    virtual bool HasPositions() const { return true; }

    static constexpr REFERENCE_TIME kNoEnd = 0x7FFFFFFFFFFFFFFF / 2;  // stop and duration not known

    CCritSec* const m_pLock;                           // the seeking lock
    std::atomic<REFERENCE_TIME> m_rtStart{0};          // current position, 100 ns
    std::atomic<REFERENCE_TIME> m_rtStop{kNoEnd};      // stop position, 100 ns
    std::atomic<REFERENCE_TIME> m_rtDuration{kNoEnd};  // duration, 100 ns
    std::atomic<double> m_dRateSeeking{1.0};           // rate
    std::atomic<DWORD> m_dwSeekingCaps;                // AM_SEEKING capabilities
};

}  // namespace kest

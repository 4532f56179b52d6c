#pragma once

#include <optional>

#include "pins/DemuxOutputPin.h"
#include "pins/PinSeeking.h"

namespace kest {

/// The pin "Video Output": one compressed picture a sample. It owns the seeking object of the filter.
class CKestDemux2VideoOutputPin final : public CDemuxOutputPin {
public:
    /// @param pFilter, pSite  the filter.
    /// @param timing          shared with the audio pin.
    /// @param pLock           the filter's pin lock.
    /// @param phr             unchanged, or why the pin cannot be used; may be null.
    CKestDemux2VideoOutputPin(CPinOwner* pFilter, IDemuxFilterSite* pSite, CAvTiming& timing, CCritSec* pLock,
                              HRESULT* phr);
    ~CKestDemux2VideoOutputPin() override { EndDelivery(); }

    /// Also forgets the time base.
    void CloseMemFiles() override;

    /// The seeking object behind the pin's and the filter's IMediaSeeking.
    CPinSeeking& GetSeeking() { return m_seeking; }
    /// The input's reader, which knows the length of the source; null: none. Counted.
    void SetAsyncReader(IAsyncReader* pReader) { m_pAsyncReader = pReader; }
    /// Takes duration and stop position from the length of the source and its bit rate, and hands position
    /// and length to the filter. Without a reader it does nothing.
    void InitSeeking();
    /// The file position of the last frame, for the seeking position.
    void SetFilePos(std::int64_t llFilePos) { m_seeking.SetFilePos(llFilePos); }

    HRESULT CheckMediaType(const CMediaType& type) override;
    HRESULT GetMediaType(int n, CMediaType& type) override;
    /// Moves the seeking position, delivers, and waits for the next step in single-step mode; a preroll
    /// sample is only delivered.
    HRESULT Deliver(IMediaSample* pSample) override;
    /// Only waits while the pin is blocked: the notice is not passed downstream. S_OK.
    HRESULT DeliverNewSegment(REFERENCE_TIME rtStart, REFERENCE_TIME rtStop, double dRate) override;
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    /// Lateness handling by working mode. @return S_OK when the pin takes care of it, else E_NOTIMPL or,
    /// without a clock, S_FALSE.
    HRESULT STDMETHODCALLTYPE Notify(IBaseFilter* pSelf, Quality q) override;

private:
    std::optional<CMediaType> GetOfferedType() const;
    HRESULT NotifyElementaryStream(const Quality& q);

    CComPtr<IAsyncReader> m_pAsyncReader;  // of the input; null without a pull source
    CCritSec m_csSeeking;                  // the seeking object's lock
    CPinSeeking m_seeking;
};

}  // namespace kest

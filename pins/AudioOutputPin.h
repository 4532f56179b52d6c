#pragma once

#include "pins/DemuxOutputPin.h"

namespace kest {

/// The pin "Audio Output": one or more compressed audio frames a sample. It has one media type: that which
/// the host has set; else the stream's own, with the switch TrueTypes; else MPEG-1 audio of a fixed format.
class CKestDemux2AudioOutputPin final : public CDemuxOutputPin {
public:
    /// @param pFilter, pSite  the filter.
    /// @param timing          shared with the video pin.
    /// @param pLock           the filter's pin lock.
    /// @param phr             unchanged, or why the pin cannot be used; may be null.
    CKestDemux2AudioOutputPin(CPinOwner* pFilter, IDemuxFilterSite* pSite, CAvTiming& timing, CCritSec* pLock,
                              HRESULT* phr);
    ~CKestDemux2AudioOutputPin() override { EndDelivery(); }

    /// Replaces the type that the pin offers and accepts, from the next connection on. @return E_OUTOFMEMORY.
    HRESULT SetOfferedType(const AM_MEDIA_TYPE& type);

    HRESULT CheckMediaType(const CMediaType& type) override;
    HRESULT GetMediaType(int n, CMediaType& type) override;
    /// Passes the notice downstream and returns what it says; VFW_E_STATE_CHANGED when the pin stays blocked.
    HRESULT DeliverNewSegment(REFERENCE_TIME rtStart, REFERENCE_TIME rtStop, double dRate) override;
    /// E_NOTIMPL, with a debug text.
    HRESULT STDMETHODCALLTYPE Notify(IBaseFilter* pSelf, Quality q) override;

private:
    CMediaType GetOfferedType() const;

    CMediaType m_mtOffered;  // the one type, unless the stream's own is known; under the pin lock
    bool m_bByHost = false;  // the host has set it; under the pin lock
};

}  // namespace kest

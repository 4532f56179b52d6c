#pragma once

#include "pins/DemuxOutputPin.h"

namespace kest {

/// The pin "Audio Output": one or more compressed audio frames a sample. Its one media type is MPEG-1 audio.
class CKestDemux2AudioOutputPin final : public CDemuxOutputPin {
public:
    /// @param pFilter, pSite  the filter.
    /// @param timing          shared with the video pin.
    /// @param pLock           the filter's pin lock.
    /// @param phr             unchanged, or why the pin cannot be used; may be null.
    CKestDemux2AudioOutputPin(CPinOwner* pFilter, IDemuxFilterSite* pSite, CAvTiming& timing, CCritSec* pLock,
                              HRESULT* phr);
    ~CKestDemux2AudioOutputPin() override { EndDelivery(); }

    HRESULT CheckMediaType(const CMediaType& type) override;
    HRESULT GetMediaType(int n, CMediaType& type) override;
    /// Passes the notice downstream and returns what it says; VFW_E_STATE_CHANGED when the pin stays blocked.
    HRESULT DeliverNewSegment(REFERENCE_TIME rtStart, REFERENCE_TIME rtStop, double dRate) override;
    /// E_NOTIMPL, with a debug text.
    HRESULT STDMETHODCALLTYPE Notify(IBaseFilter* pSelf, Quality q) override;

private:
    CMediaType m_mtOffered;  // the fixed type
};

}  // namespace kest

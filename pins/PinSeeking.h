#pragma once

#include "graph/MediaPosition.h"
#include "graph/SourceSeeking.h"
#include "pins/DemuxFilterSite.h"

namespace kest {

/// The seeking object of the video pin: answers IMediaSeeking and IMediaPosition, follows the delivered video
/// with its current position, and hands seeks and rate changes to the filter.
class CPinSeeking final : public CSourceSeeking {
public:
    /// @param pOwner  the outer object: the video pin.
    /// @param pLock   the seeking lock.
    CPinSeeking(IUnknown* pOwner, CCritSec* pLock, IDemuxFilterSite* pSite);

    /// Begins a source: full capabilities, rate 1.0, duration and stop from its length. A bit rate of 0
    /// leaves duration and stop unchanged.
    /// @param llLength  bytes.
    void Init(std::int64_t llLength, std::uint32_t nBitRate);
    /// Follows the video: the current position that a file offset stands for. Tells nobody. A bit rate below
    /// 100 leaves it unchanged.
    void UpdatePosition(std::int64_t llFilePos, std::uint32_t nBitRate);

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    /// Always the same: absolute, forwards and backwards seeking, stop position and duration.
    HRESULT STDMETHODCALLTYPE GetCapabilities(DWORD* pCapabilities) override;
    HRESULT STDMETHODCALLTYPE GetCurrentPosition(LONGLONG* pCurrent) override;

private:
    /// The older position interface, in seconds; setting positions through it has no effect.
    class CPosition final : public CMediaPosition {
    public:
        explicit CPosition(CPinSeeking& seeking) : CMediaPosition(seeking.GetOwner()), m_seeking(seeking) {}

        HRESULT STDMETHODCALLTYPE get_Duration(REFTIME* plength) override;
        HRESULT STDMETHODCALLTYPE put_CurrentPosition(REFTIME) override { return S_OK; }
        HRESULT STDMETHODCALLTYPE get_CurrentPosition(REFTIME* pllTime) override;
        HRESULT STDMETHODCALLTYPE get_StopTime(REFTIME* pllTime) override;
        HRESULT STDMETHODCALLTYPE put_StopTime(REFTIME) override { return S_OK; }
        HRESULT STDMETHODCALLTYPE get_PrerollTime(REFTIME* pllTime) override;
        HRESULT STDMETHODCALLTYPE put_PrerollTime(REFTIME) override { return S_OK; }
        HRESULT STDMETHODCALLTYPE put_Rate(double dRate) override { return m_seeking.SetRate(dRate); }
        HRESULT STDMETHODCALLTYPE get_Rate(double* pdRate) override { return m_seeking.GetRate(pdRate); }
        HRESULT STDMETHODCALLTYPE CanSeekForward(LONG* pCanSeekForward) override;
        HRESULT STDMETHODCALLTYPE CanSeekBackward(LONG* pCanSeekBackward) override;

    private:
        CPinSeeking& m_seeking;
    };

    HRESULT ChangeStart() override;
    HRESULT ChangeStop() override;
    HRESULT ChangeRate() override;

    IDemuxFilterSite* const m_pDemuxFilter;  // its seeking hooks are called
    CPosition m_position{*this};
};

}  // namespace kest

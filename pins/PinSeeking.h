#pragma once

#include <functional>
#include <optional>

#include "demux/FrameInfo.h"
#include "demux/ParseSettings.h"
#include "graph/MediaPosition.h"
#include "graph/SourceSeeking.h"
#include "pins/DemuxFilterSite.h"

namespace kest {

/// The seeking object of the video pin: answers IMediaSeeking and IMediaPosition, follows the delivered video
/// with its current position, and hands seeks and rate changes to the filter.
///
/// Positions stand for places in the file by the source's bit rate. While that is not known (0) nothing can
/// be sought: the position stays as it is. Where seeks go by time (GetTimeExtent), positions are media times instead,
/// which begin with the earliest timestamp of the source.
///
/// Seeks come one at a time: the seek lock is held from the change of the position to the end of the filter's
/// hook, and is taken before every other lock of the pins.
class CPinSeeking final : public CSourceSeeking {
public:
    /// @param pOwner  the outer object: the video pin.
    /// @param pLock   the seeking lock.
    CPinSeeking(IUnknown* pOwner, CCritSec* pLock, IDemuxFilterSite* pSite);

    /// Begins a source: full capabilities, rate 1.0, duration and stop from its times, or from its length. A bit rate
    /// of 0 leaves duration and stop unchanged. While no delivery thread runs.
    /// @param llLength  bytes.
    void Init(std::int64_t llLength);
    /// Another source is connected: positions in the one before mean nothing in it.
    void ForgetPositions();
    /// The last frame: its file position and its time.
    void SetFrame(const FRAME_INFO& info);
    std::int64_t GetFilePos() const { return m_llFilePos; }
    /// Follows the video: the current position becomes the media time of the last frame, of one without timestamps in
    /// proportion to its file position; without media times, the time that the file position stands for. Notifies
    /// nobody. A bit rate below 100 leaves it unchanged.
    void UpdatePosition();

    /// Seeks 100 ms ahead of the current position; not by time, since an access point may lie before it.
    /// @param isStale  asked with the seek lock held; true: another seek has been faster, there is none.
    /// @return the number of the seek; empty: there was none.
    std::optional<std::uint32_t> SkipAhead(const std::function<bool()>& isStale);
    /// Counts the seeks; counted before the filter carries one out.
    std::uint32_t GetSeekCount() const { return m_nSeeks; }

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    /// Always the same: absolute, forwards and backwards seeking, stop position and duration.
    HRESULT STDMETHODCALLTYPE GetCapabilities(DWORD* pCapabilities) override;
    HRESULT STDMETHODCALLTYPE GetCurrentPosition(LONGLONG* pCurrent) override;
    HRESULT STDMETHODCALLTYPE SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop,
                                           DWORD dwStopFlags) override;

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

    HRESULT ChangeStart(REFERENCE_TIME rtStart) override;
    HRESULT ChangeStop(REFERENCE_TIME rtStop) override;
    HRESULT ChangeRate(double dRate) override;
    bool HasPositions() const override { return m_bByTime || m_pDemuxFilter->GetBitRate() != 0; }

    IDemuxFilterSite* const m_pDemuxFilter;                 // its seeking hooks are called
    CCritSec m_csSeek;                                      // the seek lock
    std::atomic<std::uint32_t> m_nSeeks{0};                 // see GetSeekCount
    std::atomic<std::int64_t> m_llFilePos{0};               // see SetFrame
    std::atomic<std::int64_t> m_llTimestamp{kNoFrameTime};  // PTS of the last frame
    std::atomic<bool> m_bByTime{false};                     // m_extent is known
    TimeExtent m_extent;                                    // of the source; changed in Init alone
    std::int64_t m_llLength = 0;                            // of the source, bytes; the same
    CPosition m_position{*this};
};

}  // namespace kest

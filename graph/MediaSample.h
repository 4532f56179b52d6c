#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <span>

#include "graph/MediaType.h"
#include "graph/Unknown.h"

namespace kest {

/// A buffer of a CMemAllocator with the properties of its contents. With the last reference it returns to the
/// allocator.
///
/// Times are in 100 ns. There is no lock, and only the count is atomic: for whoever holds the only reference to change.
class CMediaSample final : public IMediaSample {
public:
    /// @param allocator  the allocator it returns to.
    /// @param buffer     its memory, owned by the allocator.
    CMediaSample(IMemAllocator& allocator, std::span<BYTE> buffer);

    /// Gives it the properties of a new one, and one reference.
    void HandOut();

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_nRefs; }
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE GetPointer(BYTE** ppBuffer) override;
    LONG STDMETHODCALLTYPE GetSize() override { return static_cast<LONG>(m_buffer.size()); }
    /// VFW_E_SAMPLE_TIME_NOT_SET without times; VFW_S_NO_STOP_TIME, with stop = start + 1, without a stop.
    HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) override;
    /// No start: no times; no stop: a start alone.
    HRESULT STDMETHODCALLTYPE SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) override;
    HRESULT STDMETHODCALLTYPE IsSyncPoint() override { return m_bSyncPoint ? S_OK : S_FALSE; }
    HRESULT STDMETHODCALLTYPE SetSyncPoint(BOOL bIsSyncPoint) override;
    HRESULT STDMETHODCALLTYPE IsPreroll() override { return m_bPreroll ? S_OK : S_FALSE; }
    HRESULT STDMETHODCALLTYPE SetPreroll(BOOL bIsPreroll) override;
    LONG STDMETHODCALLTYPE GetActualDataLength() override { return m_nActualLength; }
    /// VFW_E_BUFFER_OVERFLOW for more bytes than the buffer has.
    HRESULT STDMETHODCALLTYPE SetActualDataLength(LONG nLength) override;
    /// S_FALSE, with null, when the type has not changed; else a copy for the receiver to delete.
    HRESULT STDMETHODCALLTYPE GetMediaType(AM_MEDIA_TYPE** ppMediaType) override;
    /// Null: the type has not changed. E_OUTOFMEMORY, with nothing changed.
    HRESULT STDMETHODCALLTYPE SetMediaType(AM_MEDIA_TYPE* pMediaType) override;
    HRESULT STDMETHODCALLTYPE IsDiscontinuity() override { return m_bDiscontinuity ? S_OK : S_FALSE; }
    HRESULT STDMETHODCALLTYPE SetDiscontinuity(BOOL bDiscontinuity) override;
    /// VFW_E_MEDIA_TIME_NOT_SET without media times.
    HRESULT STDMETHODCALLTYPE GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) override;
    /// Both or none.
    HRESULT STDMETHODCALLTYPE SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) override;

private:
    struct MediaTimes {
        LONGLONG llStart;
        LONGLONG llStop;
    };

    IMemAllocator& m_allocator;                // it returns there; kept alive by it while in use
    const std::span<BYTE> m_buffer;            // the memory
    std::atomic<ULONG> m_nRefs{0};             // 0 while free
    LONG m_nActualLength = 0;                  // bytes of the buffer in use
    std::optional<REFERENCE_TIME> m_rtStart;   // start time
    std::optional<REFERENCE_TIME> m_rtStop;    // stop time; only with a start
    std::optional<MediaTimes> m_mediaTimes;    // media times
    std::unique_ptr<CMediaType> m_pmtChanged;  // the type from this sample on, when it changes
    bool m_bSyncPoint = false;                 // decoding can begin here
    bool m_bPreroll = false;                   // to be decoded but not shown
    bool m_bDiscontinuity = false;             // does not continue the sample before
};

}  // namespace kest

#pragma once

#include <memory>
#include <vector>

#include "graph/MediaSample.h"
#include "platform/CritSec.h"
#include "platform/Event.h"

namespace kest {

/// Makes a CMemAllocator. @return S_OK or E_OUTOFMEMORY.
HRESULT CreateMemoryAllocator(IMemAllocator** ppAllocator);

/// A fixed number of samples in plain memory. `GetBuffer` waits for a free one; `Decommit` ends these waits and frees
/// the memory, at the latest with the last sample that returns.
///
/// Its lock is a leaf: nothing else is taken under it, and no wait holds it. Every sample in use keeps the allocator
/// alive.
class CMemAllocator final : public CImplements<CUnknown, IMemAllocator> {
public:
    explicit CMemAllocator(IUnknown* pOuter = nullptr) : CImplements(pOuter) {}

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    /// Prefix and granted size together are a multiple of the alignment.
    /// @return VFW_E_BADALIGN unless the alignment is a power of two; VFW_E_ALREADY_COMMITTED;
    ///         VFW_E_BUFFERS_OUTSTANDING; E_INVALIDARG for negative numbers; E_POINTER.
    HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* pRequest,
                                            ALLOCATOR_PROPERTIES* pActual) override;
    HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES* pProps) override;
    /// VFW_E_SIZENOTSET before `SetProperties`; E_OUTOFMEMORY, with nothing changed.
    HRESULT STDMETHODCALLTYPE Commit() override;
    HRESULT STDMETHODCALLTYPE Decommit() override;
    /// @param dwFlags  AM_GBF_NOWAIT: VFW_E_TIMEOUT when none is free; the others and the times have no
    ///                 effect.
    /// @return S_OK; VFW_E_NOT_COMMITTED before `Commit`, and when `Decommit` ends the wait; E_ABORT when the calling
    ///         thread is ended by force in it.
    HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime,
                                        REFERENCE_TIME* pEndTime, DWORD dwFlags) override;
    /// Called by a sample of this allocator with its last reference.
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample* pBuffer) override;

private:
    struct AlignedDelete {
        std::align_val_t nAlign;
        void operator()(BYTE* p) const { ::operator delete(p, nAlign); }
    };

    void Allocate();
    void Free();
    bool HasBuffersOutstanding() const { return m_apFree.size() != m_apSamples.size(); }

    CCritSec m_csLock;                                       // guards the members below
    ALLOCATOR_PROPERTIES m_props{};                          // as granted
    bool m_bCommitted = false;                               // samples may be had
    std::unique_ptr<BYTE, AlignedDelete> m_pMemory;          // of all buffers
    std::vector<std::unique_ptr<CMediaSample>> m_apSamples;  // all samples
    std::vector<CMediaSample*> m_apFree;                     // those not in use
    CEvent m_evChanged;                                      // set when a sample returns, and by Decommit
};

}  // namespace kest

#pragma once

#include "platform/ComPtr.h"
#include "platform/api/Interfaces.h"

namespace kest {

/// Holds the reader of a pull source for an input pin, so that others of the filter can read through it.
/// It never reads by itself and has no thread. Used by the control thread; no lock.
class CPullPin {
public:
    /// Takes the reader from the upstream pin.
    /// @param pUpstream  the pin, asked for IAsyncReader.
    /// @param pAlloc     would be the allocator of pulled samples; unused.
    /// @param bSync      would choose the kind of reads; unused.
    /// @return S_OK; VFW_E_ALREADY_CONNECTED while it holds one; E_POINTER; what the query said.
    HRESULT Connect(IUnknown* pUpstream, IMemAllocator* pAlloc, bool bSync);
    /// Gives the reader back. @return S_OK, also without one.
    HRESULT Disconnect();
    /// The reader, or null.
    CComPtr<IAsyncReader> GetReader() const { return m_pReader; }

private:
    CComPtr<IAsyncReader> m_pReader;  // while connected
};

}  // namespace kest

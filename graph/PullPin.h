#pragma once

#include "platform/ComPtr.h"
#include "platform/api/Interfaces.h"

namespace kest {

/// Holds the reader of a pull source for an input pin; other parts of the filter read with it. It has no thread and no
/// lock: for the control thread.
class CPullPin {
public:
    /// Gets the reader of the upstream pin.
    /// @param pUpstream  the pin, queried for IAsyncReader.
    /// @param pAlloc     unused: nothing is read into samples.
    /// @param bSync      unused.
    /// @return S_OK; VFW_E_ALREADY_CONNECTED while it holds one; E_POINTER; the failure of the query.
    HRESULT Connect(IUnknown* pUpstream, IMemAllocator* pAlloc, bool bSync);
    /// Releases the reader. @return S_OK, also without one.
    HRESULT Disconnect();
    /// The reader, or null.
    CComPtr<IAsyncReader> GetReader() const { return m_pReader; }

private:
    CComPtr<IAsyncReader> m_pReader;  // while connected
};

}  // namespace kest

#include "graph/PullPin.h"

namespace kest {

HRESULT CPullPin::Connect(IUnknown* pUpstream, IMemAllocator*, bool) {
    if (m_pReader) return VFW_E_ALREADY_CONNECTED;
    if (!pUpstream) return E_POINTER;
    return pUpstream->QueryInterface(IID_IAsyncReader, reinterpret_cast<void**>(m_pReader.Put()));
}

HRESULT CPullPin::Disconnect() {
    m_pReader = nullptr;
    return S_OK;
}

}  // namespace kest

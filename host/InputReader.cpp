#include "host/InputReader.h"

namespace kest {

HRESULT CInputReader::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IAsyncReader) return E_NOINTERFACE;
    *ppv = static_cast<IAsyncReader*>(this);
    AddRef();
    return S_OK;
}

ULONG CInputReader::Release() {
    const ULONG nRefs = --m_nRefs;
    if (nRefs == 0) delete this;
    return nRefs;
}

void CInputReader::NoteError(LONGLONG llPosition) {
    LONGLONG llNone = -1;
    m_llErrorPosition.compare_exchange_strong(llNone, llPosition);
}

}  // namespace kest

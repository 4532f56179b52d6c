// The part of the file reader that is the same on every system.
#include "platform/FileReader.h"

namespace kest {

HRESULT CFileReader::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IAsyncReader) return E_NOINTERFACE;
    *ppv = static_cast<IAsyncReader*>(this);
    AddRef();
    return S_OK;
}

ULONG CFileReader::AddRef() { return ++m_nRefs; }

ULONG CFileReader::Release() {
    const ULONG nRefs = --m_nRefs;
    if (nRefs == 0) delete this;
    return nRefs;
}

HRESULT CFileReader::NoteError(LONGLONG llPosition) {
    LONGLONG llNone = -1;
    m_llErrorPosition.compare_exchange_strong(llNone, llPosition);
    return E_FAIL;
}

}  // namespace kest

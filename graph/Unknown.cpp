#include "graph/Unknown.h"

namespace kest {

HRESULT CUnknown::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    *ppv = nullptr;
    return riid == IID_IUnknown ? GetInterface<IUnknown>(&m_inner, ppv) : E_NOINTERFACE;
}

ULONG CUnknown::NonDelegatingRelease() {
    const ULONG nRefs = --m_nRefs;
    if (nRefs == 0) {
        ++m_nRefs;  // whoever takes and gives back a reference while it is destroyed must not end it again
        delete this;
    }
    return nRefs;
}

}  // namespace kest

#include "graph/Unknown.h"

#include "platform/Termination.h"

namespace kest {

HRESULT CUnknown::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    *ppv = nullptr;
    return riid == IID_IUnknown ? GetInterface<IUnknown>(&m_inner, ppv) : E_NOINTERFACE;
}

ULONG CUnknown::NonDelegatingRelease() {
    const ULONG nRefs = --m_nRefs;
    if (nRefs == 0) {
        ++m_nRefs;  // a reference taken and given back during destruction does not end it again
        const CTerminationHold hold;  // the destructor may wait, and the caller may be foreign
        delete this;
    }
    return nRefs;
}

}  // namespace kest

#include "platform/Automation.h"

namespace kest {

HRESULT GetDispatchTypeInfoCount(UINT* pctinfo) {
    if (!pctinfo) return E_POINTER;
    *pctinfo = 0;
    return S_OK;
}

HRESULT GetDispatchTypeInfo(REFIID, UINT, LCID, ITypeInfo** ppTInfo) {
    if (!ppTInfo) return E_POINTER;
    *ppTInfo = nullptr;
    return E_NOTIMPL;
}

HRESULT GetDispatchIDsOfNames(REFIID, REFIID, LPOLESTR*, UINT, LCID, DISPID*) { return E_NOTIMPL; }

HRESULT InvokeDispatch(REFIID, IDispatch*, DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                       UINT*) {
    return E_NOTIMPL;
}

}  // namespace kest

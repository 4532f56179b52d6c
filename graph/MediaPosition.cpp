#include "graph/MediaPosition.h"

#include "platform/Automation.h"

namespace kest {

HRESULT CMediaPosition::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IMediaPosition || riid == IID_IDispatch) {
        return GetInterface(static_cast<IMediaPosition*>(this), ppv);
    }
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CMediaPosition::GetTypeInfoCount(UINT* pctinfo) { return GetDispatchTypeInfoCount(pctinfo); }

HRESULT CMediaPosition::GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) {
    return GetDispatchTypeInfo(IID_IMediaPosition, iTInfo, lcid, ppTInfo);
}

HRESULT CMediaPosition::GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid,
                                      DISPID* rgDispId) {
    return GetDispatchIDsOfNames(IID_IMediaPosition, riid, rgszNames, cNames, lcid, rgDispId);
}

HRESULT CMediaPosition::Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags,
                               DISPPARAMS* pDispParams, VARIANT* pVarResult, EXCEPINFO* pExcepInfo,
                               UINT* puArgErr) {
    return InvokeDispatch(IID_IMediaPosition, this, dispIdMember, riid, lcid, wFlags, pDispParams, pVarResult,
                          pExcepInfo, puArgErr);
}

}  // namespace kest

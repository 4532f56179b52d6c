#include "platform/Automation.h"

#include "platform/ComPtr.h"

namespace kest {
namespace {

constexpr GUID kQuartzTypeLib = {
    0x56A868B0, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};

/// The description of an interface in the host's type library, version 1.0.
HRESULT LoadTypeInfo(REFIID iid, LCID lcid, ITypeInfo** ppTypeInfo) {
    CComPtr<ITypeLib> pLibrary;
    const HRESULT hr = LoadRegTypeLib(kQuartzTypeLib, 1, 0, lcid, pLibrary.Put());
    return SUCCEEDED(hr) ? pLibrary->GetTypeInfoOfGuid(iid, ppTypeInfo) : hr;
}

}  // namespace

HRESULT GetDispatchTypeInfoCount(UINT* pctinfo) {
    if (!pctinfo) return E_POINTER;
    *pctinfo = 1;
    return S_OK;
}

HRESULT GetDispatchTypeInfo(REFIID iid, UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) {
    if (!ppTInfo) return E_POINTER;
    *ppTInfo = nullptr;
    return iTInfo == 0 ? LoadTypeInfo(iid, lcid, ppTInfo) : DISP_E_BADINDEX;
}

HRESULT GetDispatchIDsOfNames(REFIID iid, REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid,
                              DISPID* rgDispId) {
    if (riid != GUID_NULL) return DISP_E_UNKNOWNINTERFACE;
    CComPtr<ITypeInfo> pTypeInfo;
    const HRESULT hr = LoadTypeInfo(iid, lcid, pTypeInfo.Put());
    return SUCCEEDED(hr) ? pTypeInfo->GetIDsOfNames(rgszNames, cNames, rgDispId) : hr;
}

HRESULT InvokeDispatch(REFIID iid, IDispatch* pObject, DISPID dispIdMember, REFIID riid, LCID lcid,
                       WORD wFlags, DISPPARAMS* pDispParams, VARIANT* pVarResult, EXCEPINFO* pExcepInfo,
                       UINT* puArgErr) {
    if (riid != GUID_NULL) return DISP_E_UNKNOWNINTERFACE;
    CComPtr<ITypeInfo> pTypeInfo;
    const HRESULT hr = LoadTypeInfo(iid, lcid, pTypeInfo.Put());
    if (FAILED(hr)) return hr;
    return pTypeInfo->Invoke(pObject, dispIdMember, wFlags, pDispParams, pVarResult, pExcepInfo, puArgErr);
}

}  // namespace kest

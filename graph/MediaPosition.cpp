#include "graph/MediaPosition.h"

namespace kest {

HRESULT CMediaPosition::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
    if (riid == IID_IMediaPosition || riid == IID_IDispatch) {
        return GetInterface(static_cast<IMediaPosition*>(this), ppv);
    }
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

#ifdef _WIN32

namespace {

constexpr GUID kQuartzTypeLib = {
    0x56A868B0, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};

/// The interface's description in the host's type library, version 1.0.
HRESULT LoadTypeInfo(LCID lcid, ITypeInfo** ppTypeInfo) {
    CComPtr<ITypeLib> pLibrary;
    const HRESULT hr = LoadRegTypeLib(kQuartzTypeLib, 1, 0, lcid, pLibrary.Put());
    return SUCCEEDED(hr) ? pLibrary->GetTypeInfoOfGuid(IID_IMediaPosition, ppTypeInfo) : hr;
}

}  // namespace

HRESULT CMediaPosition::GetTypeInfoCount(UINT* pctinfo) {
    if (!pctinfo) return E_POINTER;
    *pctinfo = 1;
    return S_OK;
}

HRESULT CMediaPosition::GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) {
    if (!ppTInfo) return E_POINTER;
    *ppTInfo = nullptr;
    return iTInfo == 0 ? LoadTypeInfo(lcid, ppTInfo) : DISP_E_BADINDEX;
}

HRESULT CMediaPosition::GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid,
                                      DISPID* rgDispId) {
    if (riid != GUID_NULL) return DISP_E_UNKNOWNINTERFACE;
    CComPtr<ITypeInfo> pTypeInfo;
    const HRESULT hr = LoadTypeInfo(lcid, pTypeInfo.Put());
    return SUCCEEDED(hr) ? pTypeInfo->GetIDsOfNames(rgszNames, cNames, rgDispId) : hr;
}

HRESULT CMediaPosition::Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags,
                               DISPPARAMS* pDispParams, VARIANT* pVarResult, EXCEPINFO* pExcepInfo,
                               UINT* puArgErr) {
    if (riid != GUID_NULL) return DISP_E_UNKNOWNINTERFACE;
    CComPtr<ITypeInfo> pTypeInfo;
    const HRESULT hr = LoadTypeInfo(lcid, pTypeInfo.Put());
    if (FAILED(hr)) return hr;
    return pTypeInfo->Invoke(static_cast<IMediaPosition*>(this), dispIdMember, wFlags, pDispParams,
                             pVarResult, pExcepInfo, puArgErr);
}

#else

HRESULT CMediaPosition::GetTypeInfoCount(UINT* pctinfo) {
    if (!pctinfo) return E_POINTER;
    *pctinfo = 0;
    return S_OK;
}

HRESULT CMediaPosition::GetTypeInfo(UINT, LCID, ITypeInfo**) { return E_NOTIMPL; }
HRESULT CMediaPosition::GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) { return E_NOTIMPL; }
HRESULT CMediaPosition::Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) {
    return E_NOTIMPL;
}

#endif

}  // namespace kest

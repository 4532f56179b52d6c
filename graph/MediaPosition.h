#pragma once

#include "graph/Unknown.h"

namespace kest {

/// Base of an `IMediaPosition` object: serves its automation side (IDispatch), see platform/Automation.h.
///
/// No state of its own; callable from any thread.
class CMediaPosition : public CImplements<CUnknown, IMediaPosition> {
public:
    explicit CMediaPosition(IUnknown* pOuter) : CImplements(pOuter) {}

    /// IMediaPosition, IDispatch and IUnknown.
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* pctinfo) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) override;
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid,
                                            DISPID* rgDispId) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags,
                                     DISPPARAMS* pDispParams, VARIANT* pVarResult, EXCEPINFO* pExcepInfo,
                                     UINT* puArgErr) override;
};

}  // namespace kest

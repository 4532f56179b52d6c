// The automation side (IDispatch) of an interface, served from the description that the host's type library has of it.
// Where there is no such library: no type information, and E_NOTIMPL. The parameters are those of IDispatch.
#pragma once

#include "platform/api/Interfaces.h"

namespace kest {

HRESULT GetDispatchTypeInfoCount(UINT* pctinfo);

/// @param iid  the interface that is described.
HRESULT GetDispatchTypeInfo(REFIID iid, UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo);

/// @param iid  the interface whose names are looked up.
HRESULT GetDispatchIDsOfNames(REFIID iid, REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid,
                              DISPID* rgDispId);

/// Calls a method by its number.
/// @param iid      the interface that the method belongs to.
/// @param pObject  the object, as that interface.
HRESULT InvokeDispatch(REFIID iid, IDispatch* pObject, DISPID dispIdMember, REFIID riid, LCID lcid,
                       WORD wFlags, DISPPARAMS* pDispParams, VARIANT* pVarResult, EXCEPINFO* pExcepInfo,
                       UINT* puArgErr);

}  // namespace kest

// What a module says of its classes, and the class objects that make their instances.
#pragma once

#include "graph/Unknown.h"
#include "platform/api/Interfaces.h"

namespace kest {

// ---------------- the description of a filter, for the host's registry

/// A media type that a pin takes or offers.
struct AMOVIESETUP_MEDIATYPE {
    const CLSID* clsMajorType;
    const CLSID* clsMinorType;
};

struct AMOVIESETUP_PIN {
    LPCWSTR strName;                   // name of the pin
    BOOL bRendered;                    // what comes in is rendered; or: the filter renders a stream
    BOOL bOutput;                      // an output pin
    BOOL bZero;                        // there may be none of it
    BOOL bMany;                        // there may be several of it
    const CLSID* clsConnectsToFilter;  // filter that it connects to, or GUID_NULL
    LPCWSTR strConnectsToPin;          // pin that it connects to, or empty
    UINT nMediaTypes;                  // entries of lpMediaType
    const AMOVIESETUP_MEDIATYPE* lpMediaType;
};

struct AMOVIESETUP_FILTER {
    const CLSID* clsID;  // class of the filter
    LPCWSTR strName;     // name that users see
    DWORD dwMerit;       // how early the host tries it when it builds a graph
    UINT nPins;          // entries of lpPin
    const AMOVIESETUP_PIN* lpPin;
};

// ---------------- classes and their class objects

/// One class that a module offers.
struct CFactoryTemplate {
    /// Makes an object without a reference. @return null without memory; a failure in *phr has it ended.
    using NewObject = CUnknown* (*)(IUnknown* pOuter, HRESULT* phr);
    /// Told when the module comes (true) and goes (false).
    using Initialise = void (*)(bool bLoading, const CLSID* pClass);

    LPCWSTR m_Name;                                             // name of the class
    const CLSID* m_ClsID;                                       // its identifier
    NewObject m_lpfnNew;                                        // see there
    Initialise m_lpfnInit = nullptr;                            // see there; null: nothing to do
    const AMOVIESETUP_FILTER* m_pAMovieSetup_Filter = nullptr;  // for a filter, its description
};

/// Makes the class object of a class.
/// @param classTemplate  must outlive it.
/// @param riid           IID_IClassFactory or IID_IUnknown.
/// @return S_OK with a reference in *ppv; E_NOINTERFACE; E_OUTOFMEMORY; E_POINTER.
HRESULT CreateClassObject(const CFactoryTemplate& classTemplate, REFIID riid, void** ppv);

/// Whether a host holds this module by IClassFactory::LockServer.
bool IsServerLocked();

}  // namespace kest

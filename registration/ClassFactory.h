// The description of a module's classes, and the class objects that make their instances.
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
    BOOL bRendered;                    // the host counts it among the pins whose data is rendered
    BOOL bOutput;                      // an output pin
    BOOL bZero;                        // the filter may have none of it
    BOOL bMany;                        // the filter may have several of it
    const CLSID* clsConnectsToFilter;  // the filter that it connects to; GUID_NULL: any
    LPCWSTR strConnectsToPin;          // the pin that it connects to; empty: any
    UINT nMediaTypes;                  // entries of lpMediaType
    const AMOVIESETUP_MEDIATYPE* lpMediaType;
};

struct AMOVIESETUP_FILTER {
    const CLSID* clsID;  // class of the filter
    LPCWSTR strName;     // the name that users see
    DWORD dwMerit;       // how early the host tries it when it builds a graph
    UINT nPins;          // entries of lpPin
    const AMOVIESETUP_PIN* lpPin;
};

// ---------------- classes and their class objects

/// One class that a module offers.
struct CFactoryTemplate {
    /// Makes an object that has no reference yet.
    /// @param pOuter  the outer object; null: not aggregated.
    /// @param phr     S_OK; an error that is set here destroys the new object.
    /// @return the object; null: not enough memory.
    using NewObject = CUnknown* (*)(IUnknown* pOuter, HRESULT* phr);
    /// Called when the module is loaded (true) and when it is unloaded (false).
    using Initialise = void (*)(bool bLoading, const CLSID* pClass);

    LPCWSTR m_Name;                                             // name of the class
    const CLSID* m_ClsID;                                       // its identifier
    NewObject m_lpfnNew;                                        // makes its objects
    Initialise m_lpfnInit = nullptr;                            // null: nothing to do
    const AMOVIESETUP_FILTER* m_pAMovieSetup_Filter = nullptr;  // description of a filter; null: no filter
};

/// Makes the class object of a class.
/// @param classTemplate  must outlive it.
/// @param riid           IID_IClassFactory or IID_IUnknown.
/// @return S_OK with a reference in *ppv; E_NOINTERFACE; E_OUTOFMEMORY; E_POINTER.
HRESULT CreateClassObject(const CFactoryTemplate& classTemplate, REFIID riid, void** ppv);

/// Whether IClassFactory::LockServer keeps this module loaded.
bool IsServerLocked();

}  // namespace kest

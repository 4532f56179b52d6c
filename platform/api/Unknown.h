// IUnknown, the root of every interface of the host.
#pragma once

#include "platform/api/Types.h"

#ifdef _WIN32
#include <unknwn.h>
#else

constexpr IID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

struct IUnknown {
    /// Gives the interface `riid` of the same object in `*ppv`, with a reference added; E_NOINTERFACE.
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) = 0;
    /// Adds a reference; returns the new count (for diagnosis only).
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    /// Gives a reference back; the last one ends the object. Returns the new count.
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

protected:
    ~IUnknown() = default;
};

#endif

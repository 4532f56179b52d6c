#pragma once

#include <atomic>
#include <cstdint>

#include "platform/ComPtr.h"
#include "platform/api/Interfaces.h"

namespace kest {

/// Base of every object that the host counts references to, alone or aggregated into an outer object.
///
/// Its *owner* is the identity that clients see: the outer object when there is one, else the object itself; every
/// interface delegates QueryInterface, AddRef and Release to it. Its *inner unknown* is what an outer object holds: it
/// reaches this object's own interfaces and count. A new object has no reference; the last one that is given back ends
/// it. The waits of its destructor are then not ended by force.
///
/// The count is atomic; queries may come from any thread.
class CUnknown {
public:
    /// @param pOuter  the outer object, not counted: it outlives this one; null: not aggregated.
    explicit CUnknown(IUnknown* pOuter = nullptr) : m_pOwner(pOuter ? pOuter : &m_inner) { ++s_nObjects; }
    virtual ~CUnknown() { --s_nObjects; }
    CUnknown(const CUnknown&) = delete;
    CUnknown& operator=(const CUnknown&) = delete;

    /// The identity, without a reference added.
    IUnknown* GetOwner() const { return m_pOwner; }
    /// Whether any object of this module is alive. A sample counts through the allocator that it keeps alive.
    static bool AnyAlive() { return s_nObjects != 0; }
    /// This object's own IUnknown, without a reference added.
    IUnknown* GetInnerUnknown() { return &m_inner; }

    /// Finds one of this object's own interfaces; the base has IUnknown alone. A derived class tests for its interfaces
    /// and leaves the rest to its base. Does not throw.
    /// @param ppv  never null: QueryInterface has returned E_POINTER for that.
    /// @return S_OK with a reference added; E_NOINTERFACE with *ppv null.
    virtual HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv);
    /// Counts on this object; both return the new count.
    virtual ULONG NonDelegatingAddRef() { return ++m_nRefs; }
    virtual ULONG NonDelegatingRelease();

protected:
    /// The result of a query: `pInterface`, with a reference added.
    template <class Interface>
    static HRESULT GetInterface(Interface* pInterface, void** ppv) {
        pInterface->AddRef();
        *ppv = pInterface;
        return S_OK;
    }

private:
    class CInner final : public IUnknown {
    public:
        explicit CInner(CUnknown& object) : m_object(object) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
            return ppv ? m_object.NonDelegatingQueryInterface(riid, ppv) : E_POINTER;
        }
        ULONG STDMETHODCALLTYPE AddRef() override { return m_object.NonDelegatingAddRef(); }
        ULONG STDMETHODCALLTYPE Release() override { return m_object.NonDelegatingRelease(); }

    private:
        CUnknown& m_object;
    };

    CInner m_inner{*this};          // this object's own IUnknown
    IUnknown* const m_pOwner;       // the identity
    std::atomic<ULONG> m_nRefs{0};  // references to this object alone

    inline static std::atomic<std::uint32_t> s_nObjects{0};  // alive in this module
};

/// Adds interfaces to a class derived from CUnknown and delegates their IUnknown part to the owner:
/// `class CMyFilter : public CImplements<CBaseFilter, IFileSinkFilter> {...};`. NonDelegatingQueryInterface finds them
/// under their identifiers.
template <class Base, class... Interfaces>
class CImplements : public Base, public Interfaces... {
public:
    using Base::Base;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        return this->GetOwner()->QueryInterface(riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return this->GetOwner()->AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return this->GetOwner()->Release(); }
};

}  // namespace kest

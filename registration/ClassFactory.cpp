#include "registration/ClassFactory.h"

#include <atomic>
#include <exception>
#include <memory>
#include <new>

namespace kest {
namespace {

std::atomic<LONG> g_nLocks{0};  // of LockServer, over all class objects of the module

/// The class object: makes instances of one class.
class CClassFactory final : public CImplements<CUnknown, IClassFactory> {
public:
    explicit CClassFactory(const CFactoryTemplate& classTemplate) : m_template(classTemplate) {}

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IClassFactory) return GetInterface(static_cast<IClassFactory*>(this), ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }
    /// E_NOINTERFACE when an aggregate asks for another interface than IUnknown; E_OUTOFMEMORY; what the
    /// object's constructor says.
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) override {
        g_nLocks += fLock ? 1 : -1;
        return S_OK;
    }

private:
    const CFactoryTemplate& m_template;  // of the class
};

HRESULT CClassFactory::CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) {
    if (!ppvObject) return E_POINTER;
    *ppvObject = nullptr;
    if (pUnkOuter && !(riid == IID_IUnknown)) return E_NOINTERFACE;
    try {
        HRESULT hr = S_OK;
        std::unique_ptr<CUnknown> pNew(m_template.m_lpfnNew(pUnkOuter, &hr));
        if (FAILED(hr)) return hr;
        if (!pNew) return E_OUTOFMEMORY;
        CUnknown* pObject = pNew.release();
        pObject->NonDelegatingAddRef();
        hr = pObject->NonDelegatingQueryInterface(riid, ppvObject);
        pObject->NonDelegatingRelease();  // ends it unless the query took a reference
        return hr;
    } catch (const std::exception&) {
        return E_OUTOFMEMORY;  // the system gave no memory, or no event or thread
    }
}

}  // namespace

HRESULT CreateClassObject(const CFactoryTemplate& classTemplate, REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    auto* pFactory = new (std::nothrow) CClassFactory(classTemplate);
    return pFactory ? CComPtr<IClassFactory>(pFactory)->QueryInterface(riid, ppv) : E_OUTOFMEMORY;
}

bool IsServerLocked() { return g_nLocks > 0; }

}  // namespace kest

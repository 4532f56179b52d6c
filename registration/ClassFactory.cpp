#include "registration/ClassFactory.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>

#include "graph/Guard.h"

namespace kest {
namespace {

std::atomic<LONG> g_nLocks{0};  // by LockServer, through all class objects of the module

/// The class object: makes instances of one class.
class CClassFactory final : public CImplements<CUnknown, IClassFactory> {
public:
    explicit CClassFactory(const CFactoryTemplate& classTemplate) : m_template(classTemplate) {}

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IClassFactory) return GetInterface(static_cast<IClassFactory*>(this), ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }
    /// @return E_NOINTERFACE: an outer object asks for another interface than IUnknown, or the object lacks it;
    ///         E_OUTOFMEMORY; the result of the object's constructor.
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) override;
    /// An unlock without a lock is ignored, so that it does not undo the next lock.
    HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) override {
        LONG nLocks = g_nLocks;
        while (!g_nLocks.compare_exchange_weak(nLocks, std::max<LONG>(nLocks + (fLock ? 1 : -1), 0)))
            continue;
        return S_OK;
    }

private:
    const CFactoryTemplate& m_template;  // of the class
};

HRESULT CClassFactory::CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) {
    if (!ppvObject) return E_POINTER;
    *ppvObject = nullptr;
    if (pUnkOuter && !(riid == IID_IUnknown)) return E_NOINTERFACE;
    return Guard([&]() -> HRESULT {
        HRESULT hr = S_OK;
        std::unique_ptr<CUnknown> pNew(m_template.m_lpfnNew(pUnkOuter, &hr));
        if (FAILED(hr)) return hr;
        if (!pNew) return E_OUTOFMEMORY;
        const CComPtr<IUnknown> pObject(pNew.release()->GetInnerUnknown());
        return pObject->QueryInterface(riid, ppvObject);
    });
}

}  // namespace

HRESULT CreateClassObject(const CFactoryTemplate& classTemplate, REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    auto* pFactory = new (std::nothrow) CClassFactory(classTemplate);
    return pFactory ? CComPtr<IClassFactory>(pFactory)->QueryInterface(riid, ppv) : E_OUTOFMEMORY;
}

bool IsServerLocked() { return g_nLocks != 0; }

}  // namespace kest

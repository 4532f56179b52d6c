// Making objects through a module's class objects, and when the module may be unloaded.
#include "registration/Module.h"

#include <gtest/gtest.h>

#include <new>

#include "platform/Termination.h"

namespace kest {
namespace {

/// An object that knows IUnknown alone; memory runs out when it is asked for IPin.
class CPlain final : public CUnknown {
public:
    using CUnknown::CUnknown;
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IPin) throw std::bad_alloc();
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }
};

CUnknown* Make(IUnknown* pOuter, HRESULT*) { return new CPlain(pOuter); }
CUnknown* MakeWithError(IUnknown*, HRESULT* phr) { return *phr = VFW_E_WRONG_STATE, new CPlain; }
template <class Exception>
CUnknown* Throw(IUnknown*, HRESULT*) {
    throw Exception();
}

TEST(Module, ACreationThatFailsGivesTheReasonAndNothingKeepsTheModule) {
    const std::tuple<CFactoryTemplate::NewObject, IID, HRESULT> kCases[] = {
        {Make, IID_IUnknown, S_OK},
        {Make, IID_IPersist, E_NOINTERFACE},
        {Make, IID_IPin, E_OUTOFMEMORY},
        {MakeWithError, IID_IUnknown, VFW_E_WRONG_STATE},
        {Throw<std::bad_alloc>, IID_IUnknown, E_OUTOFMEMORY},
        {Throw<std::exception>, IID_IUnknown, E_FAIL},
        {Throw<CThreadTermination>, IID_IUnknown, E_ABORT},
    };
    for (const auto& [pNew, iid, hr] : kCases) {
        const CFactoryTemplate classTemplate{L"", &IID_IUnknown, pNew};
        const CModule module({&classTemplate, 1});
        CComPtr<IClassFactory> pFactory;
        CComPtr<IUnknown> pObject;
        module.GetClassObject(IID_IUnknown, IID_IClassFactory, reinterpret_cast<void**>(pFactory.Put()));
        EXPECT_EQ(hr, pFactory->CreateInstance(nullptr, iid, reinterpret_cast<void**>(pObject.Put())));
        for (const BOOL bLock : {FALSE, TRUE}) pFactory->LockServer(bLock);
        EXPECT_TRUE(IsServerLocked()) << "an unlock without a lock has undone the next lock";
        pFactory->LockServer(FALSE);
        pFactory = nullptr;
        EXPECT_EQ(hr == S_OK ? S_FALSE : S_OK, module.CanUnloadNow()) << hr;
    }
}

}  // namespace
}  // namespace kest

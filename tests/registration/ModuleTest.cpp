// What stands behind a module's exported functions, with classes made up for the purpose.
#include "registration/Module.h"

#include <gtest/gtest.h>

#include <new>

namespace kest {
namespace {

constexpr CLSID kGood = {0x1, 0, 0, {}};
constexpr CLSID kRefusing = {0x2, 0, 0, {}};
constexpr CLSID kNoMemory = {0x3, 0, 0, {}};
constexpr CLSID kThrowing = {0x4, 0, 0, {}};

/// An object with no interface but IUnknown.
class CPlain final : public CUnknown {
public:
    explicit CPlain(IUnknown* pOuter) : CUnknown(pOuter) {}
};

std::string g_strTold;  // what the classes were told

void Note(bool bLoading, const CLSID* pClass) {
    g_strTold += (bLoading ? "come " : "gone ") + std::to_string(pClass->Data1) + "|";
}

CUnknown* Make(IUnknown* pOuter, HRESULT*) { return new CPlain(pOuter); }
CUnknown* Refuse(IUnknown* pOuter, HRESULT* phr) {
    *phr = VFW_E_WRONG_STATE;
    return new CPlain(pOuter);
}
CUnknown* MakeNone(IUnknown*, HRESULT*) { return nullptr; }
CUnknown* Throw(IUnknown*, HRESULT*) { throw std::bad_alloc(); }

constexpr CFactoryTemplate kTemplates[] = {{L"good", &kGood, Make, Note, nullptr},
                                           {L"refusing", &kRefusing, Refuse, nullptr, nullptr},
                                           {L"no memory", &kNoMemory, MakeNone, Note, nullptr},
                                           {L"throwing", &kThrowing, Throw, nullptr, nullptr}};

CComPtr<IClassFactory> GetFactory(const CModule& module, REFCLSID clsid) {
    CComPtr<IClassFactory> pFactory;
    EXPECT_EQ(S_OK,
              module.GetClassObject(clsid, IID_IClassFactory, reinterpret_cast<void**>(pFactory.Put())));
    return pFactory;
}

TEST(Module, TellsItsClassesThatItComesAndGoes) {
    g_strTold.clear();
    { const CModule module(kTemplates); }
    EXPECT_EQ(g_strTold, "come 1|come 3|gone 1|gone 3|");
}

TEST(Module, HandsOutClassObjectsOfItsOwnClassesAlone) {
    const CModule module(kTemplates);
    int nStale = 0;
    void* p = &nStale;
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, module.GetClassObject(GUID_NULL, IID_IClassFactory, &p));
    EXPECT_EQ(nullptr, p);
    p = &nStale;
    EXPECT_EQ(E_NOINTERFACE, module.GetClassObject(kGood, IID_IPin, &p));
    EXPECT_EQ(nullptr, p);
    EXPECT_EQ(E_POINTER, module.GetClassObject(kGood, IID_IClassFactory, nullptr));
    EXPECT_EQ(S_OK, module.CanUnloadNow());
}

TEST(Module, ACreationThatFailsSaysWhyAndLeavesNothingBehind) {
    const CModule module(kTemplates);
    const struct {
        const CLSID& clsid;
        const IID& iid;
        HRESULT hr;
    } kCases[] = {
        {kRefusing, IID_IUnknown, VFW_E_WRONG_STATE},
        {kNoMemory, IID_IUnknown, E_OUTOFMEMORY},
        {kThrowing, IID_IUnknown, E_OUTOFMEMORY},
        {kGood, IID_IPin, E_NOINTERFACE},
    };
    for (const auto& each : kCases) {
        int nStale = 0;
        void* p = &nStale;
        EXPECT_EQ(each.hr, GetFactory(module, each.clsid)->CreateInstance(nullptr, each.iid, &p));
        EXPECT_EQ(nullptr, p);
        EXPECT_EQ(S_OK, module.CanUnloadNow());
    }
    EXPECT_EQ(E_POINTER, GetFactory(module, kGood)->CreateInstance(nullptr, IID_IUnknown, nullptr));
}

TEST(Module, AnAggregatedObjectIsReachedThroughItsInnerUnknownAlone) {
    const CModule module(kTemplates);
    CPlain outer(nullptr);
    CComPtr<IUnknown> pInner;
    void** ppv = reinterpret_cast<void**>(pInner.Put());
    const auto pFactory = GetFactory(module, kGood);
    EXPECT_EQ(E_NOINTERFACE, pFactory->CreateInstance(outer.GetOwner(), IID_IClassFactory, ppv));
    ASSERT_EQ(S_OK, pFactory->CreateInstance(outer.GetOwner(), IID_IUnknown, ppv));
    EXPECT_NE(outer.GetOwner(), pInner.Get());
}

TEST(Module, StaysWhileAnObjectOrALockIsThere) {
    const CModule module(kTemplates);
    auto pFactory = GetFactory(module, kGood);
    EXPECT_EQ(S_FALSE, module.CanUnloadNow());
    CComPtr<IUnknown> pObject;
    pFactory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(pObject.Put()));
    EXPECT_EQ(S_OK, pFactory->LockServer(TRUE));
    pFactory = nullptr;
    EXPECT_EQ(S_FALSE, module.CanUnloadNow());
    pObject = nullptr;
    EXPECT_EQ(S_FALSE, module.CanUnloadNow());
    EXPECT_EQ(S_OK, GetFactory(module, kGood)->LockServer(FALSE));
    EXPECT_EQ(S_OK, module.CanUnloadNow());
}

}  // namespace
}  // namespace kest

// The module as a host sees it: loaded, asked for the filter, unloaded.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "registration/LoadedModule.h"
#include "support/ControlContract.h"
#include "support/PlayingGraph.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

// What hosts know the filter by.
constexpr CLSID kFilter = {0xF7DB4970, 0x3AB8, 0x8BC1, {0x2F, 0xD6, 0xD8, 0x23, 0x31, 0xF2, 0x00, 0x00}};

/// Whether the module is in this process, loaded by whomever.
bool IsLoaded() {
    void* hModule = dlopen(KEST_MODULE, RTLD_NOW | RTLD_NOLOAD);
    if (hModule) dlclose(hModule);
    return hModule != nullptr;
}

CComPtr<IBaseFilter> CreateFilter(CLoadedModule& module) {
    CComPtr<IBaseFilter> pFilter;
    void** const ppv = reinterpret_cast<void**>(pFilter.Put());
    EXPECT_EQ(S_OK, module.CreateInstance(kFilter, IID_IBaseFilter, ppv));
    return pFilter;
}

TEST(LoadedModule, CreatesFiltersAndIsUnloadedWithTheLastPartOfOne) {
    std::string strError;
    auto pModule = CLoadedModule::Load(KEST_MODULE, strError);
    ASSERT_TRUE(pModule) << strError;
    void* p = nullptr;
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, pModule->CreateInstance(IID_IPin, IID_IUnknown, &p));
    EXPECT_EQ(E_NOINTERFACE, pModule->CreateInstance(kFilter, IID_IPin, &p));
    {
        CPlayingGraph graph(CreateFilter(*pModule));
        ASSERT_EQ(graph.m_pGraph->Run(), S_OK);
        EXPECT_TRUE(graph.HasPlayed());
    }
    pModule.reset();
    EXPECT_FALSE(IsLoaded()) << "a stream was played, and nothing of it is left";

    pModule = CLoadedModule::Load(KEST_MODULE, strError);
    CComPtr<IEnumPins> pPins;
    ASSERT_EQ(S_OK, CreateFilter(*pModule)->EnumPins(pPins.Put()));
    pModule.reset();
    EXPECT_TRUE(IsLoaded()) << "its enumerator is still in use";
    CComPtr<IPin> pPin;
    EXPECT_EQ(S_OK, pPins->Next(1, pPin.Put(), nullptr));
}

TEST(LoadedModule, ControlInterfacesDoWhatTheirDeclarationSays) {
    std::string strError;
    const auto pModule = CLoadedModule::Load(KEST_MODULE, strError);
    ASSERT_TRUE(pModule) << strError;
    EXPECT_NO_THROW(CControlContract(CreateFilter(*pModule).Get(), testing::TempDir()).Check());
}

}  // namespace
}  // namespace kest

// The module as a host sees it: loaded, asked for the filter, registered, let go.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "platform/api/Interfaces.h"
#include "registration/LoadedModule.h"
#include "registration/ModuleRegistry.h"
#include "support/PlayingGraph.h"
#include "support/TestThreads.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

// What hosts know the filter by.
constexpr CLSID kFilter = {0xF7DB4970, 0x3AB8, 0x8BC1, {0x2F, 0xD6, 0xD8, 0x23, 0x31, 0xF2, 0x00, 0x00}};

/// Whether the module is in this process, loaded by whomever.
bool IsLoaded() {
    void* hModule = dlopen(KEST_MODULE, RTLD_NOW | RTLD_NOLOAD);
    if (hModule) dlclose(hModule);
    return hModule != nullptr;
}

class LoadedModule : public testing::Test {
protected:
    LoadedModule() { setenv("XDG_DATA_HOME", m_dir.c_str(), 1); }
    ~LoadedModule() override {
        unsetenv("XDG_DATA_HOME");
        fs::remove_all(m_dir);
    }
    CComPtr<IBaseFilter> MakeFilter() const {
        CComPtr<IBaseFilter> pFilter;
        EXPECT_EQ(S_OK, m_pModule->CreateInstance(kFilter, IID_IBaseFilter,
                                                  reinterpret_cast<void**>(pFilter.Put())));
        return pFilter;
    }

    const fs::path m_dir = fs::temp_directory_path() / ("kest_module_test." + std::to_string(getpid()));
    std::string m_strError;
    std::unique_ptr<CLoadedModule> m_pModule = CLoadedModule::Load(KEST_MODULE, m_strError);
};

TEST_F(LoadedModule, MakesFiltersAndGoesWhenTheLastPartOfOneHasGone) {
    ASSERT_TRUE(m_pModule) << m_strError;
    void* p = nullptr;
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, m_pModule->CreateInstance(IID_IPin, IID_IUnknown, &p));
    EXPECT_EQ(E_NOINTERFACE, m_pModule->CreateInstance(kFilter, IID_IPin, &p));

    CComPtr<IBaseFilter> pFilter = MakeFilter();
    CLSID clsid{};
    EXPECT_EQ(S_OK, pFilter->GetClassID(&clsid));
    EXPECT_EQ(kFilter, clsid);
    {
        CPlayingGraph graph(std::move(pFilter));
        ASSERT_EQ(graph.m_pGraph->Run(), S_OK);
        EXPECT_TRUE(Eventually([&] { return graph.m_video.m_nEnds > 0 && graph.m_audio.m_nEnds > 0; }));
        EXPECT_GT(graph.m_video.m_nSamples, 0);
    }
    m_pModule.reset();
    EXPECT_FALSE(IsLoaded()) << "a stream was played, and all of it is over";

    m_pModule = CLoadedModule::Load(KEST_MODULE, m_strError);
    CComPtr<IEnumPins> pPins;
    ASSERT_EQ(S_OK, MakeFilter()->EnumPins(pPins.Put()));
    m_pModule.reset();
    EXPECT_TRUE(IsLoaded()) << "its enumerator is still in use";
    CComPtr<IPin> pPin;
    EXPECT_EQ(S_OK, pPins->Next(1, pPin.Put(), nullptr));
}

TEST_F(LoadedModule, EntersItselfIntoTheListOfModulesAndTakesItselfOut) {
    ASSERT_TRUE(m_pModule) << m_strError;
    ASSERT_EQ(S_OK, m_pModule->Register());
    ASSERT_EQ(S_OK, m_pModule->Register());  // replaces its entry
    const CModuleRegistry registry;
    EXPECT_EQ(registry.Find(kFilter), std::vector<fs::path>{fs::canonical(KEST_MODULE)});
    std::ifstream file(registry.GetFile());
    const std::string strText{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(strText, "module " + fs::canonical(KEST_MODULE).string() +
                           R"(
class {F7DB4970-3AB8-8BC1-2FD6-D82331F20000} Kest Stream Demux
filter {F7DB4970-3AB8-8BC1-2FD6-D82331F20000} Kest Mpeg Demux2 Filter
merit 0x800200
pin input: Input
type {00000000-0000-0000-0000-000000000000} {00000000-0000-0000-0000-000000000000}
type {E436EB83-524F-11CE-9F53-0020AF0BA770} {00000000-0000-0000-0000-000000000000}
type {E436EB83-524F-11CE-9F53-0020AF0BA770} {8A701D7A-458C-4F66-80F7-49B89DDEC2EA}
type {E436EB83-524F-11CE-9F53-0020AF0BA770} {3447504D-0000-0010-8000-00AA00389B71}
pin output: Audio Output
type {73647561-0000-0010-8000-00AA00389B71} {00000050-0000-0010-8000-00AA00389B71}
pin output rendered: Video Output
type {73646976-0000-0010-8000-00AA00389B71} {00000000-0000-0000-0000-000000000000}
type {73646976-0000-0010-8000-00AA00389B71} {E06D8026-DB46-11CF-B4D1-00805F6CBBEA}
type {73646976-0000-0010-8000-00AA00389B71} {03974C0B-456D-4550-91C9-68E547625CAF}
type {73646976-0000-0010-8000-00AA00389B71} {E436EB81-524F-11CE-9F53-0020AF0BA770}
)");
    EXPECT_EQ(S_OK, m_pModule->Unregister());
    EXPECT_EQ(S_OK, m_pModule->Unregister());
    EXPECT_FALSE(fs::exists(registry.GetFile()));

    std::ofstream(m_dir / "file") << "no folder";
    setenv("XDG_DATA_HOME", (m_dir / "file").c_str(), 1);
    EXPECT_EQ(E_FAIL, m_pModule->Register());
}

}  // namespace
}  // namespace kest

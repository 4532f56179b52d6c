// What the control interfaces change in the filter; the methods themselves: LoadedModuleTest.
#include <filesystem>

#include "FilterRig.h"
#include "control/Identifiers.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

using FilterControl = FilterTest;

TEST_F(FilterControl, ElementaryStreamHasOneDemuxFunctionOnly) {
    SetOutput(1);
    ConnectPushed(kClassMpeg4VideoEs);
    EXPECT_EQ(S_FALSE, SetOutput(2));
    std::uint32_t nOutput = 0;
    EXPECT_TRUE(Control()->get_DemuxOutput(&nOutput) == S_OK && nOutput == 1);
}

TEST_F(FilterControl, DumpFileIsSetByItsOwnInterface) {
    const auto pSink = Query<IFileSinkFilter>(IID_IFileSinkFilter);
    const std::string strName = testing::TempDir() + "kest.dump";
    const std::wstring wszName(strName.begin(), strName.end());
    EXPECT_EQ(S_OK, pSink->SetFileName(wszName.c_str(), nullptr));
    std::uint8_t bEnabled = 0;
    EXPECT_TRUE(Control()->get_EnableDump(&bEnabled) == S_OK && bEnabled == 1);
    EXPECT_EQ(kNameTooLong, pSink->SetFileName(std::wstring(261, L'x').c_str(), nullptr));
    EXPECT_EQ(kInvalidName, pSink->SetFileName(L"\xD800", nullptr)) << "half a character";
    EXPECT_EQ(E_POINTER, pSink->SetFileName(nullptr, nullptr));
    LPOLESTR pszName = nullptr;
    AM_MEDIA_TYPE type = CMediaType(MEDIATYPE_Stream);
    EXPECT_EQ(S_OK, pSink->GetCurFile(&pszName, &type));
    EXPECT_TRUE(wszName == pszName && type.majortype == GUID_NULL);
    CoTaskMemFree(pszName);
    EXPECT_EQ(S_OK, Control()->put_EnableDump(0));
    EXPECT_TRUE(fs::remove(strName));
}

TEST_F(FilterControl, SwitchesAdmitWhatIsRefusedWithoutThem) {
    const std::pair<const char*, EWorkingMode> files[] = {{"ts_mpeg2.ts", EWorkingMode::TransportMpeg12},
                                                          {"es_mpeg4.m4v", EWorkingMode::Mpeg4VideoEs},
                                                          {"sys_mpeg1.mpg", EWorkingMode::Mpeg1System}};
    for (const auto& [pszFile, mode] : files) {
        SetSwitch(ESwitch::AdmitAll, 0);
        EXPECT_EQ(VFW_E_NO_ACCEPTABLE_TYPES, Connect(Load(pszFile))) << pszFile;
        SetSwitch(ESwitch::AdmitAll, 1);
        EXPECT_EQ(S_OK, Connect(Load(pszFile)));
        EXPECT_EQ(mode, m_pFilter->GetWorkingMode());
        Disconnect();
    }
    SetSwitch(ESwitch::PushStreamClass, 3);
    EXPECT_EQ(S_OK, Connect(nullptr));
    EXPECT_EQ(EWorkingMode::TransportMpeg12, m_pFilter->GetWorkingMode());
}

TEST_F(FilterControl, AudioPinOffersTheTypeThatIsSet) {
    CMediaType type(MEDIATYPE_Audio, MEDIASUBTYPE_MPEG1Audio), offered;
    EXPECT_EQ(S_OK, Control()->put_AudioMediaType(&type));
    EXPECT_EQ(S_OK, m_pFilter->GetPin(2)->GetMediaType(0, offered));
    EXPECT_TRUE(offered == type);
}

}  // namespace
}  // namespace kest

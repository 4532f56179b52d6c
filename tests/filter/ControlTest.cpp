// The filter's control interfaces: every method, refusals, and the dump file.
#include <filesystem>

#include "FilterRig.h"
#include "control/Identifiers.h"

namespace kest {
namespace {

namespace fs = std::filesystem;

using FilterControl = FilterTest;

/// A method pair of a value: what it is at first, and after each value that is put.
template <class T>
void ExpectProperty(IKestDemux2Control* p, HRESULT (STDMETHODCALLTYPE IKestDemux2Control::*pfnGet)(T*),
                    HRESULT (STDMETHODCALLTYPE IKestDemux2Control::*pfnPut)(T), T nFirst,
                    std::initializer_list<std::pair<T, T>> puts) {
    EXPECT_EQ(E_POINTER, (p->*pfnGet)(nullptr));
    T nValue{};
    EXPECT_EQ(S_OK, (p->*pfnGet)(&nValue));
    EXPECT_EQ(nFirst, nValue);
    for (const auto& [nPut, nGot] : puts) {
        EXPECT_EQ(S_OK, (p->*pfnPut)(nPut));
        EXPECT_TRUE((p->*pfnGet)(&nValue) == S_OK && nValue == nGot) << +nValue;
    }
}

TEST_F(FilterControl, ValuesHaveTheirDefaultsAndAreStoredAsTheyCome) {
    using I = IKestDemux2Control;
    const auto pControl = Control();
    I* p = pControl.Get();
    ExpectProperty<std::uint32_t>(p, &I::get_SendPort, &I::put_SendPort, 8100, {{70000, 70000}});
    ExpectProperty<std::uint32_t>(p, &I::get_LocalPort, &I::put_LocalPort, 5454, {{1, 1}});
    ExpectProperty<std::uint32_t>(p, &I::get_DemuxOutput, &I::put_DemuxOutput, 0, {{2, 2}, {77, 77}});
    ExpectProperty<std::uint32_t>(p, &I::get_SendAddress, &I::put_SendAddress, 0x070605EA, {{1, 1}});
    ExpectProperty<std::uint8_t>(p, &I::get_Sending, &I::put_Sending, 0, {{255, 1}, {0, 0}});
    ExpectProperty<std::uint8_t>(p, &I::get_LocalView, &I::put_LocalView, 0, {{1, 1}, {0, 0}});
    ExpectProperty<std::uint8_t>(p, &I::get_DisableDemux, &I::put_DisableDemux, 0, {{1, 1}, {0, 0}});
    ExpectProperty<std::uint8_t>(p, &I::get_EnableDump, &I::put_EnableDump, 0, {{1, 1}, {0, 0}});
    ExpectProperty<std::uint8_t>(p, &I::get_EnableSingleStep, &I::put_EnableSingleStep, 0, {{1, 1}, {0, 0}});

    char szAddress[kSendAddressTextSize];
    const std::pair<const char*, const char*> texts[] = {
        {"10.1.2.3", "10.1.2.3"}, {"255.254.253.252", "255.254.253.252"}, {"nowhere", "255.255.255.255"}};
    for (const auto& [pszPut, pszGot] : texts) {
        EXPECT_EQ(S_OK, p->put_SendAddressText(pszPut));
        EXPECT_EQ(S_OK, p->get_SendAddressText(szAddress));
        EXPECT_STREQ(pszGot, szAddress);
    }
    std::uint8_t b = 1;
    EXPECT_TRUE(p->get_NeedReset(&b) == S_OK && b == 0 && p->get_ThreadKilled(&b) == S_OK && b == 0);
    EXPECT_TRUE(p->Reserved1(1) == S_OK && p->Reserved2(1) == S_OK);
    EXPECT_EQ(E_POINTER, p->put_AudioMediaType(nullptr));

    ConnectPushed(kClassMpeg4VideoEs);
    EXPECT_EQ(S_FALSE, p->put_DemuxOutput(1)) << "an elementary stream has one way only";
    std::uint32_t nOutput = 0;
    EXPECT_TRUE(p->get_DemuxOutput(&nOutput) == S_OK && nOutput == 77);
}

TEST_F(FilterControl, StatusIsPublishedPostedAndTaken) {
    const auto pControl = Control();
    SHARED_STATUS own, remote, untouched{.nReserved = 5};
    pControl->put_SendPort(9);
    EXPECT_TRUE(pControl->get_SharedStatus(&own) == S_OK && own == SHARED_STATUS{})
        << "before the first mode";
    ConnectPushed(kClassProgramMpeg12);
    EXPECT_EQ(S_OK, pControl->get_SharedStatus(&own));
    EXPECT_EQ((SHARED_STATUS{.nWorkingMode = 4, .settings = {.nSendPort = 9}}), own);
    remote = untouched;
    EXPECT_TRUE(pControl->get_RemoteStatus(&remote) == S_OK && remote == untouched)
        << "published, not posted";
    EXPECT_EQ(S_OK, pControl->ApplySendSettings());
    EXPECT_TRUE(pControl->get_RemoteStatus(&remote) == S_OK && remote == own);
    EXPECT_EQ(S_OK, pControl->put_DisableDemux(0));
    EXPECT_EQ(E_FAIL, pControl->get_RemoteStatus(&remote)) << "nobody publishes any more";
    EXPECT_EQ(S_OK, pControl->put_DisableDemux(1));
    EXPECT_EQ(S_OK, pControl->get_RemoteStatus(&remote));
}

TEST_F(FilterControl, DumpFilesThatCannotBeMadeLeaveTheOneBefore) {
    const auto pControl = Control();
    const auto pSink = Query<IFileSinkFilter>(IID_IFileSinkFilter);
    const fs::path folder = fs::path(testing::TempDir()) / "kest_dump", good = folder / "good";
    fs::create_directories(folder);
    EXPECT_EQ(kInvalidName, pControl->put_DumpFileName(""));
    EXPECT_EQ(S_OK, pSink->SetFileName(good.wstring().c_str(), nullptr));
    std::uint8_t bEnabled = 0;
    EXPECT_TRUE(pControl->get_EnableDump(&bEnabled) == S_OK && bEnabled == 1);
    EXPECT_EQ(kNameTooLong, pSink->SetFileName(std::wstring(261, L'x').c_str(), nullptr));
    EXPECT_EQ(E_POINTER, pSink->SetFileName(nullptr, nullptr));
    for (const fs::path& bad : {folder, folder / "none" / "x"}) {
        const HRESULT hr = pControl->put_DumpFileName(bad.string().c_str());
        EXPECT_EQ(0x80070000, static_cast<std::uint32_t>(hr) & 0xFFFF0000) << bad;
        EXPECT_NE(0, hr & 0xFFFF);
    }
    char szName[kDumpFileNameSize];
    EXPECT_EQ(S_OK, pControl->get_DumpFileName(szName));
    EXPECT_EQ(good.string(), szName);
    LPOLESTR pszName = nullptr;
    AM_MEDIA_TYPE type = CMediaType(MEDIATYPE_Stream);
    EXPECT_EQ(S_OK, pSink->GetCurFile(&pszName, &type));
    EXPECT_TRUE(good.wstring() == pszName && type.majortype == GUID_NULL);
    CoTaskMemFree(pszName);
    EXPECT_EQ(0, pControl->put_DumpFileName(good.string().c_str())) << "again, while it is open";
    EXPECT_EQ(S_OK, pControl->put_EnableDump(0));
    fs::remove_all(folder);
}

TEST_F(FilterControl, SwitchesHaveRanges) {
    const auto p = Query<IKestDemux2Control2>(IID_IKestDemux2Control2);
    for (std::size_t i = 0; i < kSwitchTable.size(); ++i) {
        const auto nSwitch = static_cast<ESwitch>(i);
        const SwitchTraits& traits = kSwitchTable[i];
        std::int32_t nValue = -1;
        EXPECT_TRUE(p->get_Switch(nSwitch, &nValue) == S_OK && nValue == traits.nDefault) << traits.strName;
        EXPECT_EQ(E_INVALIDARG, p->put_Switch(nSwitch, traits.nLeast - 1));
        EXPECT_EQ(E_INVALIDARG, p->put_Switch(nSwitch, traits.nMost + 1));
        EXPECT_EQ(S_OK, p->put_Switch(nSwitch, traits.nLeast));
        EXPECT_TRUE(p->get_Switch(nSwitch, &nValue) == S_OK && nValue == traits.nLeast);
    }
    EXPECT_EQ(E_INVALIDARG, p->put_Switch(static_cast<ESwitch>(kSwitchTable.size()), 0));
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

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

// Without the switches: FilterConnection.
TEST_F(FilterControl, SwitchesAdmitEveryStream) {
    const std::pair<const char*, EWorkingMode> files[] = {{"ts_mpeg2.ts", EWorkingMode::TransportMpeg12},
                                                          {"es_mpeg4.m4v", EWorkingMode::Mpeg4VideoEs},
                                                          {"sys_mpeg1.mpg", EWorkingMode::Mpeg1System}};
    for (const auto& [pszFile, mode] : files) {
        SetSwitch(ESwitch::AdmitAll, 1);
        EXPECT_EQ(S_OK, Connect(Load(pszFile))) << pszFile;
        EXPECT_EQ(mode, m_pFilter->GetWorkingMode());
        Disconnect();
    }
    SetSwitch(ESwitch::PushStreamClass, 3);
    EXPECT_EQ(S_OK, Connect(nullptr));
    EXPECT_EQ(EWorkingMode::TransportMpeg12, m_pFilter->GetWorkingMode());
}

// Faults: a part on the way whose blocks or limits stay as they were, also when the queue changes its blocks under a
// demuxer of another family; counts of the connection before.
TEST_F(FilterControl, BlockSizeCountsFromConnectionToConnection) {
    constexpr std::int32_t kSmall = 163840;
    ConnectPushed(3);  // its demuxer stays, attached to the same queues
    Disconnect();
    SetSwitch(ESwitch::PushStreamClass, 6);
    SetOutput(kDemuxOutputFreeRun);
    CProgramStreamBuilder b;
    b.Pack().Map({{0x02, 0xE0}, {0x03, 0xC0}});
    for (int i = 0; i < 3; ++i) {
        b.Pes(0xE0, ByteVector(65000, 1), i);
        for (int k = 1; k < 10; ++k) b.Pes(0xE0, ByteVector(65000, 1));
        b.Pes(0xC0, ByteVector(100, 1), i);
    }
    const struct {
        std::int32_t nBlockSize, bDrain;
        std::int64_t llBytes;
        STREAM_COUNTERS video;
    } cases[] = {
        {kSmall, 0, 2 * kSmall, {.nFramesQueued = 2, .nFramesCut = 2, .llBytesCut = 2 * (650000 - kSmall)}},
        {700000, 0, 2 * 650000, {.nFramesQueued = 2}},
        {700000, 1, 3 * 650000, {.nFramesQueued = 3}},
        {kSmall, 1, 3 * 650000, {.nFramesQueued = 12}},
        {4194304, 1, 3 * 650000, {.nFramesQueued = 3}},
    };
    const auto pControl = Query<IKestDemux2Control2>(IID_IKestDemux2Control2);
    for (const auto& c : cases) {
        SetSwitch(ESwitch::VideoBlockSize, c.nBlockSize);
        SetSwitch(ESwitch::Drain, c.bDrain);
        m_apSinks[0]->m_llBytes = 0;
        ConnectAll(Load(b.Get()));
        EXPECT_EQ(S_OK, m_pFilter->Pause());
        EXPECT_EQ(S_OK, m_pFilter->Run(0));
        for (CCountPin* pSink : m_apSinks) pSink->WaitForEnd();
        COUNTERS counters, expected;
        EXPECT_EQ(S_OK, pControl->get_Counters(&counters));
        expected.video = c.video;
        expected.video.nFramesDelivered = c.video.nFramesQueued;
        if (c.bDrain) {
            expected.llBytesRead = b.Size();
            expected.nPacks = 1;
            expected.video.nPackets = 30;
            expected.audio = {.nPackets = 3, .nFramesQueued = 3, .nFramesDelivered = 3};
        } else {  // how far the last block of the source is read, and what is lost by that: see the parser's tests
            counters = {.video = {.nFramesQueued = counters.video.nFramesQueued,
                                  .nFramesDelivered = counters.video.nFramesDelivered,
                                  .nFramesCut = counters.video.nFramesCut,
                                  .llBytesCut = counters.video.llBytesCut},
                        .audio = {}};
        }
        EXPECT_TRUE(expected == counters) << c.nBlockSize << (c.bDrain ? ", drained" : "");
        EXPECT_EQ(c.llBytes, m_apSinks[0]->m_llBytes);
        EXPECT_EQ(S_OK, m_pFilter->Stop());
        Disconnect();
    }
    EXPECT_EQ(E_POINTER, pControl->get_Counters(nullptr));
}

TEST_F(FilterControl, AudioPinOffersTheTypeThatIsSet) {
    CMediaType type(MEDIATYPE_Audio, MEDIASUBTYPE_MPEG1Audio), offered;
    EXPECT_EQ(S_OK, Control()->put_AudioMediaType(&type));
    EXPECT_EQ(S_OK, m_pFilter->GetPin(2)->GetMediaType(0, offered));
    EXPECT_TRUE(offered == type);
}

}  // namespace
}  // namespace kest

// What the filter connects to and when, the mode it enters by that, and its interfaces.
#include "FilterRig.h"
#include "control/Identifiers.h"

namespace kest {
namespace {

using FilterConnection = FilterTest;

TEST_F(FilterConnection, StreamDecidesOnModeAndTypeAndIsReadToItsEnd) {
    SetOutput(kDemuxOutputFreeRun);
    // File, mode, subtype, size, bit rate, demuxers made so far: the same mode keeps its own.
    const std::tuple<const char*, EWorkingMode, GUID, LONGLONG, LONGLONG, int> cases[] = {
        {"ps_mpeg2.mpg", EWorkingMode::ProgramMpeg12, MEDIASUBTYPE_MPEG2_VIDEO, 607683, 409600, 1},
        {"ps_mpeg2_packs.mpg", EWorkingMode::ProgramMpeg12, MEDIASUBTYPE_MPEG2_VIDEO, 612376, 1800000, 1},
        {"ps_mpeg4.mpg", EWorkingMode::ProgramMpeg4, kSubtypeMpeg4ProgramStream, 597627, 409600, 2},
        {"ps_mpeg2_packs.mpg", EWorkingMode::ProgramMpeg12, MEDIASUBTYPE_MPEG2_VIDEO, 612376, 1800000, 3}};
    CMediaType type;
    for (const auto& [pszFile, mode, subtype, llSize, llBitRate, nDemuxers] : cases) {
        ConnectAll(Load(pszFile));
        const CMediaType offered[] = {CMediaType(MEDIATYPE_Stream, subtype), CMediaType()};
        for (int n : {0, 1}) EXPECT_TRUE(Input().GetMediaType(n, type) == S_OK && type == offered[n]) << n;
        EXPECT_EQ(VFW_S_NO_MORE_ITEMS, Input().GetMediaType(2, type));
        EXPECT_EQ(nDemuxers, CountOf("CreateMpeg2PSInstance"));
        LONGLONG llDuration = 0;
        EXPECT_EQ(S_OK, Query<IMediaSeeking>(IID_IMediaSeeking)->GetDuration(&llDuration));
        EXPECT_EQ(llSize * 10000000 / llBitRate * 8, llDuration);
        ASSERT_EQ(S_OK, m_pFilter->Run(0));
        EXPECT_LT(50, m_apSinks[0]->WaitForEnd()) << pszFile;
        EXPECT_LT(20, m_apSinks[1]->WaitForEnd());
        ASSERT_EQ(S_OK, m_pFilter->Stop());
        Disconnect();
        m_readers.clear();
        EXPECT_EQ(VFW_S_NO_MORE_ITEMS, Input().GetMediaType(0, type)) << "nothing to read";
        EXPECT_EQ(mode, m_pFilter->GetWorkingMode()) << "the mode stays";
    }
}

TEST_F(FilterConnection, RefusedConnectionsLeaveNothingBehind) {
    EXPECT_EQ(VFW_E_NO_ACCEPTABLE_TYPES, Connect(nullptr)) << "a source that cannot be read";
    EXPECT_EQ(S_FALSE, Input().CheckMediaType(CMediaType()));
    for (const char* pszFile : {"ts_mpeg2.ts", "es_mpeg4.m4v", "sys_mpeg1.mpg", "vob_mpeg2_nomap.mpg"}) {
        EXPECT_EQ(VFW_E_NO_ACCEPTABLE_TYPES, Connect(Load(pszFile))) << pszFile;
        EXPECT_EQ(EWorkingMode::None, m_pFilter->GetWorkingMode());
    }
    for (int n : {0, 1}) EXPECT_EQ(VFW_E_NO_ACCEPTABLE_TYPES, ConnectSink(n)) << "input not connected";

    IAsyncReader* pReader = MakeStream(25200);
    m_pSource->m_pin.m_hrComplete = E_ABORT;  // the source changes its mind at the last step
    EXPECT_EQ(E_ABORT, Connect(pReader));
    EXPECT_TRUE(m_pFilter->IsPushSource() && !Input().IsConnected());
    m_pSource->m_pin.m_hrComplete = S_OK;
    EXPECT_EQ(S_OK, Connect(pReader));
    EXPECT_EQ(S_OK, Input().CheckMediaType(CMediaType()));
}

TEST_F(FilterConnection, SwitchesAdmitStreamsWithoutMapAndGiveThePinsTheirTypes) {
    ByteVector mpeg4 = ReadTestData("ps_mpeg4.mpg");  // its map becomes padding
    for (std::size_t i = 3; i < mpeg4.size(); ++i) {
        if (mpeg4[i] == 0xBC && mpeg4[i - 1] == 1 && mpeg4[i - 2] == 0 && mpeg4[i - 3] == 0) mpeg4[i] = 0xBE;
    }
    const ByteVector audioAlone = CProgramStreamBuilder().Pack(1000).Pes(0xC0, ByteVector(900, 1), 0).Get();
    const auto GetSize = [this] {
        CMediaType type;
        EXPECT_EQ(Output(0).GetMediaType(0, type), S_OK);
        LONG lHeight = 0;  // of the bitmap header, which stands in another place of MPEG2VIDEOINFO
        const bool bMpeg2 = type.FormatType() == FORMAT_MPEG2Video;
        std::memcpy(&lHeight,
                    type.Format().data() + (bMpeg2 ? offsetof(MPEG2VIDEOINFO, hdr.bmiHeader.biHeight)
                                                   : offsetof(VIDEOINFOHEADER, bmiHeader.biHeight)),
                    sizeof lHeight);
        return lHeight;
    };
    const std::tuple<ByteVector, EWorkingMode, std::uint32_t, LONG> cases[] = {
        {ReadTestData("vob_mpeg2_nomap.mpg"), EWorkingMode::ProgramMpeg12, 1800000, 240},
        {mpeg4, EWorkingMode::ProgramMpeg4, 409600, 240},
        {audioAlone, EWorkingMode::ProgramMpeg12, 400000, 480}};
    for (const auto& [bytes, mode, nBitRate, lHeight] : cases) {
        EXPECT_EQ(S_OK, SetSwitch(ESwitch::AssumeMap, 0));
        EXPECT_EQ(VFW_E_NO_ACCEPTABLE_TYPES, Connect(Load(bytes)));
        EXPECT_EQ(S_OK, SetSwitch(ESwitch::AssumeMap, 1));
        for (int bTrueTypes : {0, 1}) {
            EXPECT_EQ(S_OK, SetSwitch(ESwitch::TrueTypes, bTrueTypes));
            ASSERT_EQ(S_OK, Connect(Load(bytes)));
            EXPECT_EQ(std::pair(mode, nBitRate),
                      std::pair(m_pFilter->GetWorkingMode(), m_pFilter->GetBitRate()));
            EXPECT_EQ(GetSize(), bTrueTypes ? lHeight : 480);
            Disconnect();
        }
    }
    EXPECT_EQ(S_OK, SetSwitch(ESwitch::TrueTypes, 0));
    EXPECT_EQ(VFW_E_NO_ACCEPTABLE_TYPES, Connect(Load("ts_mpeg2.ts"))) << "not this switch's";
}

// A Pause that has begun must not have the reader taken from its threads, nor begin while a connection makes
// the demuxer that it would start.
TEST_F(FilterConnection, PathAndConnectionsExcludeEachOther) {
    CHookedReader* pReader = Load("ps_mpeg2.mpg");
    ASSERT_EQ(S_OK, Connect(pReader));
    HRESULT hrDisconnect = S_OK;
    pReader->m_onLength = [&] { CTestThread([&] { hrDisconnect = Input().Disconnect(); }); };
    EXPECT_EQ(S_OK, m_pFilter->Pause());
    EXPECT_EQ(VFW_E_NOT_STOPPED, hrDisconnect) << "the state still reads stopped";
    EXPECT_EQ(S_OK, m_pFilter->Stop());
    pReader->m_onLength = nullptr;
    Disconnect();

    std::deque<CTestThread> threads;
    pReader->m_onLength = [&] {
        if (!threads.empty()) return;
        threads.emplace_back([&] { EXPECT_EQ(S_OK, m_pFilter->Pause()); });
        SleepMs(kSettleMs);
        EXPECT_FALSE(HasThread(0)) << "the connection comes first";
    };
    EXPECT_EQ(S_OK, Connect(pReader));
    threads.clear();
    EXPECT_TRUE(HasThread(0));
}

TEST_F(FilterConnection, PinsClockAndSeekingAreFound) {
    const wchar_t* const apszNames[] = {L"Input", L"Video Output", L"Audio Output", L"Output"};
    for (int n = 0; n < 4; ++n) {
        CComPtr<IPin> pPin;
        EXPECT_EQ(n < 3 ? S_OK : VFW_E_NOT_FOUND, m_pFilter->FindPin(apszNames[n], pPin.Put()));
        EXPECT_EQ(static_cast<IPin*>(m_pFilter->GetPin(n)), pPin.Get());
    }
    const REFERENCE_TIME rtBase = CComPtr(new CBaseReferenceClock)->GetPrivateTime();
    LONGLONG rt = 0;
    EXPECT_EQ(S_OK, Query<IReferenceClock>(IID_IReferenceClock)->GetTime(&rt));
    EXPECT_TRUE(rt >= rtBase + 30030000 && rt < rtBase + 40000000) << rt - rtBase;
    EXPECT_EQ(E_NOTIMPL,
              Query<IMediaSeeking>(IID_IMediaSeeking)->ConvertTimeFormat(&rt, nullptr, 1, nullptr));
    EXPECT_EQ(Query<IDispatch>(IID_IDispatch).Get(), Query<IMediaPosition>(IID_IMediaPosition).Get());
}

TEST_F(FilterConnection, SourceFindsThePositionOfEveryTime) {
    constexpr std::int64_t kMax = INT64_MAX;
    // Mux rate (of 400 bit/s), time, position: also where the bits overflow, and beyond the last position.
    const std::tuple<std::uint32_t, REFERENCE_TIME, std::optional<std::int64_t>> cases[] = {
        {25200, 10000000, 1260000},
        {25200, 8, 1},
        {25200, 7, 0},
        {25200, 1000000000000, 126000000000},
        {25200, kMax, 1162144876643701751},
        {4194303, kMax, kMax},
        {25200, -kMax - 1, 0},
        {0, 10000000, std::nullopt}};
    for (const auto& [nMuxRate, rt, position] : cases) {
        CSource source;
        m_pSource->m_pin.m_pReader = MakeStream(nMuxRate);
        source.Connect(&m_pSource->m_pin);
        source.ClassifyStream(false, false);
        EXPECT_EQ(position, source.FindPosition(rt)) << rt;
    }
}

}  // namespace
}  // namespace kest

// What the filter lets in, the mode it gets into by that, and its faces.
#include "FilterRig.h"
#include "filter/Identifiers.h"

namespace kest {
namespace {

using FilterConnection = FilterTest;

TEST_F(FilterConnection, StreamDecidesOnModeAndPreferredType) {
    struct {
        const char* pszFile;
        std::uint32_t nMode;
        GUID subtype;
    } const cases[] = {
        {"ps_mpeg4.mpg", 2, kSubtypeMpeg4ProgramStream},
        {"ps_mpeg2_packs.mpg", 4, MEDIASUBTYPE_MPEG2_VIDEO},
    };
    EXPECT_EQ(EWorkingMode::None, m_pFilter->GetWorkingMode());
    CMediaType type;
    for (const auto& c : cases) {
        EXPECT_EQ(VFW_S_NO_MORE_ITEMS, m_pInput->GetMediaType(0, type)) << "nothing to read";
        IAsyncReader* pReader = Load(c.pszFile);
        ASSERT_EQ(S_OK, Connect(pReader)) << c.pszFile;
        EXPECT_FALSE(m_pFilter->IsPushSource());
        EXPECT_EQ(static_cast<EWorkingMode>(c.nMode), m_pFilter->GetWorkingMode());
        EXPECT_EQ(S_OK, m_pInput->GetMediaType(0, type));
        EXPECT_TRUE(type == CMediaType(MEDIATYPE_Stream, c.subtype));
        EXPECT_EQ(S_OK, m_pInput->GetMediaType(1, type));
        EXPECT_TRUE(type == CMediaType());
        EXPECT_EQ(VFW_S_NO_MORE_ITEMS, m_pInput->GetMediaType(2, type));
        Disconnect();
        EXPECT_TRUE(m_pFilter->IsPushSource());
        EXPECT_EQ(static_cast<EWorkingMode>(c.nMode), m_pFilter->GetWorkingMode()) << "the mode stays";
    }
}

TEST_F(FilterConnection, RefusalsLeaveNothingBehind) {
    EXPECT_EQ(VFW_E_NO_ACCEPTABLE_TYPES, Connect(nullptr)) << "a source that cannot be read";
    EXPECT_EQ(S_FALSE, m_pInput->QueryAccept(&static_cast<const AM_MEDIA_TYPE&>(CMediaType())));
    for (const char* pszFile : {"ts_mpeg2.ts", "es_mpeg4.m4v", "sys_mpeg1.mpg", "vob_mpeg2_nomap.mpg"}) {
        IAsyncReader* pReader = Load(pszFile);
        EXPECT_EQ(VFW_E_NO_ACCEPTABLE_TYPES, Connect(pReader)) << pszFile;
        CMediaType full(MEDIATYPE_Stream);
        full.SetFormatType(FORMAT_None);
        EXPECT_EQ(VFW_E_TYPE_NOT_ACCEPTED, m_pSource->m_pin.Connect(m_pInput, &full)) << pszFile;
        EXPECT_EQ(EWorkingMode::None, m_pFilter->GetWorkingMode());
    }
    EXPECT_EQ(VFW_E_NO_ACCEPTABLE_TYPES, m_pVideo->Connect(&VideoSink(), nullptr)) << "input not connected";
    EXPECT_EQ(VFW_E_NO_ACCEPTABLE_TYPES, m_pAudio->Connect(&AudioSink(), nullptr));

    IAsyncReader* pReader = Load("ps_mpeg2.mpg");
    m_pSource->m_pin.m_hrComplete = E_ABORT;  // the source changes its mind at the last step
    EXPECT_EQ(E_ABORT, Connect(pReader));
    EXPECT_EQ(S_FALSE, m_pInput->Disconnect());
    EXPECT_FALSE(m_pInput->GetReader());
    EXPECT_TRUE(m_pFilter->IsPushSource());
    m_pSource->m_pin.m_hrComplete = S_OK;
    EXPECT_EQ(S_OK, Connect(pReader));
    EXPECT_EQ(S_OK, m_pInput->QueryAccept(&static_cast<const AM_MEDIA_TYPE&>(CMediaType())));
}

TEST_F(FilterConnection, SameModeKeepsTheCoreWhichReadsTheNewSource) {
    CCaptureTexts texts;
    m_pFilter->GetSendSettings().nDemuxOutput = kDemuxOutputFreeRun;
    struct {
        const char* pszFile;
        LONGLONG llSize, llBitRate;
        int nCores;
    } const cases[] = {
        {"ps_mpeg2.mpg", 607683, 409600, 1},
        {"ps_mpeg2_packs.mpg", 612376, 1800000, 1},
        {"ps_mpeg4.mpg", 597627, 409600, 2},
        {"ps_mpeg2_packs.mpg", 612376, 1800000, 3},
    };
    for (const auto& c : cases) {
        const ByteVector bytes = ReadTestData(c.pszFile);  // gone after its turn
        CMemoryReader reader(bytes);
        ASSERT_EQ(S_OK, Connect(&reader)) << c.pszFile;
        EXPECT_EQ(c.nCores, CountOf(texts.TraceTexts(), "CreateMpeg2PSInstance"));
        LONGLONG llDuration = 0;
        EXPECT_EQ(S_OK, Query<IMediaSeeking>(IID_IMediaSeeking)->GetDuration(&llDuration));
        EXPECT_EQ(c.llSize * 10000000 / c.llBitRate * 8, llDuration);
        REFTIME dSeconds = 0;
        EXPECT_EQ(S_OK, Query<IMediaPosition>(IID_IMediaPosition)->get_Duration(&dSeconds));
        EXPECT_DOUBLE_EQ(static_cast<double>(llDuration) / 1e7, dSeconds);

        ConnectSinks();
        VideoSink().m_nSamples = AudioSink().m_nSamples = 0;
        VideoSink().m_evEnd.Reset();
        AudioSink().m_evEnd.Reset();
        ASSERT_EQ(S_OK, m_pVideoSink->Pause());
        ASSERT_EQ(S_OK, m_pAudioSink->Pause());
        ASSERT_EQ(S_OK, m_pFilter->Run(0));
        EXPECT_TRUE(VideoSink().m_evEnd.Wait(kTooLongMs)) << c.pszFile;
        EXPECT_TRUE(AudioSink().m_evEnd.Wait(kTooLongMs));
        EXPECT_LT(50, VideoSink().m_nSamples);
        EXPECT_LT(20, AudioSink().m_nSamples);
        EXPECT_EQ(VFW_E_NOT_STOPPED, m_pInput->Disconnect());
        ASSERT_EQ(S_OK, m_pFilter->Stop());
        m_pVideoSink->Stop();
        m_pAudioSink->Stop();
        for (CBasePin* pPin :
             std::initializer_list<CBasePin*>{m_pVideo, m_pAudio, &VideoSink(), &AudioSink()}) {
            EXPECT_EQ(S_OK, pPin->Disconnect());
        }
        Disconnect();
    }
}

/// Grants one buffer less than asked.
struct CStingyAllocator final : IMemAllocator {
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* pRequest,
                                            ALLOCATOR_PROPERTIES* pActual) override {
        *pActual = *pRequest;
        --pActual->cBuffers;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Commit() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Decommit() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample**, REFERENCE_TIME*, REFERENCE_TIME*, DWORD) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample*) override { return E_NOTIMPL; }
};

TEST_F(FilterConnection, TooFewBuffersAreRefused) {
    IAsyncReader* pReader = Load("ps_mpeg2.mpg");
    ASSERT_EQ(S_OK, Connect(pReader));
    ConnectSinks();
    CStingyAllocator allocator;
    for (CBaseOutputPin* pPin : std::initializer_list<CBaseOutputPin*>{m_pVideo, m_pAudio}) {
        ALLOCATOR_PROPERTIES props{};
        EXPECT_EQ(E_FAIL, pPin->DecideBufferSize(&allocator, props));
    }
}

TEST_F(FilterConnection, FindsPinsByTheirNames) {
    CComPtr<IPin> pPin;
    const struct {
        const wchar_t* pszName;
        int nPin;
    } cases[] = {{L"Input", 0}, {L"Video Output", 1}, {L"Audio Output", 2}};
    for (const auto& c : cases) {
        EXPECT_EQ(S_OK, m_pFilter->FindPin(c.pszName, pPin.Put()));
        EXPECT_EQ(static_cast<IPin*>(m_pFilter->GetPin(c.nPin)), pPin.Get());
    }
    EXPECT_EQ(VFW_E_NOT_FOUND, m_pFilter->FindPin(L"Output", pPin.Put()));
    EXPECT_FALSE(pPin);
    EXPECT_EQ(E_POINTER, m_pFilter->FindPin(L"Input", nullptr));
    EXPECT_EQ(nullptr, m_pFilter->GetPin(3));
}

TEST_F(FilterConnection, ClockAndSeekingAreFacesOfTheFilter) {
    const auto pClock = Query<IReferenceClock>(IID_IReferenceClock);
    const CComPtr<CBaseReferenceClock> pBase(new CBaseReferenceClock);
    const REFERENCE_TIME rtBefore = pBase->GetPrivateTime();
    REFERENCE_TIME rt = 0;
    EXPECT_EQ(S_OK, pClock->GetTime(&rt));
    EXPECT_LE(rtBefore + 30030000, rt);
    EXPECT_GE(pBase->GetPrivateTime() + 30030000, rt);

    const auto pSeeking = Query<IMediaSeeking>(IID_IMediaSeeking);
    LONGLONG llTarget = 0;
    EXPECT_EQ(E_NOTIMPL, pSeeking->ConvertTimeFormat(&llTarget, nullptr, 1, nullptr));
    DWORD dwCaps = 0, dwPinCaps = 1;
    EXPECT_EQ(S_OK, pSeeking->GetCapabilities(&dwCaps));
    EXPECT_EQ(S_OK, m_pVideo->GetSeeking().GetCapabilities(&dwPinCaps));
    EXPECT_EQ(dwPinCaps, dwCaps) << "the video pin answers";
    CComPtr<IUnknown> pFromClock, pFromSeeking;
    pClock->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(pFromClock.Put()));
    pSeeking->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(pFromSeeking.Put()));
    EXPECT_EQ(pFromClock.Get(), pFromSeeking.Get());
    EXPECT_EQ(m_pFilter->GetOwner(), pFromClock.Get());

    REFERENCE_TIME rtNow = 0;
    EXPECT_FALSE(m_pFilter->GetClockTime(rtNow));
    m_pFilter->SetSyncSource(pBase.Get());
    EXPECT_TRUE(m_pFilter->GetClockTime(rtNow));
    EXPECT_LE(rtBefore, rtNow);
    m_pFilter->SetSyncSource(nullptr);
}

}  // namespace
}  // namespace kest

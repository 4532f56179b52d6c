// Media types, buffers and the seeking object.
#include <cstring>

#include "pins/VideoMediaTypes.h"
#include "support/CaptureTexts.h"
#include "support/MemoryReader.h"
#include "support/PinRig.h"

namespace kest {
namespace {

using testing::ElementsAre;

template <class Record>
Record FormatOf(const CMediaType& type) {
    Record record{};
    std::memcpy(&record, type.Format().data(), std::min(sizeof record, type.Format().size()));
    return record;
}

// ---------------- media types

TEST(PinMediaTypes, VideoOffersByMode) {
    struct Case {
        std::uint32_t nMode;
        bool bPush;
        GUID subtype, format;
        std::size_t nFormat;
        LONG nWidth, nHeight;
    };
    for (const Case& c : {Case{0, false, MEDIASUBTYPE_KestMpeg4Video, FORMAT_VideoInfo, 88, 640, 360},
                          Case{1, true, MEDIASUBTYPE_KestMpeg4Video, FORMAT_VideoInfo, 88, 720, 480},
                          Case{2, false, MEDIASUBTYPE_KestMpeg4Video, FORMAT_VideoInfo, 88, 640, 360},
                          Case{3, false, MEDIASUBTYPE_MPEG2_VIDEO, FORMAT_MPEG2Video, 136, 352, 480},
                          Case{4, true, MEDIASUBTYPE_MPEG2_VIDEO, FORMAT_MPEG2Video, 136, 352, 480},
                          Case{5, false, MEDIASUBTYPE_MPEG1Packet, FORMAT_MPEGVideo, 244, 352, 240}}) {
        CPinRig rig(4);
        rig.filter.m_nMode = c.nMode;
        rig.filter.m_bPush = c.bPush;
        CMediaType type;
        ASSERT_EQ(rig.video.GetMediaType(0, type), S_OK);
        EXPECT_EQ(type.Type(), MEDIATYPE_Video);
        EXPECT_EQ(type.Subtype(), c.subtype);
        EXPECT_EQ(type.FormatType(), c.format);
        ASSERT_EQ(type.Format().size(), c.nFormat);
        EXPECT_EQ(rig.video.CheckMediaType(type), S_OK);
        const BITMAPINFOHEADER header = c.nMode == 3 || c.nMode == 4
                                            ? FormatOf<MPEG2VIDEOINFO>(type).hdr.bmiHeader
                                            : FormatOf<VIDEOINFOHEADER>(type).bmiHeader;
        EXPECT_EQ(header.biSize, 40u);
        EXPECT_EQ(header.biWidth, c.nWidth);
        EXPECT_EQ(header.biHeight, c.nHeight);
        EXPECT_EQ(rig.video.GetMediaType(1, type), VFW_S_NO_MORE_ITEMS);
        EXPECT_EQ(rig.video.GetMediaType(-1, type), E_INVALIDARG);
    }
    CPinRig rig(4);
    rig.filter.m_nMode = 6;
    CMediaType type;
    EXPECT_EQ(rig.video.GetMediaType(0, type), E_INVALIDARG);
}

TEST(PinMediaTypes, VideoFormatBlocks) {
    const CMediaType mpeg4 = MakeMpeg4VideoType(640, 360), mpeg2 = MakeMpeg2VideoType();
    EXPECT_EQ(FormatOf<VIDEOINFOHEADER>(mpeg4).bmiHeader.biPlanes, 1);
    EXPECT_EQ(mpeg4.GetSampleSize(), 1u);
    EXPECT_TRUE(mpeg4.bTemporalCompression);
    const auto info2 = FormatOf<MPEG2VIDEOINFO>(mpeg2);
    EXPECT_EQ(info2.hdr.dwBitRate, 2000000u);
    EXPECT_EQ(info2.hdr.AvgTimePerFrame, 333667);
    EXPECT_EQ(info2.hdr.rcSource.right, 704);
    EXPECT_EQ(info2.dwStartTimeCode, 455832u);

    const CMediaType mpeg1 = MakeMpeg1VideoType();
    const auto info1 = FormatOf<MPEG1VIDEOINFO>(mpeg1);
    EXPECT_EQ(info1.hdr.dwBitRate, 1500000u);
    EXPECT_EQ(info1.dwStartTimeCode, 4097u);
    ASSERT_EQ(info1.cbSequenceHeader, 140u);
    // 352 x 240, and behind it aspect and picture rate; the header ends in a matrix of 16s.
    const auto header = mpeg1.Format().subspan(offsetof(MPEG1VIDEOINFO, bSequenceHeader), 140);
    EXPECT_THAT(std::vector(header.begin(), header.begin() + 8),
                ElementsAre(0, 0, 1, 0xB3, 0x16, 0, 0xF0, 0x24));
    EXPECT_EQ(header[75], 0xA7);
    EXPECT_EQ(std::count(header.begin() + 76, header.end(), 16), 64);
}

TEST(PinMediaTypes, AudioTakesItsOwnTypeAlone) {
    CPinRig rig(4);
    CMediaType type, other;
    ASSERT_EQ(rig.audio.GetMediaType(0, type), S_OK);
    EXPECT_EQ(rig.audio.GetMediaType(1, other), VFW_S_NO_MORE_ITEMS);
    EXPECT_EQ(rig.audio.GetMediaType(-1, other), E_INVALIDARG);
    EXPECT_EQ(type.Subtype(), MEDIASUBTYPE_MPEG1AudioPayload);
    ASSERT_EQ(type.Format().size(), 40u);
    auto format = FormatOf<MPEG1WAVEFORMAT>(type);
    EXPECT_EQ(format.wfx.nSamplesPerSec, 44100u);
    EXPECT_EQ(format.wfx.nBlockAlign, 1152);
    EXPECT_EQ(format.dwHeadBitrate, 384000u);
    EXPECT_EQ(format.fwHeadFlags, 24);
    EXPECT_EQ(rig.audio.CheckMediaType(type), S_OK);
    format.wfx.nSamplesPerSec = 48000;
    other = type;
    other.SetFormat(format);
    EXPECT_EQ(rig.audio.CheckMediaType(other), S_FALSE);
    other = type;
    other.SetSubtype(MEDIASUBTYPE_MPEG1Audio);
    EXPECT_EQ(rig.audio.CheckMediaType(other), S_FALSE);
    EXPECT_EQ(rig.video.CheckMediaType(type), S_FALSE);
}

TEST(PinMediaTypes, NothingIsTakenWithoutAnInput) {
    const CComPtr<CPinFilter> pFilter(new CPinFilter);
    const CComPtr<CRecordingFilter> pSink(new CRecordingFilter);
    pFilter->m_bInputConnected = false;
    EXPECT_TRUE(FAILED(pFilter->m_video.Connect(&pSink->m_video, nullptr)));
    EXPECT_TRUE(FAILED(pFilter->m_audio.Connect(&pSink->m_audio, nullptr)));
    ALLOCATOR_PROPERTIES props{};
    EXPECT_EQ(pFilter->m_video.DecideBufferSize(nullptr, props), E_UNEXPECTED);
}

// ---------------- buffers

/// Grants what was asked for less something.
class CStingyAllocator final : public IMemAllocator {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* pRequest,
                                            ALLOCATOR_PROPERTIES* pActual) override {
        *pActual = m_request = *pRequest;
        pActual->cBuffers -= m_nFewer;
        pActual->cbBuffer -= m_nSmaller;
        return m_hr;
    }
    HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Commit() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Decommit() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample**, REFERENCE_TIME*, REFERENCE_TIME*, DWORD) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample*) override { return S_OK; }

    LONG m_nFewer = 0, m_nSmaller = 0;
    HRESULT m_hr = S_OK;
    ALLOCATOR_PROPERTIES m_request{};  // what was asked for last
};

TEST(PinBuffers, FewerOrSmallerOnesAreRefused) {
    CPinRig rig(4);
    struct Case {
        CDemuxOutputPin& pin;
        LONG nBuffers, nSize;
    };
    for (const Case& c : {Case{rig.video, 6, 1327104}, Case{rig.audio, 5, 65536}}) {
        CStingyAllocator allocator;
        ALLOCATOR_PROPERTIES props{1, 1, 16, 7};
        EXPECT_EQ(c.pin.DecideBufferSize(&allocator, props), S_OK);
        EXPECT_EQ(allocator.m_request.cBuffers, c.nBuffers);
        EXPECT_EQ(allocator.m_request.cbBuffer, c.nSize);
        EXPECT_EQ(allocator.m_request.cbAlign, 1);
        EXPECT_EQ(allocator.m_request.cbPrefix, 7) << "as the other pin asked";
        allocator.m_nFewer = 1;
        EXPECT_EQ(c.pin.DecideBufferSize(&allocator, props), E_FAIL);
        allocator.m_nFewer = 0;
        allocator.m_nSmaller = 1;
        EXPECT_EQ(c.pin.DecideBufferSize(&allocator, props), E_FAIL);
        allocator.m_hr = E_OUTOFMEMORY;
        EXPECT_EQ(c.pin.DecideBufferSize(&allocator, props), E_OUTOFMEMORY);
    }
}

// ---------------- seeking

class PinSeeking : public testing::Test {
protected:
    LONGLONG Position() {
        LONGLONG ll = -1;
        seeking.GetCurrentPosition(&ll);
        return ll;
    }
    LONGLONG Stop() {
        LONGLONG ll = -1;
        seeking.GetStopPosition(&ll);
        return ll;
    }

    CPinRig rig{4};
    CPinSeeking& seeking = rig.video.GetSeeking();
};

TEST_F(PinSeeking, PositionsAreCheckedThenTold) {
    LONGLONG llNow = 50, llStop = 90;
    const CCaptureTexts texts;
    EXPECT_EQ(seeking.SetPositions(&llNow, 1, &llStop, 1 | AM_SEEKING_SeekToKeyFrame), E_INVALIDARG);
    EXPECT_EQ(seeking.SetPositions(&llNow, 3, &llStop, 1), E_INVALIDARG);
    EXPECT_EQ(seeking.SetPositions(nullptr, 1, &llStop, 1), E_POINTER);
    EXPECT_EQ(seeking.SetPositions(&llNow, 1, nullptr, 1), E_POINTER);
    EXPECT_THAT(rig.filter.Hooks(), ElementsAre());
    EXPECT_EQ(Position(), 0);
    EXPECT_EQ(seeking.SetPositions(&llNow, 1, &llStop, 3), S_OK);
    EXPECT_EQ(seeking.SetPositions(&llNow, 2, &llStop, 2), S_OK);
    EXPECT_EQ(seeking.SetPositions(nullptr, 0, nullptr, 0), S_OK);
    EXPECT_EQ(seeking.SetRate(2.0), S_OK);
    EXPECT_THAT(rig.filter.Hooks(),
                ElementsAre("stop 140", "seek 50", "stop 230", "seek 100", "rate 2.000000"));
    EXPECT_EQ(texts.DebugTexts(),
              "==>Change current position =50 <===\n==>Change current position =100 <===\n");
}

TEST_F(PinSeeking, FollowsTheFilePosition) {
    seeking.Init(3000000, 1500000);
    EXPECT_EQ(Stop(), 160000000) << "16 s";
    seeking.UpdatePosition(1048576, 1500000);
    EXPECT_EQ(Position(), 55924053);
    seeking.UpdatePosition(1, 99);
    seeking.Init(1, 0);
    EXPECT_EQ(Position(), 55924053);
    EXPECT_EQ(Stop(), 160000000);
    EXPECT_THAT(rig.filter.Hooks(), ElementsAre());
}

TEST_F(PinSeeking, BeginsWithTheLengthOfTheSource) {
    rig.filter.m_nBitRate = 8000;
    rig.video.SetFilePos(17);
    rig.video.InitSeeking();
    EXPECT_THAT(rig.filter.Hooks(), ElementsAre()) << "there is no reader";
    const std::vector<std::uint8_t> bytes(5000);
    CMemoryReader reader(bytes);
    rig.video.SetAsyncReader(&reader);
    seeking.SetRate(2.0);
    rig.video.InitSeeking();
    EXPECT_THAT(rig.filter.Hooks(), ElementsAre("rate 2.000000", "positions 17 5000"));
    EXPECT_EQ(Stop(), 50000000);
    double dRate = 0;
    EXPECT_EQ(seeking.GetRate(&dRate), S_OK);
    EXPECT_EQ(dRate, 1.0);
    rig.video.SetAsyncReader(nullptr);
}

TEST_F(PinSeeking, PinAnswersWithBothInterfaces) {
    const CCaptureTexts texts;
    CComPtr<IMediaSeeking> pSeeking;
    ASSERT_EQ(rig.video.QueryInterface(IID_IMediaSeeking, reinterpret_cast<void**>(pSeeking.Put())), S_OK);
    EXPECT_EQ(texts.DebugTexts(), "CKestDemux2VideoOutputPin::NonDelegatingQueryInterface IMediaSeeking\n");
    DWORD dwCapabilities = 0;
    EXPECT_EQ(pSeeking->GetCapabilities(&dwCapabilities), S_OK);
    EXPECT_EQ(dwCapabilities, 55u);
    EXPECT_EQ(pSeeking->GetCapabilities(nullptr), E_POINTER);
    GUID format{};
    EXPECT_EQ(pSeeking->GetTimeFormat(&format), S_OK);
    EXPECT_EQ(format, TIME_FORMAT_MEDIA_TIME);
    EXPECT_EQ(rig.audio.QueryInterface(IID_IMediaSeeking, reinterpret_cast<void**>(pSeeking.Put())),
              E_NOINTERFACE);

    CComPtr<IMediaPosition> pPosition;
    ASSERT_EQ(
        seeking.NonDelegatingQueryInterface(IID_IMediaPosition, reinterpret_cast<void**>(pPosition.Put())),
        S_OK);
    seeking.Init(3000000, 1500000);
    seeking.UpdatePosition(1500000, 1500000);
    REFTIME d = 0;
    EXPECT_EQ(pPosition->put_CurrentPosition(99), S_OK);
    EXPECT_EQ(pPosition->get_CurrentPosition(&d), S_OK);
    EXPECT_EQ(d, 8.0);
    EXPECT_EQ(pPosition->get_Duration(&d), S_OK);
    EXPECT_EQ(d, 16.0);
    LONG nCan = 0;
    EXPECT_EQ(pPosition->CanSeekForward(&nCan), S_OK);
    EXPECT_EQ(nCan, OATRUE);
    EXPECT_EQ(pPosition->CanSeekBackward(&nCan), S_OK);
    EXPECT_EQ(nCan, OATRUE);
    EXPECT_EQ(pPosition->put_Rate(0.5), S_OK);
    EXPECT_THAT(rig.filter.Hooks(), ElementsAre("rate 0.500000"));
}

}  // namespace
}  // namespace kest

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

TEST(PinMediaTypes, VideoOffersByMode) {
    struct {
        std::uint32_t nMode;
        bool bPush;
        GUID subtype, format;
        std::size_t nFormat;
        LONG nWidth, nHeight;
        DWORD dwBitRate;
    } const cases[] = {{0, false, MEDIASUBTYPE_KestMpeg4Video, FORMAT_VideoInfo, 88, 640, 360, 0},
                       {1, true, MEDIASUBTYPE_KestMpeg4Video, FORMAT_VideoInfo, 88, 720, 480, 0},
                       {4, true, MEDIASUBTYPE_MPEG2_VIDEO, FORMAT_MPEG2Video, 136, 352, 480, 2000000},
                       {5, false, MEDIASUBTYPE_MPEG1Packet, FORMAT_MPEGVideo, 244, 352, 240, 1500000}};
    CPinRig rig(4);
    CMediaType type;
    for (const auto& c : cases) {
        rig.filter.m_nMode = c.nMode;
        rig.filter.m_bPush = c.bPush;
        ASSERT_EQ(rig.video.GetMediaType(0, type), S_OK);
        EXPECT_EQ(type.Subtype(), c.subtype);
        EXPECT_EQ(type.FormatType(), c.format);
        ASSERT_EQ(type.Format().size(), c.nFormat);
        EXPECT_EQ(rig.video.CheckMediaType(type), S_OK);
        const bool bMpeg2 = c.format == FORMAT_MPEG2Video;
        const auto header =
            bMpeg2 ? FormatOf<MPEG2VIDEOINFO>(type).hdr.bmiHeader : FormatOf<VIDEOINFOHEADER>(type).bmiHeader;
        EXPECT_EQ(header.biSize, 40u);
        EXPECT_EQ(header.biWidth, c.nWidth);
        EXPECT_EQ(header.biHeight, c.nHeight);
        EXPECT_EQ(FormatOf<VIDEOINFOHEADER>(type).dwBitRate, c.dwBitRate);
    }
    // A sequence header behind the last: 352 x 240, aspect and picture rate; it ends in a matrix of 16s.
    const auto header = type.Format().subspan(offsetof(MPEG1VIDEOINFO, bSequenceHeader), 140);
    EXPECT_THAT(std::vector(header.begin(), header.begin() + 8),
                ElementsAre(0, 0, 1, 0xB3, 0x16, 0, 0xF0, 0x24));
    EXPECT_EQ(std::count(header.begin() + 76, header.end(), 16), 64);
    EXPECT_EQ(rig.video.GetMediaType(1, type), VFW_S_NO_MORE_ITEMS);
    EXPECT_EQ(rig.video.GetMediaType(-1, type), E_INVALIDARG);
    rig.filter.m_nMode = 6;
    EXPECT_EQ(rig.video.GetMediaType(0, type), E_INVALIDARG);
}

TEST(PinMediaTypes, AudioTakesItsOwnTypeAloneAndNobodyWithoutAnInput) {
    CPinRig rig(4);
    CMediaType type;
    ASSERT_EQ(rig.audio.GetMediaType(0, type), S_OK);
    auto format = FormatOf<MPEG1WAVEFORMAT>(type);
    EXPECT_EQ(format.wfx.nSamplesPerSec, 44100u);
    EXPECT_EQ(format.dwHeadBitrate, 384000u);
    EXPECT_EQ(rig.audio.CheckMediaType(type), S_OK);
    rig.filter.m_bInputConnected = false;
    EXPECT_EQ(rig.audio.CheckMediaType(type), S_FALSE);
    EXPECT_EQ(rig.video.CheckMediaType(CMediaType(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO)), S_FALSE);
    rig.filter.m_bInputConnected = true;
    format.wfx.nSamplesPerSec = 48000;
    type.SetFormat(format);
    EXPECT_EQ(rig.audio.CheckMediaType(type), S_FALSE);
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

TEST_F(PinSeeking, DeliveryDoesNotUndoASeek) {
    LONGLONG llNow = 50, llStop = 90;
    const CCaptureTexts texts;
    rig.video.SetFilePos(1048576);
    rig.filter.m_onHook = [&] { seeking.UpdatePosition(); };  // a sample is delivered meanwhile
    EXPECT_EQ(seeking.SetPositions(&llNow, 1, &llStop, 3), S_OK);
    EXPECT_EQ(seeking.SetRate(2.0), S_OK);
    EXPECT_THAT(rig.filter.m_hooks.Get(), ElementsAre("stop 140", "seek 50", "rate 2.000000"));
    EXPECT_EQ(texts.DebugTexts(), "==>Change current position =50 <===\n");
    EXPECT_EQ(Position(), 55924053);
    rig.filter.m_nBitRate = 0;
    EXPECT_EQ(seeking.SetPositions(&llNow, 1, nullptr, 0), S_OK);
    EXPECT_EQ(Position(), 55924053) << "no place in the file stands for a time";
    EXPECT_FALSE(seeking.SkipAhead([] { return false; }));
    EXPECT_EQ(rig.filter.m_hooks.Get().size(), 3u);
}

TEST_F(PinSeeking, TakesDurationAndPositionFromTheFile) {
    constexpr std::int64_t kMax = 0x7FFFFFFFFFFFFFFF;
    struct {
        std::int64_t llBytes;
        std::uint32_t nBitRate;
        LONGLONG llStop, llNow;
    } const cases[] = {
        {1048576, 1500000, 55924048, 55924053},
        {2000000000000, 8000000, 20000000000000, 20000000000000},  // the product has more than 64 bits
        {kMax, 1500000, kMax, kMax},
        {1, 99, 808080, kMax},
        {1, 0, 808080, kMax},
    };
    for (const auto& c : cases) {
        rig.filter.m_nBitRate = c.nBitRate;
        rig.video.SetFilePos(c.llBytes);
        seeking.Init(c.llBytes);
        seeking.UpdatePosition();
        EXPECT_EQ(Stop(), c.llStop) << c.llBytes;
        EXPECT_EQ(Position(), c.llNow) << c.llBytes;
    }
    rig.video.InitSeeking();
    EXPECT_THAT(rig.filter.m_hooks.Get(), ElementsAre()) << "there is no reader";
    const std::vector<std::uint8_t> bytes(5000);
    CMemoryReader reader(bytes);
    rig.filter.m_nBitRate = 8000;
    rig.video.SetAsyncReader(&reader);
    rig.video.InitSeeking();
    EXPECT_THAT(rig.filter.m_hooks.Get(), ElementsAre("positions 1 5000"));
    EXPECT_EQ(Stop(), 50000000);
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
    CComPtr<IMediaPosition> pPosition;
    ASSERT_EQ(rig.video.QueryInterface(IID_IMediaPosition, reinterpret_cast<void**>(pPosition.Put())), S_OK);
    CComPtr<IDispatch> pDispatch;
    EXPECT_EQ(pPosition->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(pDispatch.Put())), S_OK);
    seeking.Init(3000000);
    rig.video.SetFilePos(1500000);
    seeking.UpdatePosition();
    REFTIME d = 0;
    EXPECT_EQ(pPosition->put_CurrentPosition(99), S_OK);
    EXPECT_EQ(pPosition->get_CurrentPosition(&d), S_OK);
    EXPECT_EQ(d, 8.0);
    EXPECT_EQ(pPosition->get_Duration(&d), S_OK);
    EXPECT_EQ(d, 16.0);
    LONG nCan = 0;
    EXPECT_EQ(pPosition->CanSeekForward(&nCan), S_OK);
    EXPECT_EQ(nCan, OATRUE);
}

}  // namespace
}  // namespace kest

// Media types, the seeking object, quality messages.
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

TEST(PinMediaTypes, AreOfferedByMode) {
    CPinRig rig(4);
    CMediaType type;
    auto Expect = [&](std::uint32_t nMode, bool bPush, const GUID& subtype, std::size_t nFormat,
                      LONG nWidth) {
        rig.filter.m_nMode = nMode;
        rig.filter.m_bPush = bPush;
        ASSERT_EQ(rig.video.GetMediaType(0, type), S_OK);
        EXPECT_EQ(rig.video.CheckMediaType(type), S_OK);
        EXPECT_EQ(type.Subtype(), subtype);
        EXPECT_EQ(type.Format().size(), nFormat);
        const bool bMpeg2 = type.FormatType() == FORMAT_MPEG2Video;
        const auto header =
            bMpeg2 ? FormatOf<MPEG2VIDEOINFO>(type).hdr.bmiHeader : FormatOf<VIDEOINFOHEADER>(type).bmiHeader;
        EXPECT_EQ(std::pair(header.biSize, header.biWidth), std::pair(DWORD{40}, nWidth));
    };
    Expect(0, false, MEDIASUBTYPE_KestMpeg4Video, 88, 640);
    Expect(2, true, MEDIASUBTYPE_KestMpeg4Video, 88, 720);
    Expect(3, true, MEDIASUBTYPE_MPEG2_VIDEO, 136, 352);
    Expect(5, false, MEDIASUBTYPE_MPEG1Packet, 244, 352);
    // Its sequence header: 352 x 240, aspect and picture rate; it ends in a matrix of 16s.
    const auto header = type.Format().subspan(offsetof(MPEG1VIDEOINFO, bSequenceHeader), 140);
    EXPECT_THAT(std::vector(header.begin(), header.begin() + 8),
                ElementsAre(0, 0, 1, 0xB3, 0x16, 0, 0xF0, 0x24));
    EXPECT_EQ(std::count(header.begin() + 76, header.end(), 16), 64);
    CMediaType audio;
    ASSERT_EQ(rig.audio.GetMediaType(0, audio), S_OK);
    EXPECT_EQ(rig.audio.CheckMediaType(audio), S_OK);
    EXPECT_EQ(FormatOf<MPEG1WAVEFORMAT>(audio).dwHeadBitrate, 384000u);
    audio.SetFormat(MPEG1WAVEFORMAT{});
    EXPECT_EQ(rig.audio.CheckMediaType(audio), S_FALSE) << "its own type alone";
    rig.filter.m_bInputConnected = false;
    EXPECT_EQ(rig.video.CheckMediaType(type), S_FALSE);
    rig.filter.m_nMode = 6;
    EXPECT_EQ(rig.video.GetMediaType(0, type), E_INVALIDARG);
    EXPECT_EQ(rig.video.GetMediaType(1, type), VFW_S_NO_MORE_ITEMS);
}

TEST(PinMediaTypes, AreTheStreamsOwnWhereTheseAreKnown) {
    CPinRig rig(4);
    StreamDescription video{.nId = 0xE0, .kind = EStreamKind::Video, .codec = ECodec::Mpeg2Video};
    video.video = {.nWidth = 720,
                   .nHeight = 576,
                   .sampleAspect = {16, 15},
                   .displayAspect = {4, 3},
                   .frameRate = {25, 1},
                   .nBitRate = 6000000,
                   .nProfileLevel = 0x48,
                   .bProgressive = false,
                   .abHeader = {0, 0, 1, 0xB3, 0x2D}};
    StreamDescription audio{.nId = 0xC0, .kind = EStreamKind::Audio, .codec = ECodec::MpegAudio};
    audio.audio = {.nSamplingRate = 48000,
                   .nChannels = 1,
                   .nBitRate = 192000,
                   .nFrameSamples = 1152,
                   .nLayer = 2,
                   .nVersion = 1,
                   .nMode = 3,
                   .nEmphasis = 1,
                   .bProtected = true,
                   .bOriginal = true};
    CMediaType type;
    const auto Offer = [&](CDemuxOutputPin& pin) {
        rig.filter.m_description.streams = {video, audio};
        EXPECT_EQ(pin.GetMediaType(0, type), S_OK);
        EXPECT_EQ(pin.CheckMediaType(type), S_OK);
        return type;
    };
    const auto mpeg2 = FormatOf<MPEG2VIDEOINFO>(Offer(rig.video));
    EXPECT_EQ(std::tuple(mpeg2.hdr.rcSource.right, mpeg2.hdr.bmiHeader.biWidth, mpeg2.hdr.bmiHeader.biHeight,
                         mpeg2.hdr.AvgTimePerFrame, mpeg2.hdr.dwBitRate),
              std::tuple(720, 720, 576, 400000, 6000000u));
    EXPECT_EQ(std::tuple(mpeg2.hdr.dwPictAspectRatioX, mpeg2.hdr.dwPictAspectRatioY,
                         mpeg2.hdr.dwInterlaceFlags, mpeg2.dwProfile, mpeg2.dwLevel, mpeg2.cbSequenceHeader),
              std::tuple(4u, 3u, 0x81u, 2u, 2u, 5u));
    const auto header = type.Format().subspan(offsetof(MPEG2VIDEOINFO, dwSequenceHeader), 5);
    EXPECT_TRUE(std::ranges::equal(header, video.video.abHeader));

    video.codec = ECodec::Mpeg1Video;
    video.video.frameRate = {24000, 1001};
    const auto mpeg1 = FormatOf<MPEG1VIDEOINFO>(Offer(rig.video));
    EXPECT_EQ(type.Subtype(), MEDIASUBTYPE_MPEG1Payload) << "also of a program stream";
    EXPECT_EQ(std::tuple(mpeg1.hdr.AvgTimePerFrame, mpeg1.hdr.bmiHeader.biXPelsPerMeter,
                         mpeg1.hdr.bmiHeader.biYPelsPerMeter, mpeg1.cbSequenceHeader),
              std::tuple(417083, 1875, 2000, 5u));

    video.codec = ECodec::Mpeg4Video;
    EXPECT_EQ(FormatOf<VIDEOINFOHEADER>(Offer(rig.video)).bmiHeader.biWidth, 720);
    EXPECT_EQ(type.Subtype(), MEDIASUBTYPE_KestMpeg4Video);
    video.video = {};
    EXPECT_EQ(FormatOf<MPEG2VIDEOINFO>(Offer(rig.video)).hdr.bmiHeader.biWidth, 352) << "that of the mode";

    const auto mono = FormatOf<MPEG1WAVEFORMAT>(Offer(rig.audio));
    EXPECT_EQ(
        std::tuple(WORD{mono.wfx.nChannels}, DWORD{mono.wfx.nSamplesPerSec}, DWORD{mono.wfx.nAvgBytesPerSec},
                   WORD{mono.wfx.nBlockAlign}, DWORD{mono.dwHeadBitrate}),
        std::tuple(1, 48000u, 24000u, 576, 192000u));
    EXPECT_EQ(std::tuple(WORD{mono.fwHeadLayer}, WORD{mono.fwHeadMode}, WORD{mono.fwHeadModeExt},
                         WORD{mono.wHeadEmphasis}, WORD{mono.fwHeadFlags}),
              std::tuple(2, 8, 1, 2, 4 + 8 + 16));
    audio.audio.nSamplingRate = 44100;  // frames of two sizes
    EXPECT_EQ(WORD{FormatOf<MPEG1WAVEFORMAT>(Offer(rig.audio)).wfx.nBlockAlign}, 1);
    CMediaType host(MEDIATYPE_Audio, MEDIASUBTYPE_MPEG1Audio);
    ASSERT_EQ(rig.audio.SetOfferedType(host), S_OK);
    EXPECT_TRUE(Offer(rig.audio) == host) << "the host's own";
}

// ---------------- seeking

struct PinSeeking : testing::Test {
    LONGLONG Position() {
        LONGLONG ll = -1;
        return seeking.GetCurrentPosition(&ll), ll;
    }
    LONGLONG Stop() {
        LONGLONG ll = -1;
        return seeking.GetStopPosition(&ll), ll;
    }
    void SetFilePos(std::int64_t llFilePos) {
        FRAME_INFO info{};
        info.llFilePos = llFilePos;
        seeking.SetFrame(info);
    }
    CPinRig rig{4};
    CPinSeeking& seeking = rig.video.GetSeeking();
};

TEST_F(PinSeeking, DeliveryDoesNotUndoASeek) {
    LONGLONG llNow = 50, llStop = 90;
    const CCaptureTexts texts;
    SetFilePos(1048576);
    rig.filter.m_onHook = [&] { seeking.UpdatePosition(); };  // a sample is delivered meanwhile
    EXPECT_EQ(seeking.SetPositions(&llNow, 1, &llStop, 3), S_OK);
    EXPECT_THAT(rig.filter.m_hooks.Get(), ElementsAre("stop 140", "seek 50"));
    EXPECT_EQ(texts.DebugTexts(), "==>Change current position =50 <===\n");
    rig.filter.m_nBitRate = 0;
    EXPECT_EQ(seeking.SetPositions(&llNow, 1, nullptr, 0), S_OK);
    EXPECT_FALSE(seeking.SkipAhead([] { return false; }));
    EXPECT_EQ(Position(), 55924053) << "no place in the file stands for a time";
    EXPECT_EQ(rig.filter.m_hooks.Get().size(), 2u);
}

TEST_F(PinSeeking, TakesDurationAndPositionFromTheFile) {
    constexpr std::int64_t kMax = 0x7FFFFFFFFFFFFFFF;
    auto Expect = [&](std::int64_t llBytes, std::uint32_t nBitRate, LONGLONG llStop, LONGLONG llNow) {
        rig.filter.m_nBitRate = nBitRate;
        SetFilePos(llBytes);
        seeking.Init(llBytes);
        seeking.UpdatePosition();
        EXPECT_EQ(std::pair(Stop(), Position()), std::pair(llStop, llNow)) << llBytes;
    };
    Expect(1048576, 1500000, 55924048, 55924053);
    Expect(2000000000000, 8000000, 20000000000000, 20000000000000);  // the product has more than 64 bits
    Expect(kMax, 1500000, kMax, kMax);
    Expect(1, 99, 808080, kMax);
    Expect(1, 0, 808080, kMax);
    const std::vector<std::uint8_t> bytes(5000);
    CMemoryReader reader(bytes);
    rig.filter.m_nBitRate = 8000;
    rig.video.SetAsyncReader(&reader);
    rig.video.InitSeeking();
    rig.video.SetAsyncReader(nullptr);
    EXPECT_THAT(rig.filter.m_hooks.Get(), ElementsAre("positions 1 5000"));
    EXPECT_EQ(Stop(), 50000000);
}

// ---------------- quality messages

TEST(PinQuality, VideoAnswersByModeAndLateness) {
    auto Expect = [](std::uint32_t nMode, REFERENCE_TIME rtLate, HRESULT hrPending, const char* pszText) {
        const CCaptureTexts texts;
        CPinRig rig(nMode);
        EXPECT_EQ(rig.video.Notify(nullptr, Quality{Famine, 1000, rtLate, 0}), E_NOTIMPL);
        rig.Put(rig.video, TestFrame{});
        EXPECT_EQ(rig.video.Notify(nullptr, Quality{Famine, 1000, rtLate, 0}), hrPending)
            << nMode << " " << rtLate;
        EXPECT_EQ(texts.DebugTexts(), pszText);
    };
    Expect(1, -199999, S_OK, "===>Skipping frame\n");
    Expect(1, -200000, E_NOTIMPL, "");
    Expect(2, -309999, S_OK, "");
    Expect(2, -310000, E_NOTIMPL, "");
    Expect(4, 9000000, E_NOTIMPL, "");
}

TEST(PinQuality, LateElementaryStreamMovesItsBaseOnce) {
    static bool s_bMoved = false;  // the pins remember it for the life of the process
    if (std::exchange(s_bMoved, true)) GTEST_SKIP() << "only the first time in a process";
    CPinRig rig(0);
    auto Expect = [&](REFERENCE_TIME rtLate, REFERENCE_TIME rtTime, HRESULT hr, REFERENCE_TIME rtBase) {
        EXPECT_EQ(rig.video.Notify(nullptr, Quality{Famine, 1000, rtLate, rtTime}), hr);
        EXPECT_EQ(rig.Timing(rig.video).rtTimeBase, rtBase) << rtTime;
    };
    rig.filter.m_timing.Update([](AvTimes& times) { times.video.rtTimeBase = 1000000; });
    rig.filter.m_rtStreamStart = 20000000;
    Expect(750000, 0, E_NOTIMPL, 1000000);
    Expect(750001, 0, S_FALSE, 1000000);  // no clock
    rig.filter.m_rtNow = 50000000;
    for (int i = 0; i < 2; ++i) rig.Put(rig.video, TestFrame{});
    Expect(2000000, 30500000, E_NOTIMPL, 1000000);  // the clock has 50 ms, no more
    Expect(2000000, 30499999, E_NOTIMPL, 10000);    // four frames late but the two that wait, less one: three
    Expect(2000000, 0, E_NOTIMPL, 10000);           // not again so soon
    rig.Put(rig.video, TestFrame{});
    Expect(2000000, 0, S_OK, 10000);  // enough to catch up with
}

}  // namespace
}  // namespace kest
